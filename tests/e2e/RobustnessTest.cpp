// A flood of malformed datagrams from the client namespace to the broadcast
// address on port 67, bounded in count and time, while the server runs and
// real clients ask for addresses.

#include "E2EFixture.h"

#include "support/UdpTestPeer.h"

#include <algorithm>
#include <atomic>
#include <random>

namespace {

constexpr size_t FLOOD_COUNT = 20000;

// Random bytes of random length, up to a large datagram: the kinds of damage
// are the parser's and the engine fuzzer's business; here only the volume
// through the real socket counts.
ByteString Malformed(std::mt19937& random)
{
    ByteString datagram(random() % 1500);
    std::generate(datagram.begin(), datagram.end(), [&] { return static_cast<uint8_t>(random()); });
    return datagram;
}

} // namespace

using RobustnessTest = E2EFixture;

TEST_F(RobustnessTest, MalformedFloodNeitherStopsTheServerNorKeepsClientsOutNorReachesTheLog)
{
    StartServer();
    const std::string firstMac = "02:54:76:00:00:09";
    const std::string secondMac = "02:54:76:00:00:0a";
    SetClientInterface(firstMac);
    const auto peer = NetworkNamespaces::RunIn(
        pair->ClientNamespace(), [&] { return std::make_unique<UdpTestPeer>(pair->ClientInterface(), 6767); });

    // The flood gets going first; a real client asks while it goes on, and
    // it ends after FLOOD_COUNT datagrams once the client has its lease.
    std::atomic<bool> clientDone = false;
    std::atomic<size_t> sent = 0;
    std::thread flood([&] {
        std::mt19937 random(7);
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        for (uint32_t i = 0; i < 3 * FLOOD_COUNT && !(clientDone && sent >= FLOOD_COUNT) &&
                             std::chrono::steady_clock::now() < deadline;
             ++i) {
            try {
                peer->SendTo(Malformed(random), IPv4Address(255, 255, 255, 255), 67);
                ++sent;
            } catch (const std::runtime_error&) {
                // A full queue on the way; the flood goes on.
            }
        }
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    const std::string bound = RunClient(Udhcpc());
    const size_t sentWhileClientRan = sent;
    clientDone = true;
    flood.join();
    EXPECT_EQ(bound, Bound(100));
    EXPECT_GT(sentWhileClientRan, 0u);
    EXPECT_GE(sent.load(), FLOOD_COUNT);

    // Everything sent before now has been handled when the next client is answered.
    SetClientInterface(secondMac);
    EXPECT_EQ(RunClient(Udhcpc()), Bound(101));
    EXPECT_TRUE(server->IsRunning());
    EXPECT_EQ(server->GetAddressManager()->GetLeaseCount(), 2u);
    for (const LogItem& item : server->GetLogManager()->GetLogItems(0)) {
        const std::string details = item.GetDetails();
        EXPECT_TRUE(item.GetEventType() == ServerStart || details.find(firstMac) != std::string::npos ||
                    details.find(secondMac) != std::string::npos)
            << item.GetLogLine();
    }
}
