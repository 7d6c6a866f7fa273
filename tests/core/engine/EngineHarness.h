#pragma once

#include "allocation/AddressManager.h"
#include "config/Settings.h"
#include "foundation/AppException.h"
#include "engine/DHCPServer.h"
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

// The whole engine on a fake socket and a manual clock: datagrams go in
// through the receive thread, replies come out as recorded sends. The lease
// files go to a temporary folder named by TEMP.
class EngineHarness {
public:
    inline static const IPv4Address SERVER_ADDRESS{10, 0, 0, 1};
    inline static const IPv4Address OTHER_LOCAL_ADDRESS{10, 0, 1, 1};
    inline static const IPv4Address POOL_START{10, 0, 0, 100};
    inline static const IPv4Address POOL_END{10, 0, 0, 110};
    inline static const IPv4Address GATEWAY{10, 0, 0, 254};
    inline static const IPv4Address DNS1{10, 0, 0, 53};
    inline static const IPv4Address DNS2{10, 0, 0, 54};
    inline static const IPv4Address BROADCAST{10, 0, 0, 255};
    inline static const IPv4Address LIMITED_BROADCAST{255, 255, 255, 255};
    static constexpr int32_t LEASE_DURATION = 3600;

    // One received reply: where it went, its bytes and its parsed header.
    struct Reply {
        FakeDatagramSocket::SentDatagram sent;
        DHCPMessage message;

        std::vector<uint8_t> OptionCodes() const { return WireOptionCodes(sent.data); }
        std::optional<ByteString> Option(uint8_t code) const { return FindWireOption(sent.data, code); }
        int MessageType() const
        {
            const auto type = Option(53);
            return type && type->size() == 1 ? (*type)[0] : -1;
        }
    };

    explicit EngineHarness(std::vector<IPv4Address> localAddresses = {SERVER_ADDRESS, OTHER_LOCAL_ADDRESS})
        : localAddresses(std::move(localAddresses))
    {
        const char* oldTemp = std::getenv("TEMP");
        if (oldTemp != nullptr) {
            previousTemp = oldTemp;
        }
        setenv("TEMP", temporaryFolder.Path().c_str(), 1);
        server = MakeServer();
        Configure(*server->GetSettings());
    }

    ~EngineHarness()
    {
        server.reset();
        if (previousTemp) {
            setenv("TEMP", previousTemp->c_str(), 1);
        } else {
            unsetenv("TEMP");
        }
    }

    EngineHarness(const EngineHarness&) = delete;
    EngineHarness& operator=(const EngineHarness&) = delete;

    ServerPlatform Platform()
    {
        ServerPlatform platform;
        platform.detectLocalAddresses = [this] { return localAddresses; };
        platform.createSocket = [this]() -> std::unique_ptr<DatagramSocket> {
            return std::make_unique<FakeDatagramSocket>(network);
        };
        platform.canBindPrivilegedPort = [] { return true; };
        platform.clock = &clock;
        return platform;
    }

    std::unique_ptr<DHCPServer> MakeServer() { return std::make_unique<DHCPServer>(Platform()); }

    // Pool 10.0.0.100-110/24, gateway, two DNS servers, one hour, and a log
    // that keeps everything, ignored messages too.
    void Configure(Settings& settings) const
    {
        settings.SetPoolStartAddress(POOL_START);
        settings.SetPoolEndAddress(POOL_END);
        settings.SetSubnetMask(24);
        settings.SetDefaultGateway(GATEWAY);
        settings.SetDNSAddress1(DNS1);
        settings.SetDNSAddress2(DNS2);
        settings.SetLeaseDuration(LEASE_DURATION);
        settings.SetLoggingEnabled(true);
        settings.SetLogIgnoredDHCPMessages(true);
        settings.SetLogFilePath(temporaryFolder.FilePath("log.txt"));
    }

    // The end of a run: the server object is deleted, running or not.
    void DestroyServer() { server.reset(); }
    // A new run on the same folder, clock and network, configured afresh.
    void ReplaceServer()
    {
        server.reset();
        server = MakeServer();
        Configure(*server->GetSettings());
        logReadIndex = 0;
    }

    DHCPServer& Server() { return *server; }
    Settings& GetSettings() { return *server->GetSettings(); }
    AddressManager& Addresses() { return *server->GetAddressManager(); }

    void Start()
    {
        server->Start();
        logReadIndex = server->GetLogManager()->GetLogItemCount();
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

    // Exactly one reply expected.
    Reply SendForOne(const ClientDatagram& datagram)
    {
        std::vector<Reply> replies = Send(datagram);
        if (replies.size() != 1) {
            ADD_FAILURE() << "expected one reply, got " << replies.size();
            throw std::runtime_error("no single reply");
        }
        return std::move(replies.front());
    }

    // The log items added since the last call (or since Start).
    std::vector<LogItem> NewLogItems()
    {
        std::vector<LogItem> items = server->GetLogManager()->GetLogItems(logReadIndex);
        logReadIndex += items.size();
        return items;
    }

    // Leases that are not expired, by address.
    std::optional<Lease> LiveLeaseOn(const IPv4Address& address)
    {
        for (const Lease& lease : Addresses().GetLeases()) {
            if (lease.GetIPAddress() == address && !lease.IsExpired(clock.Now())) {
                return lease;
            }
        }
        return std::nullopt;
    }

    // A full DISCOVER/OFFER/REQUEST/ACK for this client; returns the address.
    IPv4Address Obtain(const std::vector<uint8_t>& mac, uint32_t xid)
    {
        const Reply offer = SendForOne(ClientDatagram(1, xid, mac));
        const IPv4Address offered = offer.message.GetYourIPAddress();
        const Reply ack = SendForOne(
            ClientDatagram(3, xid, mac).RequestedAddress(offered).ServerIdentifier(SERVER_ADDRESS));
        EXPECT_EQ(ack.MessageType(), 5);
        NewLogItems();
        return offered;
    }

    std::string LeaseFilePath(const IPv4Address& address) const
    {
        return temporaryFolder.FilePath("quorvy_leases_" + address.ToString() + ".dat");
    }

    TemporaryFolder temporaryFolder;
    ManualClock clock;
    FakeDatagramSocket::Network network;
    std::vector<IPv4Address> localAddresses;

private:
    std::optional<std::string> previousTemp;
    std::unique_ptr<DHCPServer> server;
    size_t logReadIndex = 0;
};

// Event types and details of items, for compact comparisons.
inline std::vector<EventType> EventsOf(const std::vector<LogItem>& items)
{
    std::vector<EventType> events;
    for (const LogItem& item : items) {
        events.push_back(item.GetEventType());
    }
    return events;
}

inline std::vector<uint8_t> Codes(std::initializer_list<int> codes)
{
    return std::vector<uint8_t>(codes.begin(), codes.end());
}
