#include "platform/UdpSocket.h"

#include "foundation/AppException.h"
#include "foundation/Precondition.h"
#include "platform/LocalAddresses.h"

#include <arpa/inet.h>
#include <cerrno>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <string>

namespace {

// Closes the descriptor unless it is released; keeps Open free of leaks when
// one of its steps fails half-way.
class OwnedDescriptor {
public:
    explicit OwnedDescriptor(int handle) : handle(handle) {}
    ~OwnedDescriptor()
    {
        if (handle >= 0) {
            close(handle);
        }
    }
    OwnedDescriptor(const OwnedDescriptor&) = delete;
    OwnedDescriptor& operator=(const OwnedDescriptor&) = delete;

    int Get() const { return handle; }
    int Release()
    {
        const int released = handle;
        handle = -1;
        return released;
    }

private:
    int handle;
};

[[noreturn]] void FailToBind()
{
    throw AppException(AppException::CannotBindSocket);
}

void SetIntegerOption(int handle, int option, int value)
{
    if (setsockopt(handle, SOL_SOCKET, option, &value, sizeof(value)) != 0) {
        FailToBind();
    }
}

// SO_RCVBUFFORCE goes beyond net.core.rmem_max but needs CAP_NET_ADMIN; without
// it the ordinary option is capped by rmem_max. A smaller buffer only means
// that a long burst may lose datagrams, which clients retry, so neither
// failure stops the server.
void EnlargeReceiveBuffer(int handle)
{
    const int size = UdpSocket::RECEIVE_BUFFER_BYTES;
    if (setsockopt(handle, SOL_SOCKET, SO_RCVBUFFORCE, &size, sizeof(size)) != 0) {
        setsockopt(handle, SOL_SOCKET, SO_RCVBUF, &size, sizeof(size));
    }
}

void BindToDevice(int handle, const std::string& interfaceName)
{
    // Must come before bind: the kernel checks port conflicts per device then.
    if (setsockopt(handle, SOL_SOCKET, SO_BINDTODEVICE, interfaceName.c_str(),
                   static_cast<socklen_t>(interfaceName.size())) != 0) {
        FailToBind();
    }
}

void BindToAnyAddress(int handle, uint16_t port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    if (bind(handle, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        FailToBind();
    }
}

sockaddr_in SocketAddressOf(const IPv4Address& address, uint16_t port)
{
    sockaddr_in socketAddress{};
    socketAddress.sin_family = AF_INET;
    socketAddress.sin_port = htons(port);
    socketAddress.sin_addr.s_addr = htonl(address.ToUint32());
    return socketAddress;
}

} // namespace

UdpSocket::~UdpSocket()
{
    Close();
    const int event = wakeUpEvent.exchange(-1);
    if (event >= 0) {
        close(event);
    }
}

void UdpSocket::Open(const IPv4Address& listeningAddress, uint16_t port)
{
    PRECONDITION(!IsOpen());
    const std::string interfaceName = LocalAddresses::FindInterfaceName(listeningAddress);
    EnsureWakeUpEvent();
    ClearWakeUpEvent();
    interrupted.store(false);
    batch.Clear();
    mayHoldMore = false;

    OwnedDescriptor handle(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, IPPROTO_UDP));
    if (handle.Get() < 0) {
        FailToBind();
    }
    BindToDevice(handle.Get(), interfaceName);
    SetIntegerOption(handle.Get(), SO_BROADCAST, 1);
    EnlargeReceiveBuffer(handle.Get());
    BindToAnyAddress(handle.Get(), port);

    socketHandle = handle.Release();
    sourceAddress = listeningAddress;
}

std::optional<size_t> UdpSocket::Receive(uint8_t* buffer, size_t capacity)
{
    PRECONDITION(IsOpen());
    PRECONDITION(buffer != nullptr || capacity == 0);
    for (;;) {
        // Checked first: once interrupted, waiting datagrams are left alone.
        if (interrupted.load()) {
            return std::nullopt;
        }
        if (!batch.IsEmpty()) {
            return batch.TakeNext(buffer, capacity);
        }
        if (!mayHoldMore && !WaitForDatagramOrInterrupt()) {
            continue;
        }
        // Without waiting: poll may report a datagram that the kernel then
        // drops for a bad checksum, and a blocking read would hang past an
        // Interrupt.
        const int received = batch.Fill(socketHandle);
        mayHoldMore = received > 1;
        if (received < 0 && errno != EINTR && errno != EAGAIN && errno != EWOULDBLOCK) {
            throw AppException(AppException::ReceiveError);
        }
    }
}

bool UdpSocket::WaitForDatagramOrInterrupt()
{
    pollfd waitFor[2] = {
        {wakeUpEvent.load(), POLLIN, 0},
        {socketHandle, POLLIN, 0},
    };
    if (poll(waitFor, 2, -1) < 0) {
        if (errno == EINTR) {
            return false;
        }
        throw AppException(AppException::ReceiveError);
    }
    // An Interrupt is seen through `interrupted` at the top of the loop.
    return waitFor[0].revents == 0 && waitFor[1].revents != 0;
}

void UdpSocket::Interrupt()
{
    interrupted.store(true);
    const int event = wakeUpEvent.load();
    if (event < 0) {
        return; // Never opened, so no Receive can be waiting.
    }
    const uint64_t increment = 1;
    while (write(event, &increment, sizeof(increment)) < 0 && errno == EINTR) {
    }
}

void UdpSocket::SendTo(const uint8_t* data, size_t length, const IPv4Address& destination, uint16_t port)
{
    PRECONDITION(IsOpen());
    PRECONDITION(data != nullptr || length == 0);
    sockaddr_in destinationAddress = SocketAddressOf(destination, port);
    iovec payload{const_cast<uint8_t*>(data), length};

    // IP_PKTINFO with ipi_spec_dst chooses the source address of this one
    // datagram; the interface stays the one the socket is bound to.
    union {
        cmsghdr alignment;
        char bytes[CMSG_SPACE(sizeof(in_pktinfo))];
    } control{};
    msghdr message{};
    message.msg_name = &destinationAddress;
    message.msg_namelen = sizeof(destinationAddress);
    message.msg_iov = &payload;
    message.msg_iovlen = 1;
    message.msg_control = control.bytes;
    message.msg_controllen = sizeof(control.bytes);
    cmsghdr* header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = IPPROTO_IP;
    header->cmsg_type = IP_PKTINFO;
    header->cmsg_len = CMSG_LEN(sizeof(in_pktinfo));
    in_pktinfo source{};
    source.ipi_spec_dst.s_addr = htonl(sourceAddress.ToUint32());
    std::memcpy(CMSG_DATA(header), &source, sizeof(source));

    ssize_t sent = 0;
    do {
        sent = sendmsg(socketHandle, &message, MSG_NOSIGNAL);
    } while (sent < 0 && errno == EINTR);
    if (sent < 0) {
        throw AppException(AppException::SendError);
    }
    if (static_cast<size_t>(sent) < length) {
        throw AppException(AppException::NotAllBytesSent);
    }
}

void UdpSocket::Close()
{
    if (socketHandle >= 0) {
        close(socketHandle);
        socketHandle = -1;
    }
}

void UdpSocket::EnsureWakeUpEvent()
{
    if (wakeUpEvent.load() >= 0) {
        return;
    }
    const int event = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (event < 0) {
        FailToBind();
    }
    wakeUpEvent.store(event);
}

void UdpSocket::ClearWakeUpEvent()
{
    uint64_t count = 0;
    while (read(wakeUpEvent.load(), &count, sizeof(count)) < 0 && errno == EINTR) {
    }
}
