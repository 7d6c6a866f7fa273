#include "engine/Listener.h"

#include "config/Settings.h"
#include "engine/MessageProcessor.h"
#include "foundation/AppException.h"
#include "foundation/Precondition.h"
#include "platform/DatagramSocket.h"
#include "wire/DHCPMessage.h"
#include "wire/RawMessage.h"

#include <algorithm>
#include <exception>

namespace {

constexpr uint8_t LOOPBACK_FIRST_OCTET = 127;

bool IsLoopback(const IPv4Address& address)
{
    return address[0] == LOOPBACK_FIRST_OCTET;
}

bool CanListenOn(const IPv4Address& address)
{
    return !address.IsZero() && !IsLoopback(address);
}

const IPv4Address LIMITED_BROADCAST(255, 255, 255, 255);

} // namespace

Listener::Listener(MessageProcessor* messageProcessor, Settings* settings, const ServerPlatform& platform)
    : messageProcessor(messageProcessor), settings(settings), platform(platform)
{
    PRECONDITION(messageProcessor != nullptr);
    PRECONDITION(settings != nullptr);
    DetectListeningAddresses();
    try {
        ChooseListeningAddress();
    } catch (const AppException& exception) {
        // The chosen address has no lease file yet: a first run there.
        if (exception.GetCode() != AppException::FileNotExists) {
            throw;
        }
    }
}

Listener::~Listener()
{
    if (started) {
        Stop();
    }
}

void Listener::Start(const std::function<void()>& beforeReceiving)
{
    PRECONDITION(!started);
    OpenSocket();
    if (beforeReceiving) {
        try {
            beforeReceiving();
        } catch (...) {
            socket->Close();
            socket.reset();
            throw;
        }
    }
    // Set before the thread exists: the thread leaves at once if it finds it false.
    listening.store(true);
    try {
        receiveThread = std::thread(&Listener::ListeningThread, this);
    } catch (const std::exception&) {
        listening.store(false);
        socket->Close();
        socket.reset();
        throw;
    }
    started = true;
}

void Listener::Stop()
{
    PRECONDITION(started);
    listening.store(false);
    socket->Interrupt();
    receiveThread.join();
    socket->Close();
    socket.reset();
    started = false;
}

const std::vector<IPv4Address>* Listener::GetAvailableListeningAddresses() const
{
    PRECONDITION(availableListeningAddresses != nullptr);
    return availableListeningAddresses.get();
}

bool Listener::IsPreferredAddressAvailable() const
{
    const IPv4Address preferred = settings->GetPreferredListeningAddress();
    const auto& addresses = *availableListeningAddresses;
    return std::find(addresses.begin(), addresses.end(), preferred) != addresses.end();
}

void Listener::SendBroadcast(const RawMessage& message)
{
    Send(message.GetData(), message.GetLength(), LIMITED_BROADCAST);
}

void Listener::SendUnicast(const RawMessage& message, const IPv4Address& address)
{
    Send(message.GetData(), message.GetLength(), address);
}

void Listener::SendBroadcast(const uint8_t* data, size_t length)
{
    Send(data, length, LIMITED_BROADCAST);
}

void Listener::SendUnicast(const uint8_t* data, size_t length, const IPv4Address& address)
{
    Send(data, length, address);
}

void Listener::Send(const uint8_t* data, size_t length, const IPv4Address& destination)
{
    PRECONDITION(socket != nullptr);
    socket->SendTo(data, length, destination, CLIENT_PORT);
}

void Listener::DetectListeningAddresses()
{
    PRECONDITION(availableListeningAddresses == nullptr);
    auto addresses = std::make_unique<std::vector<IPv4Address>>();
    for (const IPv4Address& address : platform.detectLocalAddresses()) {
        if (!IsLoopback(address)) {
            addresses->push_back(address);
        }
    }
    availableListeningAddresses = std::move(addresses);
}

void Listener::ChooseListeningAddress()
{
    if (IsPreferredAddressAvailable()) {
        SetListeningAddress(settings->GetPreferredListeningAddress());
    }
    if (!listeningAddressSet) {
        if (availableListeningAddresses->empty()) {
            throw AppException(AppException::NoAddressToListenOn);
        }
        const IPv4Address first = availableListeningAddresses->front();
        // An interface may report 0.0.0.0; it can't become the preferred address.
        if (!CanListenOn(first)) {
            throw AppException(AppException::InvalidListeningAddresses);
        }
        // Taken without marking it set: a later choice still prefers the
        // settings' address when that becomes available.
        listeningAddress = first;
    }
    settings->SetPreferredListeningAddress(listeningAddress);
}

void Listener::SetListeningAddress(const IPv4Address& address)
{
    if (!CanListenOn(address)) {
        throw AppException(AppException::InvalidListeningAddresses);
    }
    listeningAddress = address;
    listeningAddressSet = true;
}

void Listener::OpenSocket()
{
    std::unique_ptr<DatagramSocket> freshSocket = platform.createSocket();
    PRECONDITION(freshSocket != nullptr);
    ChooseListeningAddress();
    freshSocket->Open(listeningAddress, SERVER_PORT);
    socket = std::move(freshSocket);
}

void Listener::ListeningThread()
{
    while (listening.load()) {
        try {
            const std::optional<size_t> length = socket->Receive(receiveBuffer.data(), receiveBuffer.size());
            if (!length) {
                break; // Interrupted: Stop has cleared `listening`.
            }
            // Parsed straight from the buffer: the message copies what it keeps.
            const DHCPMessage message(receiveBuffer.data(), *length);
            messageProcessor->ProcessMessage(message);
        } catch (const AppException& exception) {
            // Whatever a client sends ends in silence; only the socket failing
            // ends the loop.
            if (exception.GetCode() == AppException::ReceiveError) {
                EndListeningAfterReceiveError();
                break;
            }
        } catch (const std::exception&) {
            // Memory exhausted for one message: drop it like a bad datagram
            // rather than end the process from this thread.
        }
    }
}

void Listener::EndListeningAfterReceiveError()
{
    // When Stop cleared the flag first, the failure was its doing and Stop
    // closes the socket after the join; otherwise listening ends here, without
    // waiting for this very thread.
    if (listening.exchange(false)) {
        socket->Close();
    }
}
