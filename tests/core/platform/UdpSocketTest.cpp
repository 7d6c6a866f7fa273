// The server's socket in a namespace pair of the test's own, talking to a
// plain UDP peer on port 68 of the client side.

#include "foundation/AppException.h"
#include "platform/UdpSocket.h"
#include "support/NetworkNamespaces.h"
#include "support/RaisedCode.h"
#include "support/UdpTestPeer.h"

#include <gtest/gtest.h>

#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <chrono>
#include <future>
#include <thread>

using namespace std::chrono_literals;

namespace {

const IPv4Address BROADCAST(255, 255, 255, 255);
constexpr auto PATIENCE = 5s;

// Receives on the calling thread; a watchdog interrupts the socket after
// PATIENCE, so a datagram that never comes fails the test instead of hanging it.
std::optional<ByteString> ReceiveWithin(DatagramSocket& socket, size_t capacity = 65507)
{
    std::promise<void> returned;
    const auto watchdog = std::async(std::launch::async, [&socket, done = returned.get_future()] {
        if (done.wait_for(PATIENCE) == std::future_status::timeout) {
            socket.Interrupt();
        }
    });
    ByteString buffer(capacity);
    const auto length = socket.Receive(buffer.data(), buffer.size());
    returned.set_value();
    if (!length) {
        return std::nullopt;
    }
    buffer.resize(*length);
    return buffer;
}

class UdpSocketTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (!NamespacePair::Available()) {
            GTEST_SKIP() << NamespacePair::SKIP_MESSAGE;
        }
        pair = std::make_unique<NamespacePair>();
        client = NetworkNamespaces::RunIn(pair->ClientNamespace(),
                                          [&] { return std::make_unique<UdpTestPeer>(pair->ClientInterface(), 68); });
    }

    // Opens port 67 inside the server namespace; the code raised, or -1.
    int32_t OpenInServer(UdpSocket& socket, const IPv4Address& address) const
    {
        const auto open = [&] { socket.Open(address, 67); };
        return CodeRaisedBy([&] { NetworkNamespaces::RunIn(pair->ServerNamespace(), open); });
    }

    std::unique_ptr<NamespacePair> pair;
    std::unique_ptr<UdpTestPeer> client;
};

} // namespace

TEST_F(UdpSocketTest, ReceivesBroadcastRepliesFromTheListeningAddressAndBindsOncePerInterface)
{
    // The socket listens on the interface's second address, so a reply that
    // took the interface's first address as its source would be caught.
    const IPv4Address listeningAddress = pair->AddressInSubnet(3);
    pair->RunInServer("ip address add " + listeningAddress.ToString() + "/24 dev " + pair->ServerInterface());
    UdpSocket server;
    ASSERT_EQ(OpenInServer(server, listeningAddress), -1);
    client->SendTo(ByteString(300, 1), BROADCAST, 67);
    EXPECT_EQ(ReceiveWithin(server), ByteString(300, 1));
    for (const IPv4Address& destination : {BROADCAST, pair->ClientAddress()}) {
        const ByteString reply(548, destination[0]);
        server.SendTo(reply.data(), reply.size(), destination, 68);
        const auto received = client->Receive(PATIENCE);
        ASSERT_TRUE(received) << destination.ToString();
        EXPECT_EQ(received->data, reply) << destination.ToString();
        EXPECT_EQ(received->source.ToString(), listeningAddress.ToString());
        EXPECT_EQ(received->sourcePort, 67);
    }
    // Unicast to the server works too, an empty datagram is a datagram, and a
    // datagram longer than the buffer is cut to it.
    client->SendTo(ByteString{}, listeningAddress, 67);
    EXPECT_EQ(ReceiveWithin(server), ByteString{});
    client->SendTo(ByteString(300, 8), BROADCAST, 67);
    EXPECT_EQ(ReceiveWithin(server, 10), ByteString(10, 8));

    // Another address of the same interface is still the same interface.
    UdpSocket second;
    EXPECT_EQ(OpenInServer(second, pair->ServerAddress()), AppException::CannotBindSocket);
    // No interface carries these; the client's address is in the other namespace.
    EXPECT_EQ(OpenInServer(second, pair->AddressInSubnet(77)), AppException::CannotDetermineInterfaceName);
    EXPECT_EQ(OpenInServer(second, pair->ClientAddress()), AppException::CannotDetermineInterfaceName);
    // A server on another interface is no conflict.
    pair->RunInServer("ip link add tvextra type veth peer name tvextrapeer");
    pair->RunInServer("ip address add 192.168.78.1/24 dev tvextra");
    pair->RunInServer("ip link set tvextra up");
    UdpSocket other;
    EXPECT_EQ(OpenInServer(other, IPv4Address(192, 168, 78, 1)), -1);
    // Close gives the port back.
    server.Close();
    ASSERT_EQ(OpenInServer(second, pair->ServerAddress()), -1);
    // The interface went down under the server.
    pair->RunInServer("ip link set " + pair->ServerInterface() + " down");
    const ByteString reply(300, 5);
    for (const IPv4Address& destination : {BROADCAST, pair->ClientAddress()}) {
        EXPECT_EQ(CodeRaisedBy([&] { second.SendTo(reply.data(), reply.size(), destination, 68); }),
                  AppException::SendError)
            << destination.ToString();
    }
}

