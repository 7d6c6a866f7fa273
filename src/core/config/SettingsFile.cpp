#include "config/SettingsFile.h"

#include "allocation/AddressManager.h"
#include "config/Settings.h"
#include "foundation/AppException.h"
#include "foundation/HardwareAddress.h"
#include "foundation/Precondition.h"
#include "foundation/Tools.h"

#include <limits>

namespace {

constexpr const char* LINE_END = "\r\n";
constexpr char QUOTE = '"';
// The lease time must stay below this value, which is itself refused.
constexpr int32_t LEASE_DURATION_LIMIT = std::numeric_limits<int32_t>::max();

// Raising this only makes the current line a bad line; it never leaves Load.
[[noreturn]] void RejectLine()
{
    throw AppException(AppException::SettingsLineParsingError);
}

void RequireValueCount(const std::vector<std::string>& values, size_t count)
{
    if (values.size() != count) {
        RejectLine();
    }
}

bool ReadBoolean(std::string value)
{
    Tools::Trim(value);
    Tools::ToLower(value);
    if (value == "true") {
        return true;
    }
    if (value == "false") {
        return false;
    }
    RejectLine();
}

const char* BooleanText(bool value)
{
    return value ? SettingsFile::TRUE_TEXT : SettingsFile::FALSE_TEXT;
}

std::string JoinBySpace(std::vector<std::string>::const_iterator first, std::vector<std::string>::const_iterator last)
{
    std::string text;
    for (auto word = first; word != last; ++word) {
        if (!text.empty()) {
            text += ' ';
        }
        text += *word;
    }
    return text;
}

void AppendLine(std::string& text, const std::string& key, const std::string& value)
{
    text += key;
    text += ' ';
    text += value;
    text += LINE_END;
}

} // namespace

// ---- Writing -----------------------------------------------------------------

void SettingsFile::Save(const Settings& settings, const std::string& path)
{
    if (!Tools::ReplaceFileContents(path, BuildText(settings))) {
        throw AppException(AppException::FileWritingError);
    }
}

std::string SettingsFile::BuildText(const Settings& settings)
{
    PRECONDITION(settings.addressManager != nullptr);
    // Invariant: the form and the reader both keep the lease time in range.
    PRECONDITION(settings.leaseDuration >= 0 && settings.leaseDuration < LEASE_DURATION_LIMIT);

    std::string text;
    AppendLine(text, POOL_START_ADDRESS, settings.poolStartAddress.ToString());
    AppendLine(text, POOL_END_ADDRESS, settings.poolEndAddress.ToString());
    AppendLine(text, SUBNET_MASK, settings.GetSubnetMaskAddress().ToString());
    const auto appendUnlessZero = [&text](const char* key, const IPv4Address& address) {
        if (!address.IsZero()) {
            AppendLine(text, key, address.ToString());
        }
    };
    appendUnlessZero(DEFAULT_GATEWAY, settings.defaultGateway);
    appendUnlessZero(DNS_ADDRESS_1, settings.dnsAddress1);
    appendUnlessZero(DNS_ADDRESS_2, settings.dnsAddress2);
    AppendLine(text, LEASE_DURATION, Tools::IntToString(settings.leaseDuration));
    appendUnlessZero(PREFERRED_LISTENING_ADDRESS, settings.preferredListeningAddress);
    for (const RawOption& option : settings.additionalOptions) {
        AppendLine(text, ADDITIONAL_OPTION, option.GetCodeString() + ' ' + option.GetDataString());
    }
    const AddressManager& addressManager = *settings.addressManager;
    for (size_t i = 0; i < addressManager.GetReservationCount(); ++i) {
        const AddressReservation reservation = addressManager.GetReservation(i);
        AppendLine(text, ADDRESS_RESERVATION,
                   reservation.GetHardwareAddress().ToString() + ' ' + reservation.GetIPAddress().ToString());
    }
    AppendLine(text, MINIMIZE_TO_SYSTEM_TRAY, BooleanText(settings.minimizeToSystemTray));
    AppendLine(text, LOGGING_ENABLED, BooleanText(settings.loggingEnabled));
    AppendLine(text, LOG_IGNORED_DHCP_MESSAGES, BooleanText(settings.logIgnoredDHCPMessages));
    AppendLine(text, LOG_FILE_PATH, QUOTE + Tools::SanitizePath(settings.logFilePath) + QUOTE);
    for (int eventType = 0; eventType < EVENT_TYPE_COUNT; ++eventType) {
        AppendLine(text, Settings::GetLogEventKey(eventType), BooleanText(settings.logEvents[eventType]));
    }
    return text;
}

