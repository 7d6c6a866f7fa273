#pragma once

#include "engine/ServerPlatform.h"
#include "foundation/IPv4Address.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

class DatagramSocket;
class MessageProcessor;
class RawMessage;
class Settings;

// Owns the server's one UDP socket and its receive thread. Finds the local
// addresses once, chooses the listening address, binds port 67, turns every
// datagram into a DHCPMessage for the MessageProcessor (on the receive
// thread) and sends the replies the processor hands back. Knows nothing of
// DHCP itself.
//
// Threads: the main thread constructs, starts, stops and reads the addresses;
// the receive thread does everything from Receive to SendTo. The only state
// both touch while the thread runs is `listening`.
class Listener {
public:
    static constexpr uint16_t SERVER_PORT = 67;
    static constexpr uint16_t CLIENT_PORT = 68;
    // The largest UDP payload over IPv4: 65535 less 20 bytes of IP header and
    // 8 of UDP header. No DHCP limit; it only keeps long datagrams whole.
    static constexpr size_t RECEIVE_BUFFER_SIZE = 65507;

    // Detects the local addresses and chooses the listening address.
    // `platform` must outlive the listener. Raises CannotDetermineLocalAddresses,
    // InvalidListeningAddresses, NoAddressToListenOn (a missing lease file of
    // the chosen address is no failure).
    Listener(MessageProcessor* messageProcessor, Settings* settings, const ServerPlatform& platform);
    // Stops a started listener first.
    virtual ~Listener();

    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    // Precondition: not started. Takes a fresh socket, chooses the address
    // again, binds port 67 and starts the receive thread. Raises
    // CannotDetermineInterfaceName, CannotBindSocket, InvalidListeningAddresses,
    // NoAddressToListenOn; nothing is left open or running then.
    // `beforeReceiving`, when given, runs once the port is bound and before
    // the first datagram is read; what it raises leaves the port closed.
    void Start(const std::function<void()>& beforeReceiving = {});
    // Precondition: started. Ends the receive thread and releases the port;
    // returns once the message in hand, if any, has been handled. After a
    // receive error has ended listening from inside the thread, this only
    // collects the ended thread.
    void Stop();
    bool IsStarted() const { return started; }
    // False after a receive error even while still started.
    bool IsListening() const { return listening.load(); }

    IPv4Address GetListeningAddress() const { return listeningAddress; }
    const std::vector<IPv4Address>* GetAvailableListeningAddresses() const;
    bool IsPreferredAddressAvailable() const;

    // Receive thread only, while listening. Raise SendError, NotAllBytesSent.
    void SendBroadcast(const RawMessage& message);
    void SendUnicast(const RawMessage& message, const IPv4Address& address);
    // The same for a datagram built in place by the caller.
    void SendBroadcast(const uint8_t* data, size_t length);
    void SendUnicast(const uint8_t* data, size_t length, const IPv4Address& address);

private:
    void DetectListeningAddresses();
    void ChooseListeningAddress();
    void SetListeningAddress(const IPv4Address& address);
    void OpenSocket();
    void ListeningThread();
    void EndListeningAfterReceiveError();
    void Send(const uint8_t* data, size_t length, const IPv4Address& destination);

    MessageProcessor* messageProcessor;
    Settings* settings;
    const ServerPlatform& platform;
    IPv4Address listeningAddress;
    bool listeningAddressSet = false;
    // Invariant: no 127.x.x.x; filled once by the constructor.
    std::unique_ptr<std::vector<IPv4Address>> availableListeningAddresses;
    // Main thread only: Start has succeeded and Stop has not yet been called.
    bool started = false;
    // Written by both threads: Stop clears it before it wakes the receive
    // thread, so the thread can tell a requested stop from a receive error.
    std::atomic<bool> listening{false};
    std::unique_ptr<DatagramSocket> socket;
    std::thread receiveThread;
    std::array<uint8_t, RECEIVE_BUFFER_SIZE> receiveBuffer{};
};
