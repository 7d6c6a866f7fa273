#pragma once

#include "allocation/AddressReservation.h"
#include "foundation/IPv4Address.h"
#include "wire/RawOption.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

class Settings;

// settings.cfg: one "Key value" line per setting, CR LF line ends, keys
// compared exactly. The reader forgives single bad lines (they are dropped and
// reported at the end) and tells them apart from a file it cannot use at all.
class SettingsFile {
public:
    static constexpr const char* POOL_START_ADDRESS = "PoolStartAddress";
    static constexpr const char* POOL_END_ADDRESS = "PoolEndAddress";
    static constexpr const char* SUBNET_MASK = "SubnetMask";
    static constexpr const char* DEFAULT_GATEWAY = "DefaultGateway";
    static constexpr const char* DNS_ADDRESS_1 = "DNSAddress1";
    static constexpr const char* DNS_ADDRESS_2 = "DNSAddress2";
    static constexpr const char* LEASE_DURATION = "LeaseDuration";
    static constexpr const char* PREFERRED_LISTENING_ADDRESS = "PreferredListeningAddress";
    static constexpr const char* ADDITIONAL_OPTION = "AdditionalOption";
    static constexpr const char* ADDRESS_RESERVATION = "AddressReservation";
    static constexpr const char* MINIMIZE_TO_SYSTEM_TRAY = "MinimizeToSystemTray";
    static constexpr const char* LOGGING_ENABLED = "LoggingEnabled";
    static constexpr const char* LOG_IGNORED_DHCP_MESSAGES = "LogIgnoredDHCPMessages";
    static constexpr const char* LOG_FILE_PATH = "LogFilePath";
    static constexpr const char* TRUE_TEXT = "True";
    static constexpr const char* FALSE_TEXT = "False";

    // Characters of one line without its line end. A longer line is a bad line.
    static constexpr size_t MAX_LINE_LENGTH = 10239;

    // Writes every field of `settings` and the reservations of its address
    // manager, through a temporary file renamed over `path`. Raises
    // FileWritingError and leaves the old file intact when that fails.
    // Precondition: the settings have an address manager.
    static void Save(const Settings& settings, const std::string& path);

    // Whether Load may repair the line ends on disk. The lines read the same
    // either way; ReadOnly only leaves the file as it was.
    enum class FileAccess { RepairLineEnds, ReadOnly };

    explicit SettingsFile(Settings& settings);

    // Reads `path` into the settings and the reservations. Ends normally or
    // raises, by how far it came:
    //   FileNotExists            nothing changed (the first run);
    //   UnsupportedEOLStyle, CannotOpenFile, FileReadingError,
    //   FileWritingError         nothing changed (line-end repair failed);
    //   SettingsFileFatalError   no pool or mask: only the fields that lines
    //                            store directly (log flags, log path, tray)
    //                            changed; or an invalid pool: all defaults;
    //   SettingsFilePartlyLoaded some lines were bad; the good ones are in force.
    // A file with LF line ends is rewritten with CR LF on the way, unless
    // `access` is ReadOnly; a file without any line end is refused either way.
    void Load(const std::string& path, FileAccess access = FileAccess::RepairLineEnds);

private:
    // The marker of a mask not yet seen; no real prefix length has it.
    static constexpr int MASK_NOT_SEEN = 33;

    static std::string BuildText(const Settings& settings);
    static std::vector<std::string> ReadLines(const std::string& path);

    void ParseLine(std::string line);
    void ParseLogFilePath(const std::string& line, const std::vector<std::string>& words);
    void ParseBooleanKey(const std::string& key, const std::vector<std::string>& values);
    IPv4Address* WorkingAddressFor(const std::string& key);
    void TakeOver();
    void AddWorkingReservations();

    Settings& settings;

    // Working values: taken over only when the pool and the mask were read.
    IPv4Address poolStartAddress;
    IPv4Address poolEndAddress;
    IPv4Address defaultGateway;
    IPv4Address dnsAddress1;
    IPv4Address dnsAddress2;
    IPv4Address preferredListeningAddress;
    int subnetMask = MASK_NOT_SEEN;
    int32_t leaseDuration = 0;
    std::vector<RawOption> additionalOptions;
    std::vector<AddressReservation> reservations;
    bool badLineSeen = false;
};
