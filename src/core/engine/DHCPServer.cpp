#include "engine/DHCPServer.h"

#include "allocation/AddressManager.h"
#include "allocation/LeaseJournal.h"
#include "config/Settings.h"
#include "engine/Listener.h"
#include "engine/MessageProcessor.h"
#include "engine/TransactionManager.h"
#include "foundation/AppException.h"
#include "foundation/Precondition.h"
#include "foundation/Tools.h"
#include "log/LogManager.h"

#include <optional>

namespace {

// The project's version, handed in by the build so that the window, "--version"
// and the package all name the same one.
constexpr int MAJOR_VERSION = TARNVEL_VERSION_MAJOR;
constexpr int MINOR_VERSION = TARNVEL_VERSION_MINOR;

} // namespace

DHCPServer::DHCPServer() : DHCPServer(ServerPlatform::Linux()) {}

DHCPServer::DHCPServer(ServerPlatform serverPlatform) : platform(std::move(serverPlatform))
{
    PRECONDITION(platform.detectLocalAddresses && platform.createSocket && platform.canBindPrivilegedPort);
    // Asked first, so that a missing privilege is reported as such instead
    // of as a failed bind at the first start.
    if (!platform.canBindPrivilegedPort()) {
        throw AppException(AppException::NotAdministrator);
    }
    // The order is fixed by who needs whom.
    settings = std::make_unique<Settings>();
    transactionManager = std::make_unique<TransactionManager>(platform.clock);
    addressManager = std::make_unique<AddressManager>(settings.get(), transactionManager.get(), platform.clock);
    settings->SetAddressManager(addressManager.get());
    // Before the listener: choosing its address loads that address's lease file.
    settings->SetLeasesDirectory(platform.leasesDirectory);
    logManager = std::make_unique<LogManager>(settings.get(), platform.clock);
    messageProcessor = std::make_unique<MessageProcessor>(addressManager.get(), settings.get(),
                                                          transactionManager.get(), logManager.get());
    listener = std::make_unique<Listener>(messageProcessor.get(), settings.get(), platform);
    messageProcessor->SetListener(listener.get());

    // "settings.cfg" and the default "log.txt" resolve in the data directory
    // from here on.
    const std::string dataDirectory =
        platform.dataDirectory.empty() ? Tools::GetDataDirectory() : platform.dataDirectory;
    if (!Tools::DirectoryExists(dataDirectory)) {
        Tools::CreateDirectory(dataDirectory);
    }
    Tools::SetCurrentDirectory(dataDirectory);
}

DHCPServer::~DHCPServer()
{
    if (running) {
        Stop();
    }
    listener.reset();
    messageProcessor.reset();
    transactionManager.reset();
    // Saves the leases once more.
    addressManager.reset();
    settings.reset();
    logManager.reset();
}

void DHCPServer::Start()
{
    PRECONDITION(!running);
    if (!settings->IsValid()) {
        throw AppException(AppException::ServerSettingsNotValid);
    }
    // Choosing the listening address loads that address's lease file; the
    // journal beside it is locked and replayed before anything is received.
    try {
        listener->Start([this] { OpenLeaseJournal(); });
    } catch (...) {
        if (leaseJournal) {
            addressManager->AttachJournal(nullptr);
            leaseJournal.reset(); // Stays on disk for the next start.
        }
        throw;
    }
    const IPv4Address listeningAddress = listener->GetListeningAddress();
    if (settings->GetLoggingEnabled()) {
        logManager->AddLogItem(ServerStart, std::nullopt, listeningAddress, false);
        logManager->StartSavingThread();
    }
    running = true;
}

void DHCPServer::Stop()
{
    PRECONDITION(running);
    // After a receive error the listener has already stopped listening; this
    // then only collects its ended thread. When it returns, no message is
    // being handled.
    listener->Stop();
    if (settings->GetLoggingEnabled()) {
        logManager->AddLogItem(ServerStop, std::nullopt, std::nullopt, false);
    }
    // Asked of the thread, not of the setting: logging may have been switched
    // off while the server ran.
    if (logManager->IsSavingThreadRunning()) {
        logManager->StopSavingThread();
    }
    // A compaction under way ends before the save.
    leaseJournal->StopBackground();
    addressManager->AttachJournal(nullptr);
    leaseJournal->Finish(addressManager->TrySaveLeases());
    leaseJournal.reset();
    running = false;
}

void DHCPServer::OpenLeaseJournal()
{
    leaseJournal = LeaseJournal::Open(*addressManager, storageWarnings);
}

std::vector<StorageWarnings::Warning> DHCPServer::TakeStorageWarnings()
{
    return storageWarnings.Take();
}

Settings* DHCPServer::GetSettings()
{
    PRECONDITION(settings != nullptr);
    return settings.get();
}

AddressManager* DHCPServer::GetAddressManager()
{
    PRECONDITION(addressManager != nullptr);
    return addressManager.get();
}

LogManager* DHCPServer::GetLogManager()
{
    PRECONDITION(logManager != nullptr);
    return logManager.get();
}

const std::vector<IPv4Address>* DHCPServer::GetAvailableListeningAddresses() const
{
    return listener->GetAvailableListeningAddresses();
}

bool DHCPServer::IsPreferredAddressAvailable() const
{
    return listener->IsPreferredAddressAvailable();
}

IPv4Address DHCPServer::GetListeningAddress() const
{
    return listener->GetListeningAddress();
}

std::string DHCPServer::GetVersion()
{
    return std::to_string(MAJOR_VERSION) + "." + std::to_string(MINOR_VERSION);
}
