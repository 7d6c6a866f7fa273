#pragma once

#include "engine/ServerPlatform.h"
#include "foundation/IPv4Address.h"

#include <memory>
#include <string>
#include <vector>

class AddressManager;
class Listener;
class LogManager;
class MessageProcessor;
class Settings;
class TransactionManager;

// The one object that the desktop application holds: builds the engine's
// parts in dependency order, wires them, and starts and stops them as a whole.
// All operations are called on the main thread.
class DHCPServer {
public:
    // Builds everything on the real machine: detects the local addresses,
    // chooses the listening address and makes the data directory the working
    // directory. Raises CannotDetermineLocalAddresses, InvalidListeningAddresses,
    // NoAddressToListenOn, NotAdministrator.
    DHCPServer();
    explicit DHCPServer(ServerPlatform platform);
    // Stops a running server first; the address manager saves its leases.
    ~DHCPServer();

    DHCPServer(const DHCPServer&) = delete;
    DHCPServer& operator=(const DHCPServer&) = delete;

    // Precondition: not running. Raises ServerSettingsNotValid, CannotBindSocket,
    // CannotDetermineInterfaceName, InvalidListeningAddresses, NoAddressToListenOn;
    // the server stays stopped then.
    void Start();
    // Precondition: running.
    void Stop();
    bool IsRunning() const { return running; }

    Settings* GetSettings();
    AddressManager* GetAddressManager();
    LogManager* GetLogManager();
    const std::vector<IPv4Address>* GetAvailableListeningAddresses() const;
    bool IsPreferredAddressAvailable() const;
    // The address the listener has chosen (and binds at the next start).
    IPv4Address GetListeningAddress() const;

    // "1.0"
    static std::string GetVersion();

private:
    bool running = false;
    ServerPlatform platform;
    std::unique_ptr<Settings> settings;
    std::unique_ptr<TransactionManager> transactionManager;
    std::unique_ptr<AddressManager> addressManager;
    std::unique_ptr<LogManager> logManager;
    std::unique_ptr<MessageProcessor> messageProcessor;
    std::unique_ptr<Listener> listener;
};
