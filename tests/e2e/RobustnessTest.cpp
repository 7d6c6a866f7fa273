// A flood of malformed datagrams from the client namespace to the broadcast
// address on port 67, bounded in count and time, while the server runs and a
// real client asks for its address.

#include "E2EFixture.h"

#include "support/ClientDatagram.h"
#include "support/UdpTestPeer.h"

#include <malloc.h>

#include <atomic>
#include <random>

namespace {

constexpr uint16_t SERVER_PORT = 67;
constexpr size_t FLOOD_COUNT = 20000;
const IPv4Address LIMITED_BROADCAST(255, 255, 255, 255);
const std::string CLIENT_MAC = "02:54:76:00:00:09";

// Datagrams that no client would send and that the server must drop without
// a trace, kind `index % 10`, with random details: random bytes, cut
// headers, wrong cookies, option lengths past the end, impossible header
// values, and well-formed messages with nothing to act on.
ByteString Malformed(uint32_t index, std::mt19937& random)
{
    const auto below = [&random](uint32_t limit) {
        return std::uniform_int_distribution<uint32_t>(0, limit - 1)(random);
    };
    const auto request = [&](uint8_t type) { return ClientDatagram(type, random(), TestMac(below(1u << 20))); };
    ByteString datagram = request(1).Bytes();
    switch (index % 10) {
    case 0: // random bytes of random length, up to a large datagram
        datagram.resize(below(1500));
        for (uint8_t& byte : datagram) {
            byte = static_cast<uint8_t>(random());
        }
        break;
    case 1: // a header cut short
        datagram.resize(below(240));
        break;
    case 2: // wrong magic cookie
        datagram[236 + below(4)] ^= static_cast<uint8_t>(1 + below(255));
        break;
    case 3: // an option whose length runs far past the end, in place of End
        datagram.back() = static_cast<uint8_t>(1 + below(254));
        datagram.push_back(static_cast<uint8_t>(10 + below(246)));
        break;
    case 4: // htype 0 or above 21
        datagram[1] = below(2) == 0 ? 0 : static_cast<uint8_t>(22 + below(234));
        break;
    case 5: // hlen beyond the 16 bytes of chaddr
        datagram[2] = static_cast<uint8_t>(17 + below(239));
        break;
    case 6: // op neither request nor reply
        datagram[0] = static_cast<uint8_t>(3 + below(253));
        break;
    case 7: // without option 53
        datagram = request(1).WithoutMessageType().Option(12, {'x'}).Bytes();
        break;
    case 8: // a type nobody handles (DECLINE, server types, or out of range)
        datagram = request(static_cast<uint8_t>(below(2) == 0 ? 4 : 9 + below(247))).Bytes();
        break;
    default: // hlen 0 and no option 61: no identity at all
        datagram = ClientDatagram(1, random(), {}).Bytes();
    }
    return datagram;
}

} // namespace

class RobustnessTest : public E2EFixture {
protected:
    NamespacePair::ClientSide ClientSideOfPair() const override { return NamespacePair::ClientSide::WithAddress; }

    std::unique_ptr<UdpTestPeer> PeerInClientNamespace(uint16_t port)
    {
        return NetworkNamespaces::RunIn(pair->ClientNamespace(),
                                        [&] { return std::make_unique<UdpTestPeer>(pair->ClientInterface(), port); });
    }

    // Sends malformed datagrams, counted in `sent`, for at most 10 s and up
    // to `limit`; once `clientDone` is set, only until FLOOD_COUNT went out.
    static void Flood(UdpTestPeer& peer, uint32_t seed, size_t limit, const std::atomic<bool>& clientDone,
                      std::atomic<size_t>& sent)
    {
        std::mt19937 random(seed);
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        for (uint32_t i = 0; i < limit && !(clientDone && sent >= FLOOD_COUNT) &&
                             std::chrono::steady_clock::now() < deadline;
             ++i) {
            try {
                peer.SendTo(Malformed(i, random), LIMITED_BROADCAST, SERVER_PORT);
                ++sent;
            } catch (const std::runtime_error&) {
                // A full queue on the way; the flood goes on.
            }
        }
    }

