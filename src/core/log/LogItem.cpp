#include "log/LogItem.h"

#include "foundation/Precondition.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <string_view>

namespace {

constexpr std::array<std::string_view, EVENT_TYPE_COUNT> TITLES = {
    "Server start",         "Server stop",     "DHCP Discover received", "DHCP Request received", "DHCP Offer sent",
    "DHCP ACK sent",        "DHCP NAK sent",   "DHCP Inform received",   "DHCP Release received",
};
constexpr std::string_view OTHER_TITLE = "other event";
// Fixed rather than "%X", whose form follows the process locale.
constexpr const char* TIME_FORMAT = "%Y-%m-%d %H:%M:%S";
constexpr size_t TIME_TEXT_CAPACITY = 64;

constexpr char HEX_DIGITS[] = "0123456789abcdef";

bool IsKnown(int eventType)
{
    return eventType >= 0 && eventType < EVENT_TYPE_COUNT;
}

std::string_view TitleOf(int eventType)
{
    return IsKnown(eventType) ? TITLES[eventType] : OTHER_TITLE;
}

// Which addresses an item of each kind carries, and whether it may be an
// ignored message.
struct Shape {
    bool hasHardwareAddress;
    bool hasIPAddress;
    bool mayBeIgnored;
};

constexpr std::array<Shape, EVENT_TYPE_COUNT> SHAPES = {{
    {false, true, false}, // ServerStart
    {false, false, false}, // ServerStop
    {true, false, true},   // DHCPDiscoverReceived
    {true, true, true},    // DHCPRequestReceived
    {true, true, false},   // DHCPOfferSent
    {true, true, false},   // DHCPAckSent
    {true, true, false},   // DHCPNakSent
    {true, true, true},    // DHCPInformReceived
    {true, true, true},    // DHCPReleaseReceived
}};

} // namespace

LogItem::LogItem(EventType eventType, const std::optional<HardwareAddress>& clientHardwareAddress,
                 const std::optional<IPv4Address>& ipAddress, bool messageIgnored, int64_t now)
    : time(now), eventType(eventType), messageIgnored(messageIgnored)
{
    if (IsKnown(eventType)) {
        const Shape& shape = SHAPES[eventType];
        PRECONDITION(clientHardwareAddress.has_value() == shape.hasHardwareAddress);
        PRECONDITION(ipAddress.has_value() == shape.hasIPAddress);
        PRECONDITION(!messageIgnored || shape.mayBeIgnored);
    }
    if (clientHardwareAddress) {
        // Invariant: GetLength() <= MAX_LENGTH, so the bytes fit.
        hardwareAddressLength = clientHardwareAddress->GetLength();
        std::copy_n(clientHardwareAddress->GetBytes(), hardwareAddressLength, this->hardwareAddress.begin());
    }
    if (ipAddress) {
        this->ipAddress = ipAddress->ToUint32();
    }
}

std::string LogItem::GetEventTypeName(int eventType)
{
    return std::string(TitleOf(eventType));
}

std::string LogItem::GetEventName() const
{
    return GetEventTypeName(eventType);
}

std::string LogItem::GetTimeString() const
{
    const std::time_t seconds = static_cast<std::time_t>(time);
    std::tm local{};
    if (localtime_r(&seconds, &local) == nullptr) {
        return std::string();
    }
    char text[TIME_TEXT_CAPACITY];
    const size_t length = std::strftime(text, sizeof text, TIME_FORMAT, &local);
    return std::string(text, length);
}

std::string LogItem::GetDetails() const
{
    std::string details;
    AppendDetails(details);
    return details;
}

std::string LogItem::GetLogLine() const
{
    std::string line;
    AppendLogLine(line, GetTimeString());
    return line;
}

void LogItem::AppendLogLine(std::string& text, std::string_view timeString) const
{
    text += timeString;
    text += ": ";
    text += TitleOf(eventType);
    if (messageIgnored) {
        text += ", message ignored";
    }
    const size_t detailsStart = text.size() + 2;
    text += ", ";
    AppendDetails(text);
    if (text.size() == detailsStart) {
        text.resize(detailsStart - 2); // no details, no separator
    }
}

void LogItem::MarkSavedToFile()
{
    PRECONDITION(!savedToFile);
    savedToFile = true;
}

void LogItem::AppendDetails(std::string& text) const
{
    switch (eventType) {
    case ServerStart:
        text += "listening IP address = ";
        AppendIPAddress(text);
        return;
    case DHCPDiscoverReceived:
        AppendHardwareAddress(text);
        return;
    case DHCPOfferSent:
        AppendHardwareAddress(text);
        text += ", offered IP address = ";
        AppendIPAddress(text);
        return;
    case DHCPRequestReceived:
    case DHCPAckSent:
    case DHCPNakSent:
    case DHCPReleaseReceived:
        AppendHardwareAddress(text);
        if (ipAddress != 0) {
            text += ", client IP address = ";
            AppendIPAddress(text);
        }
        return;
    default:
        // ServerStop and DHCPInformReceived show nothing, nor does an unknown kind.
        return;
    }
}

void LogItem::AppendHardwareAddress(std::string& text) const
{
    // The text of HardwareAddress::ToString: lower-case hexadecimal bytes
    // joined by colons.
    text += "client hardware address = ";
    char digits[HardwareAddress::MAX_LENGTH * 3];
    size_t length = 0;
    for (size_t i = 0; i < hardwareAddressLength; ++i) {
        if (i > 0) {
            digits[length++] = ':';
        }
        digits[length++] = HEX_DIGITS[hardwareAddress[i] >> 4];
        digits[length++] = HEX_DIGITS[hardwareAddress[i] & 0x0F];
    }
    text.append(digits, length);
}

void LogItem::AppendIPAddress(std::string& text) const
{
    // The text of IPv4Address::ToString: four decimal octets joined by dots.
    char digits[16];
    size_t length = 0;
    for (int shift = 24; shift >= 0; shift -= 8) {
        const unsigned octet = (ipAddress >> shift) & 0xFF;
        if (shift != 24) {
            digits[length++] = '.';
        }
        if (octet >= 100) {
            digits[length++] = static_cast<char>('0' + octet / 100);
        }
        if (octet >= 10) {
            digits[length++] = static_cast<char>('0' + octet / 10 % 10);
        }
        digits[length++] = static_cast<char>('0' + octet % 10);
    }
    text.append(digits, length);
}
