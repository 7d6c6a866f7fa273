#pragma once

#include "allocation/AddressManager.h"
#include "config/Settings.h"
#include "engine/DHCPServer.h"
#include "foundation/AppException.h"
#include "log/LogManager.h"
#include "support/ClientDatagram.h"
#include "support/FakeDatagramSocket.h"
#include "support/FakeServerPlatform.h"
#include "support/ManualClock.h"
#include "support/ScopedEnvironment.h"
#include "support/TemporaryFolder.h"
#include "wire/DHCPMessage.h"

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

using Codes = std::vector<uint8_t>;

inline const IPv4Address SERVER{10, 0, 0, 1};
inline const IPv4Address OTHER_LOCAL{10, 0, 1, 1};
inline const IPv4Address POOL_START{10, 0, 0, 100};
inline const IPv4Address POOL_END{10, 0, 0, 110};
constexpr int32_t LEASE_DURATION = 3600;

// Clients are named by a letter (support/TestHardware.h). The client's messages by state: SELECTING names a server and the offered
// address, INIT-REBOOT only the address, RENEWING/REBINDING has ciaddr only.
inline ClientDatagram Discover(uint32_t xid, char client)
{
    return ClientDatagram(1, xid, TestMac(client));
}
inline ClientDatagram Request(uint32_t xid, char client)
{
    return ClientDatagram(3, xid, TestMac(client));
}
inline ClientDatagram Selecting(uint32_t xid, char client, IPv4Address offered, IPv4Address server = SERVER)
{
    return Request(xid, client).RequestedAddress(offered).ServerIdentifier(server);
}
inline ClientDatagram InitReboot(uint32_t xid, char client, IPv4Address wanted)
{
    return Request(xid, client).RequestedAddress(wanted);
}
inline ClientDatagram Renewal(uint32_t xid, char client, IPv4Address held)
{
    return Request(xid, client).ClientAddress(held);
}

// Log items in short: "DISCOVER(ignored) REQUEST ACK".
inline std::string EventsText(const std::vector<LogItem>& items)
{
    static const char* const names[] = {"start", "stop", "DISCOVER", "REQUEST", "OFFER",
                                        "ACK",   "NAK",  "INFORM",   "RELEASE", "other"};
    std::string text;
    for (const LogItem& item : items) {
        text += (text.empty() ? "" : " ") + std::string(names[item.GetEventType()]) +
                (item.IsMessageIgnored() ? "(ignored)" : "");
    }
    return text;
}

// The whole engine on a fake socket and a manual clock: datagrams go in
// through the receive thread, replies come out as recorded sends. TEMP points
// at a temporary folder of its own, so the lease files go there.
// The pool is 10.0.0.100-110/24 with a gateway, two DNS servers, one hour,
// and a log that keeps everything.
class EngineHarness {
public:
    struct Reply {
        FakeDatagramSocket::SentDatagram sent;
        DHCPMessage message;

        Codes OptionCodes() const
        {
            Codes codes;
            for (const auto& option : WireOptions(sent.data)) {
                codes.push_back(option.first);
            }
            return codes;
        }
        std::optional<ByteString> Option(uint8_t code) const
        {
            for (const auto& [found, value] : WireOptions(sent.data)) {
                if (found == code) {
                    return value;
                }
            }
            return std::nullopt;
        }
        IPv4Address Yiaddr() const { return message.GetYourIPAddress(); }
        // "ACK .100 to .100:68, ciaddr .100", "NAK to broadcast:68": yiaddr
        // and ciaddr only when set, and 10.0.0.x as .x.
        std::string Summary() const
        {
            const auto text = [](const IPv4Address& address) {
                return address == IPv4Address(255, 255, 255, 255) ? std::string("broadcast")
                       : address[0] == 10 && address[1] == 0 && address[2] == 0 ? "." + std::to_string(address[3])
                                                                                : address.ToString();
            };
            const uint8_t type = Option(53).value_or(ByteString{0}).at(0);
            const IPv4Address ciaddr = message.GetClientIPAddress();
            return std::string(type == 2 ? "OFFER" : type == 5 ? "ACK" : type == 6 ? "NAK" : "?") +
                   (Yiaddr().IsZero() ? "" : " " + text(Yiaddr())) + " to " + text(sent.destination) + ":" +
                   std::to_string(sent.port) + (ciaddr.IsZero() ? "" : ", ciaddr " + text(ciaddr));
        }
    };

    explicit EngineHarness(std::vector<IPv4Address> localAddresses = {SERVER, OTHER_LOCAL})
        : localAddresses(std::move(localAddresses))
    {
        environment.Set("TEMP", folder.Path());
        ReplaceServer();
    }

    ServerPlatform Platform(bool privileged = true)
    {
        return FakeServerPlatform(network, &clock, [this] { return localAddresses; }, privileged);
    }

    // A new run on the same folder, clock and network.
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
    std::vector<Reply> Send(const ByteString& datagram)
    {
        network.Deliver(datagram);
        EXPECT_TRUE(network.WaitUntilIdle()) << "the receive thread did not come back for more";
        std::vector<Reply> replies;
        for (auto& sent : network.TakeSent()) {
            DHCPMessage message(sent.data.data(), sent.data.size());
            replies.push_back({std::move(sent), std::move(message)});
        }
        return replies;
    }
    // Raises std::out_of_range when there is none.
    Reply SendForOne(const ByteString& datagram)
    {
        std::vector<Reply> replies = Send(datagram);
        EXPECT_EQ(replies.size(), 1u);
        return std::move(replies.at(0));
    }

    // The log items added since the last call (or since Start).
    std::vector<LogItem> NewLogItems()
    {
        std::vector<LogItem> items = Log().GetLogItems(logReadIndex);
        logReadIndex += items.size();
        return items;
    }
    std::string NewEvents() { return EventsText(NewLogItems()); }

    // The lease table in its order, "A.100 B.101-": client letter, last
    // byte of the address, and '-' for a lease that has run out.
    std::string Leases()
    {
        std::string text;
        for (const Lease& lease : Addresses().GetLeases()) {
            text += (text.empty() ? "" : " ") + std::string(1, static_cast<char>(lease.GetHardwareAddress()[5])) +
                    "." + std::to_string(lease.GetIPAddress()[3]) + (lease.IsExpired(clock.Now()) ? "-" : "");
        }
        return text;
    }

    // A full DISCOVER/OFFER/REQUEST/ACK for this client; returns the address.
    IPv4Address Obtain(char client, uint32_t xid)
    {
        const IPv4Address offered = SendForOne(Discover(xid, client)).Yiaddr();
        EXPECT_EQ(SendForOne(Selecting(xid, client, offered)).Option(53), ByteString{5});
        NewLogItems();
        return offered;
    }

    std::string LeaseFilePath() const { return folder.FilePath("quorvy_leases_" + SERVER.ToString() + ".dat"); }

    TemporaryFolder folder;
    ScopedEnvironment environment;
    ManualClock clock;
    FakeDatagramSocket::Network network;
    std::vector<IPv4Address> localAddresses;

private:
    std::unique_ptr<DHCPServer> server; // goes before the folder and the network
    size_t logReadIndex = 0;
};
