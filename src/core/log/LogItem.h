#pragma once

#include "foundation/HardwareAddress.h"
#include "foundation/IPv4Address.h"
#include "log/EventType.h"

#include <cstdint>
#include <optional>
#include <string>

// One event of the server's life, with the moment and the addresses involved.
// Renders itself as three texts for the table and as one log-file line; all
// English, never translated. A self-contained value, copied between threads.
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
    std::string GetDetails() const;
    // The log-file line, without its line end.
    std::string GetLogLine() const;
    bool IsMessageIgnored() const { return messageIgnored; }
    bool IsSavedToFile() const { return savedToFile; }
    // Precondition: not yet marked.
    void MarkSavedToFile();

private:
    EventType eventType;
    bool messageIgnored;
    bool savedToFile = false;
    int64_t time;
    std::optional<HardwareAddress> clientHardwareAddress;
    std::optional<IPv4Address> ipAddress;
};
