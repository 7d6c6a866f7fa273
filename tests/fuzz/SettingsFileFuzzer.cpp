// Feeds arbitrary bytes to the settings file reader, wired as the server wires
// it. Whatever the reader leaves behind must be a model that Save writes and
// Load reads back unchanged.
#include "allocation/AddressManager.h"
#include "config/Settings.h"
#include "config/SettingsFile.h"
#include "engine/TransactionManager.h"
#include "foundation/AppException.h"
#include "foundation/Tools.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>

#include <unistd.h>

namespace {

// One folder for each process: parallel fuzzing jobs (and root in CI) never
// share files.
std::string workFolder;

void RemoveWorkFolder()
{
    std::error_code ignored;
    std::filesystem::remove_all(workFolder, ignored);
}

struct Server {
    Server() : addressManager(&settings, &transactionManager)
    {
        addressManager.SetLeasesFilePath(workFolder + "/leases.dat");
        settings.SetAddressManager(&addressManager);
    }

    int Load(const std::string& path)
    {
        try {
            settings.Load(path);
        } catch (const AppException& exception) {
            return exception.GetCode();
        }
        return -1;
    }

    Settings settings;
    TransactionManager transactionManager;
    AddressManager addressManager;
};

void Require(bool condition, const char* what)
{
    if (!condition) {
        std::fprintf(stderr, "settings round trip broken: %s\n", what);
        std::abort();
    }
}

void RequireSame(const Server& a, const Server& b)
{
    const Settings& x = a.settings;
    const Settings& y = b.settings;
    Require(x.GetPoolStartAddress() == y.GetPoolStartAddress(), "pool start");
    Require(x.GetPoolEndAddress() == y.GetPoolEndAddress(), "pool end");
    Require(x.GetSubnetMask() == y.GetSubnetMask(), "mask");
    Require(x.GetDefaultGateway() == y.GetDefaultGateway(), "gateway");
    Require(x.GetDNSAddress1() == y.GetDNSAddress1(), "dns 1");
    Require(x.GetDNSAddress2() == y.GetDNSAddress2(), "dns 2");
    Require(x.GetLeaseDuration() == y.GetLeaseDuration(), "lease duration");
    Require(x.GetPreferredListeningAddress() == y.GetPreferredListeningAddress(), "preferred address");
    Require(x.GetAdditionalOptions() == y.GetAdditionalOptions(), "options");
    Require(x.GetMinimizeToSystemTray() == y.GetMinimizeToSystemTray(), "tray");
    Require(x.GetLoggingEnabled() == y.GetLoggingEnabled(), "logging");
    Require(x.GetLogIgnoredDHCPMessages() == y.GetLogIgnoredDHCPMessages(), "ignored messages");
    // Cleaning a path drops a later ':' but folds only slashes that stood side
    // by side before, so "a/:/b" reads as "a//b" and is written as "a/b". A
    // second cleaning changes nothing more.
    Require(Tools::SanitizePath(x.GetLogFilePath()) == y.GetLogFilePath(), "log path");
    for (int eventType = 0; eventType < EVENT_TYPE_COUNT; ++eventType) {
        Require(x.GetLogEventEnabled(eventType) == y.GetLogEventEnabled(eventType), "event flag");
    }
    Require(a.addressManager.GetReservationCount() == b.addressManager.GetReservationCount(), "reservation count");
    for (size_t i = 0; i < a.addressManager.GetReservationCount(); ++i) {
        const AddressReservation r = a.addressManager.GetReservation(i);
        const AddressReservation s = b.addressManager.GetReservation(i);
        Require(r.GetHardwareAddress() == s.GetHardwareAddress() && r.GetIPAddress() == s.GetIPAddress(),
                "reservation");
    }
}

bool WriteInput(const std::string& path, const uint8_t* data, size_t size)
{
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
    file.close();
    return !file.fail();
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    // Every save syncs to disk; TMPDIR may point at a memory file system to
    // run faster.
    const char* base = std::getenv("TMPDIR");
    std::string pattern = std::string(base != nullptr && *base != '\0' ? base : "/tmp") +
                          "/tarnvel-settings-fuzz-" + std::to_string(::getpid()) + "-XXXXXX";
    if (::mkdtemp(pattern.data()) == nullptr) {
        std::perror("mkdtemp");
        std::abort();
    }
    workFolder = pattern;
    std::atexit(RemoveWorkFolder);
    // The working directory stays: libFuzzer's corpus paths are relative to it.
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string inputPath = workFolder + "/input.cfg";
    if (!WriteInput(inputPath, data, size)) {
        return 0;
    }
    Server loaded;
    loaded.Load(inputPath);

    // A log path near the line limit comes back two quotes longer than the
    // limit; that line alone would be refused on reading, by design.
    const size_t pathRoom = SettingsFile::MAX_LINE_LENGTH - std::string("LogFilePath \"\"").size();
    if (loaded.settings.GetLogFilePath().size() > pathRoom) {
        return 0;
    }
    const std::string savedPath = workFolder + "/saved.cfg";
    try {
        loaded.settings.Save(savedPath);
    } catch (const AppException&) {
        return 0; // a full disk, say: not the reader's fault
    }
    Server reloaded;
    Require(reloaded.Load(savedPath) == -1, "the saved file does not load cleanly");
    RequireSame(loaded, reloaded);
    return 0;
}
