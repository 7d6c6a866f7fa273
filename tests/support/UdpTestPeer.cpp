#include "support/UdpTestPeer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace {

void Require(bool condition, const std::string& what)
{
    if (!condition) {
        throw std::runtime_error(what + ": " + std::strerror(errno));
    }
}

sockaddr_in SocketAddress(const IPv4Address& address, uint16_t port)
{
    sockaddr_in socketAddress{};
    socketAddress.sin_family = AF_INET;
    socketAddress.sin_port = htons(port);
    socketAddress.sin_addr.s_addr = htonl(address.ToUint32());
    return socketAddress;
}

} // namespace

UdpTestPeer::UdpTestPeer(const std::string& interfaceName, uint16_t port)
    : handle(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, IPPROTO_UDP))
{
    Require(handle >= 0, "socket");
    const int enable = 1;
    const sockaddr_in any = SocketAddress(IPv4Address(), port);
    if (setsockopt(handle, SOL_SOCKET, SO_BINDTODEVICE, interfaceName.c_str(),
                   static_cast<socklen_t>(interfaceName.size())) != 0 ||
        setsockopt(handle, SOL_SOCKET, SO_BROADCAST, &enable, sizeof(enable)) != 0 ||
        bind(handle, reinterpret_cast<const sockaddr*>(&any), sizeof(any)) != 0) {
        const int error = errno;
        close(handle);
        errno = error;
        Require(false, "UDP peer on " + interfaceName + " port " + std::to_string(port));
    }
}

UdpTestPeer::~UdpTestPeer()
{
    close(handle);
}

void UdpTestPeer::SendTo(const ByteString& data, const IPv4Address& destination, uint16_t port)
{
    const sockaddr_in address = SocketAddress(destination, port);
    const ssize_t sent =
        sendto(handle, data.data(), data.size(), 0, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
    Require(sent == static_cast<ssize_t>(data.size()), "sendto " + destination.ToString());
}

std::optional<UdpTestPeer::Datagram> UdpTestPeer::Receive(std::chrono::milliseconds timeout)
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
    Require(received >= 0, "recvfrom");
    datagram.data.resize(static_cast<size_t>(received));
    datagram.source = IPv4Address::FromUint32(ntohl(sender.sin_addr.s_addr));
    datagram.sourcePort = ntohs(sender.sin_port);
    return datagram;
}
