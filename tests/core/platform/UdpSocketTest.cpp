#include "foundation/AppException.h"
#include "platform/UdpSocket.h"
#include "support/NetworkNamespaces.h"
#include "support/UdpTestPeer.h"

#include <gtest/gtest.h>

#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

using namespace std::chrono_literals;

namespace {

constexpr uint16_t SERVER_PORT = 67;
constexpr uint16_t CLIENT_PORT = 68;
const IPv4Address BROADCAST(255, 255, 255, 255);
constexpr auto PATIENCE = 5s;

// Interrupts the socket when `timeout` passes first, so that a datagram that
// never comes fails the test instead of hanging it.
class Watchdog {
public:
    Watchdog(DatagramSocket& socket, std::chrono::milliseconds timeout)
        : worker([this, &socket, timeout] {
              std::unique_lock lock(mutex);
              if (!wake.wait_for(lock, timeout, [this] { return done; })) {
                  socket.Interrupt();
              }
          })
    {
    }
    ~Watchdog()
    {
        {
            std::lock_guard lock(mutex);
            done = true;
        }
        wake.notify_one();
        worker.join();
    }

private:
    std::mutex mutex;
    std::condition_variable wake;
    bool done = false;
    std::thread worker;
};

std::optional<ByteString> ReceiveWithin(DatagramSocket& socket, std::chrono::milliseconds timeout)
{
    const Watchdog watchdog(socket, timeout);
    ByteString buffer(65507);
    const auto length = socket.Receive(buffer.data(), buffer.size());
    if (!length) {
        return std::nullopt;
    }
    buffer.resize(*length);
    return buffer;
}

ByteString Pattern(size_t length, uint8_t seed)
{
    ByteString bytes(length);
    for (size_t i = 0; i < length; ++i) {
        bytes[i] = static_cast<uint8_t>(seed + i * 7);
    }
    return bytes;
}

template <typename Action>
int CodeOf(Action&& action)
{
    try {
        action();
    } catch (const AppException& failure) {
        return failure.GetCode();
    }
    return -1;
}

class UdpSocketTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (!NamespacePair::Available()) {
            GTEST_SKIP() << NamespacePair::SKIP_MESSAGE;
        }
        pair = std::make_unique<NamespacePair>();
    }

    void OpenInServer(UdpSocket& socket, const IPv4Address& address, uint16_t port = SERVER_PORT) const
    {
        NetworkNamespaces::RunIn(pair->ServerNamespace(), [&] { socket.Open(address, port); });
    }

    int CodeOfOpenInServer(const IPv4Address& address, uint16_t port = SERVER_PORT) const
    {
        UdpSocket socket;
        return CodeOf([&] { OpenInServer(socket, address, port); });
    }

    std::unique_ptr<UdpTestPeer> ClientPeer() const
    {
        return NetworkNamespaces::RunIn(pair->ClientNamespace(), [&] {
            return std::make_unique<UdpTestPeer>(pair->ClientInterface(), CLIENT_PORT);
        });
    }

    std::unique_ptr<NamespacePair> pair;
};

} // namespace

TEST_F(UdpSocketTest, ReceivesBroadcastAndRepliesFromTheListeningAddress)
{
    // The server interface carries a second address and the socket listens on
    // that one, so a reply that took the interface's first address as its
    // source would be caught.
    const IPv4Address listeningAddress = pair->AddressInSubnet(3);
    pair->RunInServer("ip address add " + listeningAddress.ToString() + "/24 dev " + pair->ServerInterface());
    UdpSocket server;
    OpenInServer(server, listeningAddress);
    ASSERT_TRUE(server.IsOpen());
    const auto client = ClientPeer();

    const ByteString request = Pattern(300, 1);
    client->SendTo(request, BROADCAST, SERVER_PORT);
    EXPECT_EQ(ReceiveWithin(server, PATIENCE), request);

    const ByteString broadcastReply = Pattern(300, 2);
    server.SendTo(broadcastReply.data(), broadcastReply.size(), BROADCAST, CLIENT_PORT);
    auto received = client->Receive(PATIENCE);
    ASSERT_TRUE(received);
    EXPECT_EQ(received->data, broadcastReply);
    EXPECT_EQ(received->source.ToString(), listeningAddress.ToString());
    EXPECT_EQ(received->sourcePort, SERVER_PORT);

    const ByteString unicastReply = Pattern(548, 3);
    server.SendTo(unicastReply.data(), unicastReply.size(), pair->ClientAddress(), CLIENT_PORT);
    received = client->Receive(PATIENCE);
    ASSERT_TRUE(received);
    EXPECT_EQ(received->data, unicastReply);
    EXPECT_EQ(received->source.ToString(), listeningAddress.ToString());
    EXPECT_EQ(received->sourcePort, SERVER_PORT);

    // Unicast to the server works too, and an empty datagram is a datagram.
    client->SendTo(ByteString{}, listeningAddress, SERVER_PORT);
    EXPECT_EQ(ReceiveWithin(server, PATIENCE), ByteString{});
}

