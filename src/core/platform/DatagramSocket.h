#pragma once

#include "foundation/IPv4Address.h"

#include <cstddef>
#include <cstdint>
#include <optional>

// A UDP endpoint as the receive loop sees it. The engine talks to this
// interface only, so its tests can feed datagrams without any socket.
//
// Threads: one thread calls Open, Receive, SendTo and Close; Interrupt may be
// called from any thread at any time while the object lives.
class DatagramSocket {
public:
    virtual ~DatagramSocket() = default;

    // Binds `port` on the interface that carries `listeningAddress`; replies
    // leave with that address as their source. A fresh Open forgets an earlier
    // Interrupt. Raises CannotDetermineInterfaceName when no interface carries
    // the address, CannotBindSocket when the port cannot be had there.
    virtual void Open(const IPv4Address& listeningAddress, uint16_t port) = 0;

    // Waits, without a time-out and without waking up on its own, until a
    // datagram arrives or Interrupt is called. Returns the number of bytes
    // written to `buffer` (0 for an empty datagram; a longer datagram is cut to
    // `capacity`), or std::nullopt once interrupted. Raises ReceiveError.
    virtual std::optional<size_t> Receive(uint8_t* buffer, size_t capacity) = 0;

    // Ends a Receive that is waiting, or the next one, at once. Stays in force
    // until the next Open.
    virtual void Interrupt() = 0;

    // Sends one datagram to destination:port. Raises SendError, or
    // NotAllBytesSent when fewer bytes went out than `length`.
    virtual void SendTo(const uint8_t* data, size_t length, const IPv4Address& destination, uint16_t port) = 0;

    // Releases the port; no Receive may be waiting then. Closing a closed
    // socket does nothing.
    virtual void Close() = 0;
};
