#pragma once

#include "foundation/ByteString.h"
#include "foundation/IPv4Address.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

// The other end of a conversation with the server's socket in tests: a plain
// UDP socket on 0.0.0.0:port, tied to one interface, allowed to broadcast,
// that tells who sent each datagram and never waits longer than it is told.
// It belongs to the network namespace of the thread that constructs it.
class UdpTestPeer {
public:
    struct Datagram {
        ByteString data;
        IPv4Address source;
        uint16_t sourcePort = 0;
    };

    // Raises std::runtime_error when the socket cannot be set up.
    UdpTestPeer(const std::string& interfaceName, uint16_t port);
    ~UdpTestPeer();
    UdpTestPeer(const UdpTestPeer&) = delete;
    UdpTestPeer& operator=(const UdpTestPeer&) = delete;

    // Raises std::runtime_error when the datagram is not sent whole.
    void SendTo(const ByteString& data, const IPv4Address& destination, uint16_t port);
    // Nothing when no datagram arrives within `timeout`.
    std::optional<Datagram> Receive(std::chrono::milliseconds timeout);

private:
    int handle = -1;
};
