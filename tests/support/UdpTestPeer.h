#pragma once

#include "foundation/ByteString.h"
#include "foundation/IPv4Address.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <optional>
#include <stdexcept>
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
    UdpTestPeer(const std::string& interfaceName, uint16_t port)
        : handle(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, IPPROTO_UDP))
    {
        const int enable = 1;
        const sockaddr_in any = SocketAddress(IPv4Address(), port);
        if (handle < 0 ||
            setsockopt(handle, SOL_SOCKET, SO_BINDTODEVICE, interfaceName.c_str(),
                       static_cast<socklen_t>(interfaceName.size())) != 0 ||
            setsockopt(handle, SOL_SOCKET, SO_BROADCAST, &enable, sizeof(enable)) != 0 ||
            bind(handle, reinterpret_cast<const sockaddr*>(&any), sizeof(any)) != 0) {
            const std::string reason = std::strerror(errno);
            close(handle);
            throw std::runtime_error("UDP peer on " + interfaceName + ": " + reason);
        }
    }
    ~UdpTestPeer() { close(handle); }
    UdpTestPeer(const UdpTestPeer&) = delete;
    UdpTestPeer& operator=(const UdpTestPeer&) = delete;

    // Raises std::runtime_error when the datagram is not sent whole.
    void SendTo(const ByteString& data, const IPv4Address& destination, uint16_t port)
    {
        const sockaddr_in address = SocketAddress(destination, port);
        if (sendto(handle, data.data(), data.size(), 0, reinterpret_cast<const sockaddr*>(&address),
                   sizeof(address)) != static_cast<ssize_t>(data.size())) {
            throw std::runtime_error("sendto " + destination.ToString() + ": " + std::strerror(errno));
        }
    }

    // Nothing when no datagram arrives within `timeout`.
    std::optional<Datagram> Receive(std::chrono::milliseconds timeout)
    {
        pollfd waiting{handle, POLLIN, 0};
        if (poll(&waiting, 1, static_cast<int>(timeout.count())) <= 0) {
            return std::nullopt;
        }
        Datagram datagram{ByteString(65507), IPv4Address(), 0}; // the largest UDP payload
        sockaddr_in sender{};
        socklen_t senderLength = sizeof(sender);
        const ssize_t received = recvfrom(handle, datagram.data.data(), datagram.data.size(), 0,
                                          reinterpret_cast<sockaddr*>(&sender), &senderLength);
        if (received < 0) {
            throw std::runtime_error(std::string("recvfrom: ") + std::strerror(errno));
        }
        datagram.data.resize(static_cast<size_t>(received));
        datagram.source = IPv4Address::FromUint32(ntohl(sender.sin_addr.s_addr));
        datagram.sourcePort = ntohs(sender.sin_port);
        return datagram;
    }

private:
    static sockaddr_in SocketAddress(const IPv4Address& address, uint16_t port)
    {
        sockaddr_in socketAddress{};
        socketAddress.sin_family = AF_INET;
        socketAddress.sin_port = htons(port);
        socketAddress.sin_addr.s_addr = htonl(address.ToUint32());
        return socketAddress;
    }

    int handle = -1;
};
