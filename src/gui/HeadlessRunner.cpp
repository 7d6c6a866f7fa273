#include "HeadlessRunner.h"

#include "ServiceNotifier.h"

#include "config/Settings.h"
#include "engine/DHCPServer.h"
#include "engine/ServerPlatform.h"
#include "foundation/AppException.h"
#include "foundation/Tools.h"

#include <pthread.h>
#include <sysexits.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace {

constexpr const char* SETTINGS_FILE = "settings.cfg";
constexpr const char* WARNING = "warning";
constexpr const char* ERROR = "error";

// One line in one write, so that it stays whole in a journal.
void Report(const char* kind, int32_t code, const std::string& detail = std::string())
{
    std::string line = std::string("quorvy: ") + kind + ' ' + std::to_string(code) + ": " +
                       AppException::GetMessageForCode(code);
    if (!detail.empty()) {
        line += ": " + detail;
    }
    line += '\n';
    std::fputs(line.c_str(), stderr);
}

// What a failure to build or start the server means to a service manager.
int StatusForCode(int32_t code)
{
    switch (code) {
    case AppException::NotAdministrator:
        return EX_NOPERM;
    case AppException::ServerSettingsNotValid:
    case AppException::CannotGetKnownDirectory:
        return EX_CONFIG;
    case AppException::CannotDetermineLocalAddresses:
    case AppException::InvalidListeningAddresses:
    case AppException::NoAddressToListenOn:
    case AppException::CannotBindSocket:
    case AppException::CannotDetermineInterfaceName:
        return EX_UNAVAILABLE;
    default:
        return EXIT_FAILURE;
    }
}

sigset_t ClosingSignals()
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGHUP);
    return signals;
}

} // namespace

HeadlessRunner::HeadlessRunner(std::optional<std::string> dataDirectory) : dataDirectory(std::move(dataDirectory)) {}

int HeadlessRunner::Run()
{
    if (dataDirectory && dataDirectory->empty()) {
        std::fputs("quorvy: --data-dir needs the path of a folder\n", stderr);
        return EX_USAGE;
    }
    // Blocked before the server makes its threads, which inherit the mask: a
    // signal, also one during the start, then waits for sigwait in Serve.
    const sigset_t closingSignals = ClosingSignals();
    pthread_sigmask(SIG_BLOCK, &closingSignals, nullptr);
    try {
        return Serve(closingSignals);
    } catch (const AppException& exception) {
        const int32_t code = exception.GetCode();
        Report(ERROR, code, code == AppException::NotAdministrator ? "port 67 needs root or CAP_NET_BIND_SERVICE" : "");
        return StatusForCode(code);
    }
}

int HeadlessRunner::Serve(const sigset_t& closingSignals)
{
    ServerPlatform platform = ServerPlatform::Linux();
    if (dataDirectory) {
        // Made absolute while the working directory is still the caller's.
        std::error_code error;
        const std::filesystem::path absolute = std::filesystem::absolute(*dataDirectory, error);
        const std::string folder = error ? *dataDirectory : absolute.lexically_normal().string();
        platform.dataDirectory = folder;
        platform.leasesDirectory = folder;
    } else {
        platform.dataDirectory = Tools::GetDataDirectory();
    }
    // Asked before the server exists: building it chooses a listening
    // address, which this run may never use.
    settingsPath = Tools::AppendToPath(platform.dataDirectory, SETTINGS_FILE);
    if (!Tools::FileExists(settingsPath)) {
        Report(ERROR, AppException::FileNotExists, settingsPath);
        return EX_CONFIG;
    }

    DHCPServer server(std::move(platform));
    if (const int status = LoadSettings(server); status != EX_OK) {
        return status;
    }
    if (const int status = CheckListeningAddress(server); status != EX_OK) {
        return status;
    }
    server.Start();
    ServiceNotifier::Ready();

    int signalNumber = 0;
    while (sigwait(&closingSignals, &signalNumber) != 0) {
    }
    ServiceNotifier::Stopping();
    server.Stop();
    return EX_OK;
}

int HeadlessRunner::LoadSettings(DHCPServer& server) const
{
    try {
        server.GetSettings()->LoadWithoutWriting(settingsPath);
    } catch (const AppException& exception) {
        if (exception.GetCode() != AppException::SettingsFilePartlyLoaded) {
            Report(ERROR, exception.GetCode(), settingsPath);
            return EX_CONFIG;
        }
        Report(WARNING, exception.GetCode(), settingsPath);
    }
    return EX_OK;
}

int HeadlessRunner::CheckListeningAddress(DHCPServer& server) const
{
    // The listener binds the preferred address when it is available and falls
    // back to another one otherwise; this run refuses the fallback.
    const IPv4Address preferred = server.GetSettings()->GetPreferredListeningAddress();
    if (preferred.IsZero()) {
        Report(ERROR, AppException::ServerSettingsNotValid, "no PreferredListeningAddress in " + settingsPath);
        return EX_CONFIG;
    }
    if (!server.IsPreferredAddressAvailable()) {
        Report(ERROR, AppException::CannotDetermineInterfaceName, "no interface has " + preferred.ToString());
        return EX_UNAVAILABLE;
    }
    return EX_OK;
}
