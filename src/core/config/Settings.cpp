#include "config/Settings.h"

#include "allocation/AddressManager.h"
#include "config/SettingsFile.h"
#include "foundation/AppException.h"
#include "foundation/Precondition.h"
#include "foundation/Tools.h"

#include <array>
#include <string_view>

namespace {

constexpr std::array<std::string_view, EVENT_TYPE_COUNT> eventNames = {
    "ServerStart",        "ServerStop",  "DHCPDiscoverReceived", "DHCPRequestReceived", "DHCPOfferSent",
    "DHCPAckSent",        "DHCPNakSent", "DHCPInformReceived",   "DHCPReleaseReceived",
};

constexpr const char* LEASES_FILE_PREFIX = "quorvy_leases_";
constexpr const char* LEASES_FILE_SUFFIX = ".dat";

} // namespace

Settings::Settings()
{
    SetDefaults();
}

void Settings::SetAddressManager(AddressManager* newAddressManager)
{
    PRECONDITION(newAddressManager != nullptr);
    addressManager = newAddressManager;
}

bool Settings::GetLogEventEnabled(int eventType) const
{
    PRECONDITION(eventType >= 0 && eventType < EVENT_TYPE_COUNT);
    return logEvents[eventType];
}

void Settings::SetLogEventEnabled(int eventType, bool value)
{
    PRECONDITION(eventType >= 0 && eventType < EVENT_TYPE_COUNT);
    logEvents[eventType] = value;
}

void Settings::SetPreferredListeningAddress(const IPv4Address& newAddress)
{
    PRECONDITION(!newAddress.IsZero());
    PRECONDITION(addressManager != nullptr);
    preferredListeningAddress = newAddress;
    const std::string folder = leasesDirectory.empty() ? Tools::GetTempDirectory() : leasesDirectory;
    addressManager->SetLeasesFilePath(
        Tools::AppendToPath(folder, LEASES_FILE_PREFIX + newAddress.ToString() + LEASES_FILE_SUFFIX));
    try {
        addressManager->LoadLeases();
    } catch (const AppException& exception) {
        // A first run on this address has no file yet, and a damaged file is
        // refused whole: either way the table in memory stays as it is.
        const int32_t code = exception.GetCode();
        if (code != AppException::FileNotExists && code != AppException::FileReadingError) {
            throw;
        }
    }
}

IPv4Address Settings::GetSubnetMaskAddress() const
{
    return IPv4Address::FromSubnetMaskLength(subnetMask);
}

IPv4Address Settings::GetBroadcastAddress() const
{
    return poolStartAddress.GetBroadcastAddress(subnetMask);
}

bool Settings::IsValid() const
{
    const IPv4Address broadcast = GetBroadcastAddress();
    if (poolEndAddress.GetBroadcastAddress(subnetMask) != broadcast || poolEndAddress == broadcast ||
        poolStartAddress > poolEndAddress) {
        return false;
    }
    if (addressManager != nullptr) {
        for (size_t i = 0; i < addressManager->GetReservationCount(); ++i) {
            if (addressManager->GetReservation(i).GetIPAddress().GetBroadcastAddress(subnetMask) != broadcast) {
                return false;
            }
        }
    }
    return true;
}

void Settings::SetDefaults()
{
    poolStartAddress = IPv4Address(192, 168, 1, 240);
    poolEndAddress = IPv4Address(192, 168, 1, 254);
    subnetMask = 24;
    dnsAddress1 = IPv4Address(192, 168, 1, 1);
    dnsAddress2 = IPv4Address();
    leaseDuration = 3600;
    defaultGateway = IPv4Address(192, 168, 1, 1);
    additionalOptions.clear();
    minimizeToSystemTray = false;
    logEvents.fill(true);
    logFilePath = "log.txt";
    loggingEnabled = false;
    logIgnoredDHCPMessages = false;
    if (addressManager != nullptr) {
        while (addressManager->GetReservationCount() > 0) {
            addressManager->RemoveReservation(addressManager->GetReservationCount() - 1);
        }
    }
}

std::string Settings::GetLogEventKey(int eventType)
{
    const std::string_view name =
        eventType >= 0 && eventType < EVENT_TYPE_COUNT ? eventNames[eventType] : std::string_view("Other");
    return "LogEvent_" + std::string(name);
}

void Settings::Load()
{
    Load(settingsFilePath);
}

void Settings::Load(const std::string& path)
{
    SettingsFile(*this).Load(path);
}

void Settings::LoadWithoutWriting(const std::string& path)
{
    SettingsFile(*this).Load(path, SettingsFile::FileAccess::ReadOnly);
}

void Settings::Save() const
{
    Save(settingsFilePath);
}

void Settings::Save(const std::string& path) const
{
    SettingsFile::Save(*this, path);
}
