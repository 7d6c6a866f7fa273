#pragma once

#include "foundation/HardwareAddress.h"
#include "foundation/IPv4Address.h"
#include "log/EventType.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// One event of the server's life, with the moment and the addresses involved.
// Renders itself as three texts for the table and as one log-file line; all
// English, never translated. A self-contained value, copied between threads.
//
// Kept small, since a run keeps every item: the addresses are stored as their
// bytes alone, which is all their texts need. Which of them an item carries
// follows from its event type, so no presence marks are stored either.
class LogItem {
public:
    // Preconditions: which addresses are present follows the event type.
    // `now` is seconds since the epoch; shown in local time.
    LogItem(EventType eventType, const std::optional<HardwareAddress>& clientHardwareAddress,
            const std::optional<IPv4Address>& ipAddress, bool messageIgnored, int64_t now);

    static std::string GetEventTypeName(int eventType);
    EventType GetEventType() const { return eventType; }
    std::string GetEventName() const;
    // "%Y-%m-%d %H:%M:%S", local time.
    std::string GetTimeString() const;
    // Seconds since the epoch: two items of the same time have the same
    // time string.
    int64_t GetTime() const { return time; }
    std::string GetDetails() const;
    // The log-file line, without its line end.
    std::string GetLogLine() const;
    // Appends GetLogLine() to `text`, given this item's GetTimeString(); a
    // writer of many lines renders each second once and allocates nothing
    // once `text` has grown.
    void AppendLogLine(std::string& text, std::string_view timeString) const;
    bool IsMessageIgnored() const { return messageIgnored; }
    bool IsSavedToFile() const { return savedToFile; }
    // Precondition: not yet marked.
    void MarkSavedToFile();

private:
    void AppendDetails(std::string& text) const;
    void AppendHardwareAddress(std::string& text) const;
    void AppendIPAddress(std::string& text) const;

    int64_t time;
    EventType eventType;
    // In address order, as IPv4Address::ToUint32 gives it; 0 when absent.
    uint32_t ipAddress = 0;
    // The first hardwareAddressLength bytes count; none when absent.
    std::array<uint8_t, HardwareAddress::MAX_LENGTH> hardwareAddress{};
    uint8_t hardwareAddressLength = 0;
    bool messageIgnored;
    bool savedToFile = false;
};
