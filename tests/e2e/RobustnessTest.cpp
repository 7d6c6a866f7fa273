// A flood of malformed datagrams from the client namespace to the broadcast
// address on port 67, bounded in count and time, while the server runs and
// real clients ask for addresses.

#include "E2EFixture.h"

#include "support/ClientDatagram.h"
#include "support/UdpTestPeer.h"

#include <algorithm>
#include <atomic>
#include <random>

namespace {

constexpr size_t FLOOD_COUNT = 20000;

// Datagrams that the server must drop without a trace, kind `index % 8`
// with random details.
ByteString Malformed(uint32_t index, std::mt19937& random)
{
    const auto below = [&random](uint32_t limit) { return static_cast<uint8_t>(random() % limit); };
    ByteString datagram = ClientDatagram(1, random(), TestMac(random() % (1u << 20)));
    switch (index % 8) {
    case 0: // random bytes of random length, up to a large datagram
        datagram.resize(random() % 1500);
        std::generate(datagram.begin(), datagram.end(), [&] { return below(256); });
        break;
    case 1: // a header cut short
        datagram.resize(random() % 240);
        break;
    case 2: // a wrong magic cookie
        datagram[236 + below(4)] ^= static_cast<uint8_t>(1 + below(255));
        break;
    case 3: // an option whose length runs past the end, in place of End
        datagram.back() = static_cast<uint8_t>(1 + below(254));
        datagram.push_back(static_cast<uint8_t>(10 + below(246)));
        break;
    case 4: // hlen beyond the 16 bytes of chaddr
        datagram[2] = static_cast<uint8_t>(17 + below(239));
        break;
    case 5: // without option 53
        datagram = ClientDatagram(1, random(), TestMac(1)).WithoutMessageType().Option(12, {'x'});
        break;
    case 6: // DECLINE, or a type that does not exist
        datagram = ClientDatagram(below(2) == 0 ? 4 : static_cast<uint8_t>(9 + below(247)), random(), TestMac(2));
        break;
    default: // hlen 0 and no option 61: no identity at all
        datagram = ClientDatagram(1, random(), {});
    }
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
                peer->SendTo(Malformed(i, random), IPv4Address(255, 255, 255, 255), 67);
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