TEST_F(UdpSocketTest, OneSocketPerInterfaceAndPort)
{
    UdpSocket first;
    OpenInServer(first, pair->ServerAddress());
    EXPECT_EQ(CodeOfOpenInServer(pair->ServerAddress()), AppException::CannotBindSocket);

    // Another address of the same interface is still the same interface.
    const IPv4Address secondAddress = pair->AddressInSubnet(3);
    pair->RunInServer("ip address add " + secondAddress.ToString() + "/24 dev " + pair->ServerInterface());
    EXPECT_EQ(CodeOfOpenInServer(secondAddress), AppException::CannotBindSocket);

    // A server on another interface is no conflict.
    pair->RunInServer("ip link add tvextra type veth peer name tvextrapeer");
    pair->RunInServer("ip address add 192.168.78.1/24 dev tvextra");
    pair->RunInServer("ip link set tvextra up");
    UdpSocket other;
    OpenInServer(other, IPv4Address(192, 168, 78, 1));
    EXPECT_TRUE(other.IsOpen());

    // Close gives the port back.
    first.Close();
    EXPECT_FALSE(first.IsOpen());
    first.Close();
    EXPECT_EQ(CodeOfOpenInServer(pair->ServerAddress()), -1);
}

TEST_F(UdpSocketTest, AddressWithoutInterfaceCannotBeOpened)
{
    EXPECT_EQ(CodeOfOpenInServer(pair->AddressInSubnet(77)), AppException::CannotDetermineInterfaceName);
    // The client's address belongs to the other namespace.
    EXPECT_EQ(CodeOfOpenInServer(pair->ClientAddress()), AppException::CannotDetermineInterfaceName);
}

TEST_F(UdpSocketTest, SendFailuresAreSendErrors)
{
    UdpSocket server;
    OpenInServer(server, pair->ServerAddress());
    const ByteString tooLong = Pattern(65508, 5);
    EXPECT_EQ(CodeOf([&] { server.SendTo(tooLong.data(), tooLong.size(), pair->ClientAddress(), CLIENT_PORT); }),
              AppException::SendError);
    // The interface went down under the server.
    pair->RunInServer("ip link set " + pair->ServerInterface() + " down");
    const ByteString data = Pattern(300, 4);
    EXPECT_EQ(CodeOf([&] { server.SendTo(data.data(), data.size(), BROADCAST, CLIENT_PORT); }),
              AppException::SendError);
    EXPECT_EQ(CodeOf([&] { server.SendTo(data.data(), data.size(), pair->ClientAddress(), CLIENT_PORT); }),
              AppException::SendError);
}

TEST_F(UdpSocketTest, InterruptEndsAWaitingReceiveAtOnceUntilReopened)
{
    UdpSocket server;
    OpenInServer(server, pair->ServerAddress());

    std::optional<size_t> result = 1;
    std::chrono::steady_clock::time_point returnedAt;
    std::thread receiver([&] {
        uint8_t buffer[600];
        result = server.Receive(buffer, sizeof(buffer));
        returnedAt = std::chrono::steady_clock::now();
    });
    std::this_thread::sleep_for(200ms); // let it block in poll
    const auto interruptedAt = std::chrono::steady_clock::now();
    server.Interrupt();
    receiver.join();
    EXPECT_FALSE(result);
    // A stop that waits for the receive thread must not hang.
    EXPECT_LT(returnedAt - interruptedAt, 100ms);

    // The interrupt stays in force, even over a waiting datagram.
    const auto client = ClientPeer();
    client->SendTo(Pattern(300, 6), BROADCAST, SERVER_PORT);
    std::this_thread::sleep_for(50ms);
    uint8_t buffer[600];
    EXPECT_FALSE(server.Receive(buffer, sizeof(buffer)));

    // A fresh Open forgets it.
    server.Close();
    OpenInServer(server, pair->ServerAddress());
    client->SendTo(Pattern(300, 7), BROADCAST, SERVER_PORT);
    EXPECT_EQ(ReceiveWithin(server, PATIENCE), Pattern(300, 7));

    // A datagram longer than the buffer is cut to it.
    client->SendTo(Pattern(300, 8), BROADCAST, SERVER_PORT);
    const Watchdog watchdog(server, PATIENCE);
    EXPECT_EQ(server.Receive(buffer, 10), std::optional<size_t>(10));
    EXPECT_EQ(ByteString(buffer, buffer + 10), Pattern(10, 8));
}

TEST_F(UdpSocketTest, SignalsDoNotDisturbAWaitingReceive)
{
    UdpSocket server;
    OpenInServer(server, pair->ServerAddress());
    const auto client = ClientPeer();

    // A handler without SA_RESTART makes the wait fail with EINTR.
    struct sigaction ignore {};
    ignore.sa_handler = [](int) {};
    sigemptyset(&ignore.sa_mask);
    struct sigaction previous {};
    ASSERT_EQ(sigaction(SIGUSR1, &ignore, &previous), 0);

    std::atomic<bool> returned{false};
    std::optional<ByteString> received;
    std::thread receiver([&] {
        received = ReceiveWithin(server, PATIENCE);
        returned = true;
    });
    for (int i = 0; i < 20; ++i) {
        std::this_thread::sleep_for(10ms);
        pthread_kill(receiver.native_handle(), SIGUSR1);
    }
    EXPECT_FALSE(returned);
    client->SendTo(Pattern(300, 9), BROADCAST, SERVER_PORT);
    receiver.join();
    sigaction(SIGUSR1, &previous, nullptr);
    EXPECT_EQ(received, Pattern(300, 9));
}
