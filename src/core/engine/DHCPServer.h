#pragma once

#include "allocation/StorageWarnings.h"
#include "engine/ServerPlatform.h"
#include "foundation/IPv4Address.h"

#include <memory>
#include <string>
#include <vector>

class AddressManager;
class LeaseJournal;
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
    // CannotDetermineInterfaceName, InvalidListeningAddresses, NoAddressToListenOn,
    // LeaseFileInUse (another process serves from the same lease file); the
    // server stays stopped then. Once the port is bound, the lease journal is
    // locked and replayed before the first datagram is read.
    void Start();
    // Precondition: running. Saves the lease file and, when that worked,
    // removes the journal.
    void Stop();
    bool IsRunning() const { return running; }

    Settings* GetSettings();
    AddressManager* GetAddressManager();
    LogManager* GetLogManager();
    const std::vector<IPv4Address>* GetAvailableListeningAddresses() const;
    bool IsPreferredAddressAvailable() const;
    // The address the listener has chosen (and binds at the next start).
    IPv4Address GetListeningAddress() const;

    // Problems with the lease files since the last call, oldest first: for the
    // window to show. Never blocks on the engine's threads for long.
    std::vector<StorageWarnings::Warning> TakeStorageWarnings();

    // "1.0"
    static std::string GetVersion();

private:
    // Locks the journal of the lease file in use, redoes what it holds and
    // starts it afresh; raises LeaseFileInUse.
    void OpenLeaseJournal();

    bool running = false;
    ServerPlatform platform;
    std::unique_ptr<Settings> settings;
    std::unique_ptr<TransactionManager> transactionManager;
    std::unique_ptr<AddressManager> addressManager;
    std::unique_ptr<LogManager> logManager;
    std::unique_ptr<MessageProcessor> messageProcessor;
    std::unique_ptr<Listener> listener;
    StorageWarnings storageWarnings;
    std::unique_ptr<LeaseJournal> leaseJournal; // while running
};
