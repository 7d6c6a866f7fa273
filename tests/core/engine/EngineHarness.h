#pragma once

#include "allocation/AddressManager.h"
#include "config/Settings.h"
#include "engine/DHCPServer.h"
#include "foundation/AppException.h"
#include "log/LogManager.h"
#include "support/ClientDatagram.h"
#include "support/FakeDatagramSocket.h"
#include "support/ManualClock.h"
#include "support/TemporaryFolder.h"
#include "wire/DHCPMessage.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <vector>

using Events = std::vector<EventType>;
using Codes = std::vector<uint8_t>;
using Mac = std::vector<uint8_t>;

inline const Mac MAC_A = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55};
inline const Mac MAC_B = {0x00, 0x11, 0x22, 0x33, 0x44, 0x66};
inline const HardwareAddress HARDWARE_A("00:11:22:33:44:55");
inline const IPv4Address SERVER{10, 0, 0, 1};
inline const IPv4Address OTHER_LOCAL{10, 0, 1, 1};
inline const IPv4Address POOL_START{10, 0, 0, 100};
inline const IPv4Address POOL_END{10, 0, 0, 110};
inline const IPv4Address BROADCAST{255, 255, 255, 255};
constexpr int32_t LEASE_DURATION = 3600;

// The client's messages by state: SELECTING names a server and the offered
// address, INIT-REBOOT only the address, RENEWING/REBINDING has ciaddr only.
inline ClientDatagram Discover(uint32_t xid, const Mac& mac) { return ClientDatagram(1, xid, mac); }
inline ClientDatagram Selecting(uint32_t xid, const Mac& mac, IPv4Address offered, IPv4Address server = SERVER)
{
    return ClientDatagram(3, xid, mac).RequestedAddress(offered).ServerIdentifier(server);
}
inline ClientDatagram InitReboot(uint32_t xid, const Mac& mac, IPv4Address wanted)
{
    return ClientDatagram(3, xid, mac).RequestedAddress(wanted);
}
inline ClientDatagram Renewal(uint32_t xid, const Mac& mac, IPv4Address held)
{
    return ClientDatagram(3, xid, mac).ClientAddress(held);
}

inline Events EventsOf(const std::vector<LogItem>& items)
{
    Events events;
    for (const LogItem& item : items) {
        events.push_back(item.GetEventType());
    }
    return events;
}

// The whole engine on a fake socket and a manual clock: datagrams go in
// through the receive thread, replies come out as recorded sends. TEMP points
// at a temporary folder while the harness lives, so the lease files go there.
class EngineHarness {
public:
    struct Reply {
        FakeDatagramSocket::SentDatagram sent;
        DHCPMessage message;

        Codes OptionCodes() const { return WireOptionCodes(sent.data); }
        std::optional<ByteString> Option(uint8_t code) const { return FindWireOption(sent.data, code); }
        int Type() const
        {
            const auto type = Option(53);
            return type && type->size() == 1 ? (*type)[0] : -1;
        }
        IPv4Address Yiaddr() const { return message.GetYourIPAddress(); }
        // Type, destination and the address fields in one line, e.g.
        // "ACK to 255.255.255.255:68, ciaddr 0.0.0.0, yiaddr 10.0.0.100".
        std::string Summary() const
        {
            const int type = Type();
            return std::string(type == 2 ? "OFFER" : type == 5 ? "ACK" : type == 6 ? "NAK" : "?") + " to " +
                   sent.destination.ToString() + ":" + std::to_string(sent.port) + ", ciaddr " +
                   message.GetClientIPAddress().ToString() + ", yiaddr " + Yiaddr().ToString();
        }
    };

    explicit EngineHarness(std::vector<IPv4Address> localAddresses = {SERVER, OTHER_LOCAL})
        : localAddresses(std::move(localAddresses))
    {
        if (const char* temp = std::getenv("TEMP")) {
            previousTemp = temp;
        }
        setenv("TEMP", folder.Path().c_str(), 1);
        ReplaceServer();
    }
    ~EngineHarness()
    {
        server.reset();
        previousTemp ? setenv("TEMP", previousTemp->c_str(), 1) : unsetenv("TEMP");
    }
    EngineHarness(const EngineHarness&) = delete;
    EngineHarness& operator=(const EngineHarness&) = delete;

