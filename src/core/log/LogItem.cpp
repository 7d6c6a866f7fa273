#include "log/LogItem.h"

#include "foundation/Precondition.h"

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

bool IsKnown(int eventType)
{
    return eventType >= 0 && eventType < EVENT_TYPE_COUNT;
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
    : eventType(eventType), messageIgnored(messageIgnored), time(now), clientHardwareAddress(clientHardwareAddress),
      ipAddress(ipAddress)
{
    if (IsKnown(eventType)) {
        const Shape& shape = SHAPES[eventType];
        PRECONDITION(clientHardwareAddress.has_value() == shape.hasHardwareAddress);
        PRECONDITION(ipAddress.has_value() == shape.hasIPAddress);
        PRECONDITION(!messageIgnored || shape.mayBeIgnored);
    }
}

std::string LogItem::GetEventTypeName(int eventType)
{
    return std::string(IsKnown(eventType) ? TITLES[eventType] : OTHER_TITLE);
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
    const auto hardwareText = [this] { return "client hardware address = " + clientHardwareAddress->ToString(); };
    switch (eventType) {
    case ServerStart:
        return "listening IP address = " + ipAddress->ToString();
    case DHCPDiscoverReceived:
        return hardwareText();
    case DHCPOfferSent:
        return hardwareText() + ", offered IP address = " + ipAddress->ToString();
    case DHCPRequestReceived:
    case DHCPAckSent:
    case DHCPNakSent:
    case DHCPReleaseReceived:
        if (ipAddress->IsZero()) {
            return hardwareText();
        }
        return hardwareText() + ", client IP address = " + ipAddress->ToString();
    default:
        // ServerStop and DHCPInformReceived show nothing, nor does an unknown kind.
        return std::string();
    }
}

std::string LogItem::GetLogLine() const
{
    std::string line = GetTimeString() + ": " + GetEventName();
    if (messageIgnored) {
        line += ", message ignored";
    }
    const std::string details = GetDetails();
    if (!details.empty()) {
        line += ", " + details;
    }
    return line;
}

void LogItem::MarkSavedToFile()
{
    PRECONDITION(!savedToFile);
    savedToFile = true;
}
