#pragma once

#include "platform/DatagramSocket.h"
#include "platform/ReceiveBatch.h"

#include <atomic>

// The DHCP server's socket on Linux: bound to 0.0.0.0:port and tied to one
// interface with SO_BINDTODEVICE, because a socket bound to a unicast address
// never sees datagrams sent to 255.255.255.255. No SO_REUSEADDR, so a second
// server on the same interface and port fails to bind; servers on different
// interfaces coexist. Every datagram sent carries the listening address as its
// source, even when the interface has others.
class UdpSocket : public DatagramSocket {
public:
    // Large enough to hold a burst of some thousand DHCP datagrams while the
    // receive thread is busy with one; the kernel may grant less.
    static constexpr int RECEIVE_BUFFER_BYTES = 4 * 1024 * 1024;

    UdpSocket() = default;
    ~UdpSocket() override;
    UdpSocket(const UdpSocket&) = delete;
    UdpSocket& operator=(const UdpSocket&) = delete;

    // Precondition: not open.
    void Open(const IPv4Address& listeningAddress, uint16_t port) override;
    // Precondition: open.
    std::optional<size_t> Receive(uint8_t* buffer, size_t capacity) override;
    void Interrupt() override;
    // Precondition: open.
    void SendTo(const uint8_t* data, size_t length, const IPv4Address& destination, uint16_t port) override;
    void Close() override;

    bool IsOpen() const { return socketHandle >= 0; }

private:
    // Waits until the socket or the wake-up event is readable; true when a
    // datagram may be waiting.
    bool WaitForDatagramOrInterrupt();
    void EnsureWakeUpEvent();
    void ClearWakeUpEvent();

    int socketHandle = -1;
    IPv4Address sourceAddress;
    // Datagrams read but not yet handed out, and whether the socket may hold
    // more: after a batch of several, the next read is tried before waiting.
    ReceiveBatch batch;
    bool mayHoldMore = false;
    // Set by Interrupt until the next Open; checked before every datagram.
    std::atomic<bool> interrupted{false};
    // An eventfd that Interrupt signals and Receive polls beside the socket.
    // It lives as long as the object, not just while open, so an Interrupt
    // that races with Close never writes to a closed or reused descriptor.
    std::atomic<int> wakeUpEvent{-1};
};
