#include "support/FakeDatagramSocket.h"

#include "foundation/AppException.h"

#include <algorithm>

void FakeDatagramSocket::Network::Deliver(const ByteString& datagram)
{
    {
        std::lock_guard lock(mutex);
        incoming.push_back(datagram);
    }
    changed.notify_all();
}

void FakeDatagramSocket::Network::FailNextReceive()
{
    {
        std::lock_guard lock(mutex);
        receiveFailurePending = true;
    }
    changed.notify_all();
}

void FakeDatagramSocket::Network::SetSendFailure(std::optional<int32_t> code)
{
    std::lock_guard lock(mutex);
    sendFailure = code;
}

void FakeDatagramSocket::Network::SetOpenFailure(std::optional<int32_t> code)
{
    std::lock_guard lock(mutex);
    openFailure = code;
}

bool FakeDatagramSocket::Network::WaitUntilIdle(std::chrono::milliseconds timeout)
{
    std::unique_lock lock(mutex);
    return changed.wait_for(lock, timeout,
                            [this] { return incoming.empty() && !receiveFailurePending && receiverWaiting; });
}

bool FakeDatagramSocket::Network::WaitUntilClosed(std::chrono::milliseconds timeout)
{
    std::unique_lock lock(mutex);
    return changed.wait_for(lock, timeout, [this] { return !open; });
}

std::vector<FakeDatagramSocket::SentDatagram> FakeDatagramSocket::Network::TakeSent()
{
    std::lock_guard lock(mutex);
    std::vector<SentDatagram> taken;
    taken.swap(sent);
    return taken;
}

int FakeDatagramSocket::Network::GetOpenCount() const
{
    std::lock_guard lock(mutex);
    return openCount;
}

bool FakeDatagramSocket::Network::IsOpen() const
{
    std::lock_guard lock(mutex);
    return open;
}

IPv4Address FakeDatagramSocket::Network::GetOpenedAddress() const
{
    std::lock_guard lock(mutex);
    return openedAddress;
}

uint16_t FakeDatagramSocket::Network::GetOpenedPort() const
{
    std::lock_guard lock(mutex);
    return openedPort;
}

FakeDatagramSocket::~FakeDatagramSocket()
{
    Close();
}

void FakeDatagramSocket::Open(const IPv4Address& listeningAddress, uint16_t port)
{
    std::lock_guard lock(network.mutex);
    if (network.openFailure) {
        const int32_t code = *network.openFailure;
        network.openFailure.reset();
        throw AppException(code);
    }
    interrupted = false;
    opened = true;
    network.open = true;
    ++network.openCount;
    network.openedAddress = listeningAddress;
    network.openedPort = port;
}

std::optional<size_t> FakeDatagramSocket::Receive(uint8_t* buffer, size_t capacity)
{
    std::unique_lock lock(network.mutex);
    network.receiverWaiting = true;
    network.changed.notify_all();
    network.changed.wait(lock, [this] {
        return interrupted || network.receiveFailurePending || !network.incoming.empty();
    });
    network.receiverWaiting = false;
    if (interrupted) {
        return std::nullopt;
    }
    if (network.receiveFailurePending) {
        network.receiveFailurePending = false;
        throw AppException(AppException::ReceiveError);
    }
    const ByteString datagram = std::move(network.incoming.front());
    network.incoming.pop_front();
    const size_t length = std::min(capacity, datagram.size());
    std::copy_n(datagram.begin(), length, buffer);
    return length;
}

void FakeDatagramSocket::Interrupt()
{
    {
        std::lock_guard lock(network.mutex);
        interrupted = true;
    }
    network.changed.notify_all();
}

void FakeDatagramSocket::SendTo(const uint8_t* data, size_t length, const IPv4Address& destination, uint16_t port)
{
    std::lock_guard lock(network.mutex);
    if (network.sendFailure) {
        throw AppException(*network.sendFailure);
    }
    network.sent.push_back({ByteString(data, data + length), destination, port});
}

void FakeDatagramSocket::Close()
{
    {
        std::lock_guard lock(network.mutex);
        if (!opened) {
            return;
        }
        opened = false;
        network.open = false;
    }
    network.changed.notify_all();
}