    ServerPlatform Platform()
    {
        ServerPlatform platform;
        platform.detectLocalAddresses = [this] { return localAddresses; };
        platform.createSocket = [this] { return std::make_unique<FakeDatagramSocket>(network); };
        platform.canBindPrivilegedPort = [] { return true; };
        platform.clock = &clock;
        return platform;
    }

    // A new run on the same folder, clock and network: pool 10.0.0.100-110/24,
    // gateway, two DNS servers, one hour, and a log that keeps everything.
    void ReplaceServer()
    {
        server.reset();
        server = std::make_unique<DHCPServer>(Platform());
        Settings& settings = GetSettings();
        settings.SetPoolStartAddress(POOL_START);
        settings.SetPoolEndAddress(POOL_END);
        settings.SetSubnetMask(24);
        settings.SetDefaultGateway(IPv4Address(10, 0, 0, 254));
        settings.SetDNSAddress1(IPv4Address(10, 0, 0, 53));
        settings.SetDNSAddress2(IPv4Address(10, 0, 0, 54));
        settings.SetLeaseDuration(LEASE_DURATION);
        settings.SetLoggingEnabled(true);
        settings.SetLogIgnoredDHCPMessages(true);
        settings.SetLogFilePath(folder.FilePath("log.txt"));
        logReadIndex = 0;
    }

    DHCPServer& Server() { return *server; }
    Settings& GetSettings() { return *server->GetSettings(); }
    AddressManager& Addresses() { return *server->GetAddressManager(); }
    LogManager& Log() { return *server->GetLogManager(); }

    void Start()
    {
        server->Start();
        logReadIndex = Log().GetLogItemCount();
    }

    // Delivers the datagram, waits until the engine has handled it, and
    // returns what it sent meanwhile.
    std::vector<Reply> Send(const ClientDatagram& datagram) { return SendBytes(datagram.Bytes()); }
    std::vector<Reply> SendBytes(const ByteString& bytes)
    {
        network.Deliver(bytes);
        EXPECT_TRUE(network.WaitUntilIdle()) << "the receive thread did not come back for more";
        std::vector<Reply> replies;
        for (auto& sent : network.TakeSent()) {
            DHCPMessage message(sent.data.data(), sent.data.size());
            replies.push_back({std::move(sent), std::move(message)});
        }
        return replies;
    }
    Reply SendForOne(const ClientDatagram& datagram)
    {
        std::vector<Reply> replies = Send(datagram);
        if (replies.size() != 1) {
            ADD_FAILURE() << "expected one reply, got " << replies.size();
            throw std::runtime_error("no single reply");
        }
        return std::move(replies.front());
    }
    // For datagrams that must get no reply: what they added to the log.
    Events Unanswered(const ClientDatagram& datagram)
    {
        EXPECT_TRUE(Send(datagram).empty()) << "unexpected reply";
        return NewEvents();
    }

    // The log items added since the last call (or since Start).
    std::vector<LogItem> NewLogItems()
    {
        std::vector<LogItem> items = Log().GetLogItems(logReadIndex);
        logReadIndex += items.size();
        return items;
    }
    Events NewEvents() { return EventsOf(NewLogItems()); }

    std::optional<Lease> LiveLeaseOn(const IPv4Address& address)
    {
        for (const Lease& lease : Addresses().GetLeases()) {
            if (lease.GetIPAddress() == address && !lease.IsExpired(clock.Now())) {
                return lease;
            }
        }
        return std::nullopt;
    }
    bool IsLeased(const IPv4Address& address) { return LiveLeaseOn(address).has_value(); }

    // A full DISCOVER/OFFER/REQUEST/ACK for this client; returns the address.
    IPv4Address Obtain(const Mac& mac, uint32_t xid)
    {
        const IPv4Address offered = SendForOne(Discover(xid, mac)).Yiaddr();
        EXPECT_EQ(SendForOne(Selecting(xid, mac, offered)).Type(), 5);
        NewLogItems();
        return offered;
    }

    std::string LeaseFilePath() const { return folder.FilePath("quorvy_leases_" + SERVER.ToString() + ".dat"); }

    TemporaryFolder folder;
    ManualClock clock;
    FakeDatagramSocket::Network network;
    std::vector<IPv4Address> localAddresses;

private:
    std::optional<std::string> previousTemp;
    std::unique_ptr<DHCPServer> server;
    size_t logReadIndex = 0;
};
