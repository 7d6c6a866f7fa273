#pragma once

#include "foundation/IPv4Address.h"
#include "log/EventType.h"
#include "wire/RawOption.h"

#include <array>
#include <cstdint>
#include <string>
#include <vector>

class AddressManager;

// Every parameter of the server in one object. No lock: while the server runs
// the window lets nothing but minimizeToSystemTray change. Reservations live
// in the AddressManager but take part in validation and in the file.
class Settings {
public:
    static constexpr const char* DEFAULT_SETTINGS_FILE = "settings.cfg";

    // Defaults; the file is not read here.
    Settings();

    // Late wiring: Settings and AddressManager need each other.
    void SetAddressManager(AddressManager* newAddressManager);

    IPv4Address GetPoolStartAddress() const { return poolStartAddress; }
    void SetPoolStartAddress(const IPv4Address& value) { poolStartAddress = value; }
    IPv4Address GetPoolEndAddress() const { return poolEndAddress; }
    void SetPoolEndAddress(const IPv4Address& value) { poolEndAddress = value; }
    // A prefix length, 1..32.
    uint8_t GetSubnetMask() const { return subnetMask; }
    void SetSubnetMask(uint8_t value) { subnetMask = value; }
    IPv4Address GetDNSAddress1() const { return dnsAddress1; }
    void SetDNSAddress1(const IPv4Address& value) { dnsAddress1 = value; }
    IPv4Address GetDNSAddress2() const { return dnsAddress2; }
    void SetDNSAddress2(const IPv4Address& value) { dnsAddress2 = value; }
    // Seconds, 0 <= value < 2147483647.
    int32_t GetLeaseDuration() const { return leaseDuration; }
    void SetLeaseDuration(int32_t value) { leaseDuration = value; }
    IPv4Address GetDefaultGateway() const { return defaultGateway; }
    void SetDefaultGateway(const IPv4Address& value) { defaultGateway = value; }
    bool GetMinimizeToSystemTray() const { return minimizeToSystemTray; }
    void SetMinimizeToSystemTray(bool value) { minimizeToSystemTray = value; }
    // Precondition: eventType 0..8.
    bool GetLogEventEnabled(int eventType) const;
    void SetLogEventEnabled(int eventType, bool value);
    bool GetLoggingEnabled() const { return loggingEnabled; }
    void SetLoggingEnabled(bool value) { loggingEnabled = value; }
    bool GetLogIgnoredDHCPMessages() const { return logIgnoredDHCPMessages; }
    void SetLogIgnoredDHCPMessages(bool value) { logIgnoredDHCPMessages = value; }
    std::string GetLogFilePath() const { return logFilePath; }
    void SetLogFilePath(const std::string& value) { logFilePath = value; }
    std::vector<RawOption>& GetAdditionalOptions() { return additionalOptions; }
    const std::vector<RawOption>& GetAdditionalOptions() const { return additionalOptions; }

    IPv4Address GetPreferredListeningAddress() const { return preferredListeningAddress; }
    // Stores the address, points the AddressManager at that address's lease
    // file (temp folder + "quorvy_leases_<address>.dat") and loads it; a
    // missing file is not an error. Precondition: not 0.0.0.0.
    void SetPreferredListeningAddress(const IPv4Address& newAddress);

    IPv4Address GetSubnetMaskAddress() const;
    // Broadcast address of the pool's subnet.
    IPv4Address GetBroadcastAddress() const;
    // Pool ends in one subnet, end not the broadcast address, start <= end,
    // every reservation in the pool's subnet.
    bool IsValid() const;
    // Defaults for everything but the address manager, the preferred address
    // and the file path; also removes every reservation and option.
    void SetDefaults();
    // "LogEvent_" and the event name; "LogEvent_Other" outside 0..8.
    static std::string GetLogEventKey(int eventType);

    // The settings file (see SettingsFile). Load raises FileNotExists,
    // UnsupportedEOLStyle (and the other file codes), SettingsFileFatalError,
    // SettingsFilePartlyLoaded. Precondition: an address manager is set.
    void Load();
    void Load(const std::string& path);
    // The same, but the file is only read: one with LF line ends stays so on
    // disk. For a file that belongs to an administrator, not to the program.
    void LoadWithoutWriting(const std::string& path);
    // Raises FileWritingError when the file cannot be written; the old file
    // stays intact then. Precondition: an address manager is set.
    void Save() const;
    void Save(const std::string& path) const;

    std::string GetSettingsFilePath() const { return settingsFilePath; }
    // The folder of the lease files from the next SetPreferredListeningAddress
    // on; empty (the default) means the folder of TEMP.
    void SetLeasesDirectory(const std::string& folder) { leasesDirectory = folder; }

private:
    // The file reader takes values over into the fields directly (the
    // preferred address without switching the lease file).
    friend class SettingsFile;

    AddressManager* addressManager = nullptr;
    IPv4Address poolStartAddress;
    IPv4Address poolEndAddress;
    uint8_t subnetMask = 24;
    IPv4Address dnsAddress1;
    IPv4Address dnsAddress2;
    int32_t leaseDuration = 3600;
    IPv4Address defaultGateway;
    IPv4Address preferredListeningAddress;
    std::vector<RawOption> additionalOptions;
    bool minimizeToSystemTray = false;
    std::array<bool, EVENT_TYPE_COUNT> logEvents{};
    std::string logFilePath;
    bool loggingEnabled = false;
    bool logIgnoredDHCPMessages = false;
    std::string settingsFilePath = DEFAULT_SETTINGS_FILE;
    std::string leasesDirectory;
};
