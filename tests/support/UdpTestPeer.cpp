#include "support/UdpTestPeer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
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
    try {
        const int enable = 1;
        const sockaddr_in any = SocketAddress(IPv4Address(), port);
        Require(setsockopt(handle, SOL_SOCKET, SO_BINDTODEVICE, interfaceName.c_str(),
                           static_cast<socklen_t>(interfaceName.size())) == 0,
                "SO_BINDTODEVICE " + interfaceName);
        Require(setsockopt(handle, SOL_SOCKET, SO_BROADCAST, &enable, sizeof(enable)) == 0, "SO_BROADCAST");
        Require(bind(handle, reinterpret_cast<const sockaddr*>(&any), sizeof(any)) == 0, "bind");
    } catch (...) {
        close(handle);
        throw;
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
    // A zero time-out would mean no time-out at all.
    const auto microseconds = std::max<int64_t>(1, std::chrono::microseconds(timeout).count());
    const timeval wait{static_cast<time_t>(microseconds / 1'000'000),
                       static_cast<suseconds_t>(microseconds % 1'000'000)};
    Require(setsockopt(handle, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof(wait)) == 0, "SO_RCVTIMEO");
    Datagram datagram;
    datagram.data.resize(65507); // the largest UDP payload
    sockaddr_in sender{};
    socklen_t senderLength = sizeof(sender);
    ssize_t received = -1;
    do {
        received = recvfrom(handle, datagram.data.data(), datagram.data.size(), 0,
                            reinterpret_cast<sockaddr*>(&sender), &senderLength);
    } while (received < 0 && errno == EINTR);
    if (received < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
        return std::nullopt;
    }
    Require(received >= 0, "recvfrom");
    datagram.data.resize(static_cast<size_t>(received));
    datagram.source = IPv4Address::FromUint32(ntohl(sender.sin_addr.s_addr));
    datagram.sourcePort = ntohs(sender.sin_port);
    return datagram;
}