// ---- Reading -----------------------------------------------------------------

SettingsFile::SettingsFile(Settings& settings) : settings(settings) {}

void SettingsFile::Load(const std::string& path, FileAccess access)
{
    PRECONDITION(settings.addressManager != nullptr);
    if (!Tools::FileExists(path)) {
        throw AppException(AppException::FileNotExists);
    }
    if (access == FileAccess::RepairLineEnds) {
        Tools::NormalizeEOL(path);
    } else if (Tools::GetEOLStyle(path) == Tools::EOLUnknown) {
        throw AppException(AppException::UnsupportedEOLStyle);
    }
    const std::vector<std::string> lines = ReadLines(path);

    poolStartAddress = poolEndAddress = defaultGateway = IPv4Address();
    dnsAddress1 = dnsAddress2 = preferredListeningAddress = IPv4Address();
    subnetMask = MASK_NOT_SEEN;
    leaseDuration = settings.leaseDuration;
    additionalOptions.clear();
    reservations.clear();
    badLineSeen = false;

    for (const std::string& line : lines) {
        try {
            ParseLine(line);
        } catch (const AppException&) {
            badLineSeen = true;
        }
    }

    if (poolStartAddress.IsZero() || poolEndAddress.IsZero() || subnetMask == MASK_NOT_SEEN) {
        throw AppException(AppException::SettingsFileFatalError);
    }
    TakeOver();
    AddWorkingReservations();
    if (!settings.IsValid()) {
        settings.SetDefaults();
        throw AppException(AppException::SettingsFileFatalError);
    }
    if (badLineSeen) {
        throw AppException(AppException::SettingsFilePartlyLoaded);
    }
}

std::vector<std::string> SettingsFile::ReadLines(const std::string& path)
{
    std::string contents;
    if (!Tools::ReadWholeFile(path, contents)) {
        throw AppException(AppException::FileReadingError);
    }
    // Lines end in LF; the CR in front of it belongs to the line end. A file
    // that had both styles can carry more than one CR there after the LF-only
    // lines were converted, so every CR in front of the LF goes. The piece
    // behind the last LF is one more line (usually empty).
    std::vector<std::string> lines;
    size_t start = 0;
    while (true) {
        const size_t lineFeed = contents.find('\n', start);
        size_t end = lineFeed == std::string::npos ? contents.size() : lineFeed;
        const size_t next = end + 1;
        while (end > start && contents[end - 1] == '\r') {
            --end;
        }
        lines.push_back(contents.substr(start, end - start));
        if (lineFeed == std::string::npos) {
            break;
        }
        start = next;
    }
    return lines;
}

void SettingsFile::ParseLine(std::string line)
{
    if (line.size() > MAX_LINE_LENGTH) {
        RejectLine();
    }
    Tools::Trim(line);
    if (line.empty()) {
        return;
    }
    const std::vector<std::string> words = Tools::SplitBySpace(line);
    if (words.size() < 2) {
        RejectLine();
    }
    const std::string& key = words[0];
    const std::vector<std::string> values(words.begin() + 1, words.end());

    if (IPv4Address* address = WorkingAddressFor(key)) {
        RequireValueCount(values, 1);
        *address = IPv4Address(values[0]);
    } else if (key == SUBNET_MASK) {
        RequireValueCount(values, 1);
        subnetMask = IPv4Address(values[0]).GetSubnetMaskLength();
    } else if (key == LEASE_DURATION) {
        RequireValueCount(values, 1);
        const int32_t value = Tools::StringToInt(values[0]);
        if (value >= LEASE_DURATION_LIMIT) {
            RejectLine();
        }
        leaseDuration = value;
    } else if (key == ADDITIONAL_OPTION) {
        if (values.size() < 2) {
            RejectLine();
        }
        additionalOptions.emplace_back(values[0], JoinBySpace(values.begin() + 1, values.end()));
    } else if (key == ADDRESS_RESERVATION) {
        RequireValueCount(values, 2);
        reservations.emplace_back(HardwareAddress(values[0]), IPv4Address(values[1]));
    } else if (key == LOG_FILE_PATH) {
        ParseLogFilePath(line, words);
    } else {
        // An unknown key, also one in another letter case, is skipped silently.
        ParseBooleanKey(key, values);
    }
}

