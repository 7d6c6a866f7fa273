#pragma once

#include "foundation/ByteString.h"
#include "foundation/IPv4Address.h"
#include "platform/DatagramSocket.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <type_traits>
#include <utility>
#include <vector>

// A DatagramSocket without any network, for driving the engine from a test.
// The test holds a FakeDatagramSocket::Network; the server's socket factory
// makes sockets that are all windows on it. The test delivers datagrams,
// waits until the receive thread has handled them, and reads every datagram
// the server sent, with its destination.
class FakeDatagramSocket : public DatagramSocket {
public:
    struct SentDatagram {
        ByteString data;
        IPv4Address destination;
        uint16_t port = 0;
    };

    class Network {
    public:
        using Timeout = std::chrono::milliseconds;
        static constexpr Timeout DEFAULT_TIMEOUT = std::chrono::seconds(5);

        // Queues a datagram for Receive.
        void Deliver(const ByteString& datagram) { Change([&] { incoming.push_back(datagram); }); }
        // Makes the next Receive raise ReceiveError, as a failing socket would.
        void FailNextReceive() { Change([&] { receiveFailurePending = true; }); }
        // Until cleared, SendTo raises this code instead of sending.
        void SetSendFailure(std::optional<int32_t> code) { Change([&] { sendFailure = code; }); }
        // The next Open raises this code instead of binding.
        void SetOpenFailure(std::optional<int32_t> code) { Change([&] { openFailure = code; }); }
        // While set, Receive keeps each datagram it takes until this is
        // cleared: a receive thread with a message in hand.
        void HoldTakenDatagrams(bool hold) { Change([&] { holdTaken = hold; }); }

        // Each is true once its state is reached, false when that does not
        // happen within `timeout`. Idle: every delivered datagram has been
        // taken and the receive thread waits again, so all have been handled.
        // Closed: no socket is open. Held: Receive holds a taken datagram.
        // Interrupted: a socket has been interrupted.
        bool WaitUntilIdle(Timeout timeout = DEFAULT_TIMEOUT)
        {
            return WaitFor(timeout, [this] { return incoming.empty() && !receiveFailurePending && receiverWaiting; });
        }
        bool WaitUntilClosed(Timeout timeout = DEFAULT_TIMEOUT) { return WaitFor(timeout, [this] { return !open; }); }
        bool WaitUntilHeld(Timeout timeout = DEFAULT_TIMEOUT) { return WaitFor(timeout, [this] { return holding; }); }
        bool WaitUntilInterrupted(Timeout timeout = DEFAULT_TIMEOUT)
        {
            return WaitFor(timeout, [this] { return interruptCount > 0; });
        }
        // Sent so far, and cleared.
        std::vector<SentDatagram> TakeSent() { return Read([&] { return std::exchange(sent, {}); }); }

        int GetOpenCount() const { return Read([&] { return openCount; }); }
        bool IsOpen() const { return Read([&] { return open; }); }
        IPv4Address GetOpenedAddress() const { return Read([&] { return openedAddress; }); }
        uint16_t GetOpenedPort() const { return Read([&] { return openedPort; }); }

    private:
        friend class FakeDatagramSocket;
        template <typename State>
        bool WaitFor(Timeout timeout, State reached)
        {
            std::unique_lock lock(mutex);
            return changed.wait_for(lock, timeout, reached);
        }

        template <typename Action>
        void Change(Action action)
        {
            {
                std::lock_guard lock(mutex);
                action();
            }
            changed.notify_all();
        }
        template <typename Action>
        std::invoke_result_t<Action&> Read(Action action) const
        {
            std::lock_guard lock(mutex);
            return action();
        }

        mutable std::mutex mutex;
        std::condition_variable changed;
        std::deque<ByteString> incoming;
        bool receiveFailurePending = false;
        bool receiverWaiting = false;
        bool holdTaken = false;
        bool holding = false;
        int interruptCount = 0;
        std::optional<int32_t> sendFailure;
        std::optional<int32_t> openFailure;
        std::vector<SentDatagram> sent;
        int openCount = 0;
        bool open = false;
        IPv4Address openedAddress;
        uint16_t openedPort = 0;
    };

    explicit FakeDatagramSocket(Network& network) : network(network) {}
    ~FakeDatagramSocket() override { Close(); }

    void Open(const IPv4Address& listeningAddress, uint16_t port) override;
    std::optional<size_t> Receive(uint8_t* buffer, size_t capacity) override;
    void Interrupt() override;
    void SendTo(const uint8_t* data, size_t length, const IPv4Address& destination, uint16_t port) override;
    void Close() override;

private:
    Network& network;
    // Guarded by network.mutex.
    bool interrupted = false;
    bool opened = false;
};
