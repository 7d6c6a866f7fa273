#include "support/FakeDatagramSocket.h"

#include "foundation/AppException.h"

#include <algorithm>
#include <utility>

void FakeDatagramSocket::Open(const IPv4Address& listeningAddress, uint16_t port)
{
    std::lock_guard lock(network.mutex);
    if (const auto failure = std::exchange(network.openFailure, std::nullopt)) {
        throw AppException(*failure);
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
    if (std::exchange(network.receiveFailurePending, false)) {
        throw AppException(AppException::ReceiveError);
    }
    const ByteString datagram = std::move(network.incoming.front());
    network.incoming.pop_front();
    network.holding = network.holdTaken;
    network.changed.notify_all();
    network.changed.wait(lock, [this] { return !network.holdTaken; });
    network.holding = false;
    const size_t length = std::min(capacity, datagram.size());
    std::copy_n(datagram.begin(), length, buffer);
    return length;
}

void FakeDatagramSocket::Interrupt()
{
    network.Change([this] {
        interrupted = true;
        ++network.interruptCount;
    });
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
    network.Change([this] {
        network.open = network.open && !opened;
        opened = false;
    });
}