TEST_F(UdpSocketTest, InterruptEndsAWaitingReceiveButSignalsDoNot)
{
    UdpSocket server;
    ASSERT_EQ(OpenInServer(server, pair->ServerAddress()), -1);
    std::optional<size_t> result = 1;
    std::thread receiver([&] {
        uint8_t buffer[600];
        result = server.Receive(buffer, sizeof(buffer));
    });
    std::this_thread::sleep_for(200ms); // let it block in poll
    server.Interrupt();
    receiver.join();
    EXPECT_FALSE(result);
    // The interrupt stays in force, even over a waiting datagram.
    client->SendTo(ByteString(300, 6), BROADCAST, 67);
    std::this_thread::sleep_for(50ms);
    uint8_t buffer[600];
    EXPECT_FALSE(server.Receive(buffer, sizeof(buffer)));

    // A fresh Open forgets it. Signals whose handler lacks SA_RESTART make
    // the wait fail with EINTR, which must not end the receive.
    server.Close();
    ASSERT_EQ(OpenInServer(server, pair->ServerAddress()), -1);
    struct sigaction ignore {};
    ignore.sa_handler = [](int) {};
    struct sigaction previous {};
    ASSERT_EQ(sigaction(SIGUSR1, &ignore, &previous), 0);
    std::atomic<bool> returned{false};
    std::optional<ByteString> received;
    receiver = std::thread([&] {
        received = ReceiveWithin(server);
        returned = true;
    });
    for (int i = 0; i < 20; ++i) {
        std::this_thread::sleep_for(10ms);
        pthread_kill(receiver.native_handle(), SIGUSR1);
    }
    EXPECT_FALSE(returned);
    client->SendTo(ByteString(300, 7), BROADCAST, 67);
    receiver.join();
    sigaction(SIGUSR1, &previous, nullptr);
    EXPECT_EQ(received, ByteString(300, 7));

    // Datagrams already read in one batch come out one by one, in order and
    // cut to the caller's buffer, and an Interrupt holds them back too.
    for (uint8_t mark = 1; mark <= 3; ++mark) {
        client->SendTo(ByteString(300, mark), BROADCAST, 67);
    }
    std::this_thread::sleep_for(50ms);
    EXPECT_EQ(ReceiveWithin(server), ByteString(300, 1));
    EXPECT_EQ(ReceiveWithin(server, 10), ByteString(10, 2));
    server.Interrupt();
    EXPECT_FALSE(server.Receive(buffer, sizeof(buffer)));
}
