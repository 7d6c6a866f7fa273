#pragma once

#include <sys/socket.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

// Datagrams taken from a socket several at a time with one recvmmsg, then
// handed out one by one: under load the receive thread makes one system call
// per batch instead of a poll and a recv per datagram. Each slot holds the
// largest UDP payload, so nothing is cut short here; the pages of a slot are
// touched only as far as datagrams fill them.
class ReceiveBatch {
public:
    static constexpr size_t SLOTS = 16;
    static constexpr size_t SLOT_BYTES = 65507; // 65535 less the IP and UDP headers

    bool IsEmpty() const { return next == count; }
    // Reads what the socket holds, up to SLOTS datagrams, without waiting.
    // Returns how many, or -1 with errno set (EAGAIN when none was waiting).
    // Precondition: IsEmpty().
    int Fill(int socketHandle);
    // Copies the next datagram to `buffer`, cut to `capacity`, and returns
    // the number of bytes copied. Precondition: !IsEmpty().
    size_t TakeNext(uint8_t* buffer, size_t capacity);
    // Forgets the datagrams not yet taken.
    void Clear() { next = count = 0; }

private:
    void Prepare();

    // Not zeroed: a slot costs memory only once a datagram lands in it.
    std::unique_ptr<uint8_t[]> slots;
    std::vector<iovec> vectors;
    std::vector<mmsghdr> headers;
    size_t count = 0;
    size_t next = 0;
};