IPv4Address* SettingsFile::WorkingAddressFor(const std::string& key)
{
    if (key == POOL_START_ADDRESS) {
        return &poolStartAddress;
    }
    if (key == POOL_END_ADDRESS) {
        return &poolEndAddress;
    }
    if (key == DEFAULT_GATEWAY) {
        return &defaultGateway;
    }
    if (key == DNS_ADDRESS_1) {
        return &dnsAddress1;
    }
    if (key == DNS_ADDRESS_2) {
        return &dnsAddress2;
    }
    if (key == PREFERRED_LISTENING_ADDRESS) {
        return &preferredListeningAddress;
    }
    return nullptr;
}

// Any other key is left alone. These lines store straight into the settings,
// whatever the end of Load.
void SettingsFile::ParseBooleanKey(const std::string& key, const std::vector<std::string>& values)
{
    bool* field = nullptr;
    if (key == MINIMIZE_TO_SYSTEM_TRAY) {
        field = &settings.minimizeToSystemTray;
    } else if (key == LOGGING_ENABLED) {
        field = &settings.loggingEnabled;
    } else if (key == LOG_IGNORED_DHCP_MESSAGES) {
        field = &settings.logIgnoredDHCPMessages;
    } else {
        for (int eventType = 0; eventType < EVENT_TYPE_COUNT && field == nullptr; ++eventType) {
            if (key == Settings::GetLogEventKey(eventType)) {
                field = &settings.logEvents[eventType];
            }
        }
    }
    if (field == nullptr) {
        return;
    }
    RequireValueCount(values, 1);
    *field = ReadBoolean(values[0]);
}

// The one value that may be quoted, and then may hold blanks. `line` is the
// trimmed line, `words` its words with the key first.
void SettingsFile::ParseLogFilePath(const std::string& line, const std::vector<std::string>& words)
{
    const int quoteCount = Tools::CountChar(line, QUOTE);
    if (quoteCount != 0 && quoteCount != 2) {
        RejectLine();
    }
    std::string path;
    if (words.size() == 2) {
        path = words[1];
        if (!path.empty() && path.front() == QUOTE) {
            path.erase(0, 1);
        }
        if (!path.empty() && path.back() == QUOTE) {
            path.pop_back();
        }
    } else {
        // Blanks inside the path are only allowed between two quotes; an
        // unquoted path with blanks is a bad line like any other malformed one.
        const std::string& first = words[1];
        const std::string& last = words.back();
        if (quoteCount != 2 || first.front() != QUOTE || last.back() != QUOTE) {
            RejectLine();
        }
        // Invariant: exactly two quotes, one opening the first value and one
        // closing the last, so they enclose the path with its blanks as written.
        const size_t opening = line.find(QUOTE);
        const size_t closing = line.rfind(QUOTE);
        path = line.substr(opening + 1, closing - opening - 1);
    }
    settings.logFilePath = Tools::SanitizePath(path);
}

void SettingsFile::TakeOver()
{
    settings.poolStartAddress = poolStartAddress;
    settings.poolEndAddress = poolEndAddress;
    settings.subnetMask = static_cast<uint8_t>(subnetMask);
    settings.defaultGateway = defaultGateway;
    settings.dnsAddress1 = dnsAddress1;
    settings.dnsAddress2 = dnsAddress2;
    settings.leaseDuration = leaseDuration;
    // Written directly: the lease file follows the address only when the
    // listener really takes it.
    settings.preferredListeningAddress = preferredListeningAddress;
    settings.additionalOptions.insert(settings.additionalOptions.end(), additionalOptions.begin(),
                                      additionalOptions.end());
}

// After the take-over, so that the subnet test sees the pool and mask of the file.
void SettingsFile::AddWorkingReservations()
{
    for (const AddressReservation& reservation : reservations) {
        try {
            settings.addressManager->AddReservation(reservation);
        } catch (const AppException&) {
            badLineSeen = true;
        }
    }
}
