#include "E2EFixture.h"

#include "harness/MalformedDatagrams.h"
#include "support/ClientDatagram.h"
#include "support/UdpTestPeer.h"

#include <malloc.h>

#include <atomic>
#include <chrono>
#include <thread>

// A flood of malformed datagrams from the client namespace to the broadcast
// address on port 67, bounded in count and time, while the server runs.

namespace {

constexpr uint16_t SERVER_PORT = 67;
constexpr uint16_t CLIENT_PORT = 68;
constexpr uint16_t FLOOD_SOURCE_PORT = 6767;
constexpr size_t FLOOD_COUNT = 20000;
constexpr auto FLOOD_TIME_LIMIT = std::chrono::seconds(10);
const IPv4Address LIMITED_BROADCAST(255, 255, 255, 255);

size_t HeapInUse()
{
    return mallinfo2().uordblks;
}

} // namespace

class RobustnessTest : public E2EFixture {
protected:
    NamespacePair::ClientSide ClientSideOfPair() const override { return NamespacePair::ClientSide::WithAddress; }

    // Sends up to `count` malformed datagrams, for at most FLOOD_TIME_LIMIT
    // and only while `keepGoing` holds; returns how many went out.
    size_t Flood(UdpTestPeer& peer, MalformedDatagrams& generator, size_t count,
                 const std::atomic<bool>& keepGoing = alwaysTrue)
    {
        const auto deadline = std::chrono::steady_clock::now() + FLOOD_TIME_LIMIT;
        size_t sent = 0;
        for (uint32_t i = 0; i < count && keepGoing.load() && std::chrono::steady_clock::now() < deadline; ++i) {
            try {
                peer.SendTo(generator.Make(i), LIMITED_BROADCAST, SERVER_PORT);
                ++sent;
            } catch (const std::runtime_error&) {
                // A full queue on the way; the flood goes on.
            }
        }
        return sent;
    }

    // An INFORM from the client's own address; its ACK comes back by unicast
    // once the server has worked through everything sent before it. True
    // once the ACK has arrived and been logged.
    bool InformAndWaitForAck(UdpTestPeer& peer, uint32_t xid)
    {
        peer.SendTo(ClientDatagram(8, xid, TestMac(xid)).ClientAddress(pair->ClientAddress()).Bytes(),
                    LIMITED_BROADCAST, SERVER_PORT);
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (std::chrono::steady_clock::now() < deadline) {
            const auto reply = peer.Receive(std::chrono::seconds(1));
            if (reply && reply->data.size() >= 8 &&
                (uint32_t(reply->data[4]) << 24 | uint32_t(reply->data[5]) << 16 | uint32_t(reply->data[6]) << 8 |
                 reply->data[7]) == xid) {
                // The ACK item is added just after the ACK has gone out.
                return WaitForLogItem(DHCPAckSent, HardwareAddress(TestMac(xid).data(), 6, 1).ToString());
            }
        }
        return false;
    }

    std::unique_ptr<UdpTestPeer> PeerInClientNamespace(uint16_t port)
    {
        return NetworkNamespaces::RunIn(pair->ClientNamespace(), [&] {
            return std::make_unique<UdpTestPeer>(pair->ClientInterface(), port);
        });
    }

    inline static const std::atomic<bool> alwaysTrue{true};
};

TEST_F(RobustnessTest, MalformedFloodNeitherStopsTheServerNorGrowsItsMemory)
{
    server->Start();
    MalformedDatagrams generator(20240501);
    auto peer = PeerInClientNamespace(CLIENT_PORT);

    // Warm-up: whatever the engine allocates once is allocated now.
    Flood(*peer, generator, 2000);
    ASSERT_TRUE(InformAndWaitForAck(*peer, 1));
    const size_t heapBefore = HeapInUse();
    const size_t logItemsBefore = LogItems().size();

    const size_t sent = Flood(*peer, generator, FLOOD_COUNT);
    ASSERT_TRUE(InformAndWaitForAck(*peer, 2)) << "the server stopped answering after " << sent << " datagrams";
    const size_t heapAfter = HeapInUse();
    RecordProperty("malformed_datagrams_sent", static_cast<int>(sent));
    RecordProperty("heap_growth_bytes", static_cast<int>(heapAfter - std::min(heapAfter, heapBefore)));

    EXPECT_GT(sent, FLOOD_COUNT / 2);
    EXPECT_TRUE(server->Server().IsRunning());
    // Only the INFORM and its ACK were logged.
    const auto items = LogItems();
    ASSERT_EQ(items.size(), logItemsBefore + 2);
    EXPECT_EQ(items[logItemsBefore].GetEventType(), DHCPInformReceived);
    EXPECT_EQ(items[logItemsBefore + 1].GetEventType(), DHCPAckSent);
    // Two log items and nothing per datagram: a leak of even 4 bytes per
    // datagram would show here.
    EXPECT_LT(heapAfter, heapBefore + 16 * 1024) << "heap " << heapBefore << " -> " << heapAfter;
    EXPECT_EQ(server->Addresses().GetLeaseCount(), 0u);
}

TEST_F(RobustnessTest, RealClientObtainsItsAddressDuringAFlood)
{
    server->Start();
    std::atomic<bool> flooding{true};
    std::atomic<size_t> sent{0};
    auto floodPeer = PeerInClientNamespace(FLOOD_SOURCE_PORT);
    std::thread flood([&] {
        MalformedDatagrams generator(7);
        sent = Flood(*floodPeer, generator, 3 * FLOOD_COUNT, flooding);
    });
    // Let the flood get going before the client starts.
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    // A MAC of our choosing; the interface keeps its address for the INFORM below.
    const std::string clientMac = "02:54:76:00:00:09";
    pair->RunInClient("ip link set dev " + pair->ClientInterface() + " address " + clientMac);
    const auto result = clients->RunUdhcpcOnce();
    flooding = false;
    flood.join();

    ASSERT_EQ(result.exitStatus, 0) << result.output;
    const auto bound = clients->WaitForEvent("bound", 0, std::chrono::seconds(1));
    ASSERT_TRUE(bound.has_value());
    EXPECT_TRUE(InPool(bound->Get("ip"))) << bound->Get("ip");
    EXPECT_EQ(bound->Get("subnet"), "255.255.255.0");
    EXPECT_GT(sent.load(), 0u);
    RecordProperty("malformed_datagrams_sent", static_cast<int>(sent.load()));

    // Still serving afterwards.
    EXPECT_TRUE(server->Server().IsRunning());
    auto peer = PeerInClientNamespace(CLIENT_PORT);
    EXPECT_TRUE(InformAndWaitForAck(*peer, 3));
    // The client's exchange (with any retries) and the INFORM are all that
    // was logged: nothing of the flood.
    const std::string informMac = HardwareAddress(TestMac(3).data(), 6, 1).ToString();
    const auto items = LogItems();
    EXPECT_GE(items.size(), 7u);
    for (const LogItem& item : items) {
        const std::string details = item.GetDetails();
        EXPECT_TRUE(details.empty() || details.find(clientMac) != std::string::npos ||
                    details.find(informMac) != std::string::npos || item.GetEventType() == ServerStart)
            << item.GetLogLine();
    }
}