    // An INFORM from the client's own address, answered by unicast once the
    // server has worked through everything sent before it. True once its ACK
    // has arrived and been logged.
    bool InformAndWaitForAck(UdpTestPeer& peer, uint32_t xid)
    {
        peer.SendTo(ClientDatagram(8, xid, TestMac(xid)).ClientAddress(pair->ClientAddress()).Bytes(),
                    LIMITED_BROADCAST, SERVER_PORT);
        const ByteString xidBytes = {uint8_t(xid >> 24), uint8_t(xid >> 16), uint8_t(xid >> 8), uint8_t(xid)};
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (std::chrono::steady_clock::now() < deadline) {
            const auto reply = peer.Receive(std::chrono::seconds(1));
            if (reply && reply->data.size() >= 8 && std::equal(xidBytes.begin(), xidBytes.end(), &reply->data[4])) {
                return WaitForLogItem(DHCPAckSent, HardwareAddress(TestMac(xid).data(), 6, 1).ToString());
            }
        }
        return false;
    }
};

TEST_F(RobustnessTest, MalformedFloodNeitherKeepsAClientOutNorStaysInMemoryOrLog)
{
    StartServer();
    // A MAC of our choosing for udhcpc, set before the server learns the
    // interface's address; the address stays for the INFORMs.
    pair->RunInClient("ip link set dev " + pair->ClientInterface() + " address " + CLIENT_MAC);
    auto peer = PeerInClientNamespace(68);
    auto floodPeer = PeerInClientNamespace(6767);

    // A real client asks while the flood goes on; the flood gets going first.
    std::atomic<bool> clientDone = false;
    std::atomic<size_t> sent = 0;
    std::thread flood([&] { Flood(*floodPeer, 7, 3 * FLOOD_COUNT, clientDone, sent); });
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    const int exitStatus = StartInClient(Udhcpc({"-q", "-n"}), "udhcpc.out")->Wait();
    const size_t sentWhileClientRan = sent;
    clientDone = true;
    flood.join();
    EXPECT_GT(sentWhileClientRan, 0u);
    ASSERT_EQ(exitStatus, 0) << ReadFile("udhcpc.out");
    const auto bound = WaitForEvent("bound", 0, std::chrono::seconds(1));
    ASSERT_TRUE(bound.has_value());
    EXPECT_TRUE(InPool(bound->Get("ip"))) << bound->Get("ip");
    EXPECT_EQ(bound->Get("subnet"), "255.255.255.0");
    ASSERT_TRUE(InformAndWaitForAck(*peer, 1)) << "the server stopped answering after " << sent << " datagrams";
    // The client's exchange (with any retries), the INFORM (logged without
    // details) and its ACK are all that was logged: nothing of the flood.
    const std::string informMac = HardwareAddress(TestMac(1).data(), 6, 1).ToString();
    for (const LogItem& item : LogItems()) {
        const std::string details = item.GetDetails();
        EXPECT_TRUE(item.GetEventType() == ServerStart || item.GetEventType() == DHCPInformReceived ||
                    details.find(CLIENT_MAC) != std::string::npos || details.find(informMac) != std::string::npos)
            << item.GetLogLine();
    }

    // Whatever the engine allocates once is allocated by now; a second flood
    // alone leaves two log items (the next INFORM and its ACK) and nothing
    // per datagram: a leak of even a few bytes per datagram would show.
    const size_t heapBefore = mallinfo2().uordblks;
    const size_t logItemsBefore = LogItems().size();
    sent = 0;
    // From a thread of its own, like the first: its cached memory goes when it ends.
    std::thread([&] { Flood(*floodPeer, 20240501, FLOOD_COUNT, clientDone, sent); }).join();
    ASSERT_TRUE(InformAndWaitForAck(*peer, 2)) << "the server stopped answering after " << sent << " datagrams";
    const size_t heapAfter = mallinfo2().uordblks;
    RecordProperty("sent_while_the_client_ran", static_cast<int>(sentWhileClientRan));
    RecordProperty("heap_growth_bytes", static_cast<int>(heapAfter - std::min(heapAfter, heapBefore)));
    EXPECT_GT(sent.load(), FLOOD_COUNT / 2);
    EXPECT_TRUE(server->IsRunning());
    EXPECT_EQ(server->GetAddressManager()->GetLeaseCount(), 1u);
    EXPECT_EQ(LogItems().size(), logItemsBefore + 2);
    EXPECT_LT(heapAfter, heapBefore + 16 * 1024) << "heap " << heapBefore << " -> " << heapAfter;
}
