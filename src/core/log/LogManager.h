#pragma once

#include "foundation/Clock.h"
#include "foundation/HardwareAddress.h"
#include "foundation/IPv4Address.h"
#include "log/LogItem.h"

#include <optional>
#include <vector>

class Settings;

// The in-memory log of the process and the writer of the log file. Items are
// filtered by the settings, kept for the whole run (the list only grows), and
// appended to the file by a saving thread every 2000 ms and once more at stop.
class LogManager {
public:
    static constexpr unsigned SLEEP_PERIOD_MS = 500;
    static constexpr unsigned SAVE_EVERY_TICKS = 4;

    // `clock` must outlive the manager; null means the system clock.
    explicit LogManager(Settings* settings, const Clock* clock = nullptr);
    // Stops the saving thread (with its last save) if it runs.
    ~LogManager();

    LogManager(const LogManager&) = delete;
    LogManager& operator=(const LogManager&) = delete;

    // Drops the item when logging is off, its event type is off, or it is an
    // ignored message and those are not logged. Thread-safe.
    void AddLogItem(EventType eventType, const std::optional<HardwareAddress>& clientHardwareAddress,
                    const std::optional<IPv4Address>& ipAddress, bool messageIgnored);
    // Copies of the items from `fromIndex` on. Precondition: fromIndex <= count.
    std::vector<LogItem> GetLogItems(size_t fromIndex) const;
    size_t GetLogItemCount() const;

    bool IsSavingThreadRunning() const;
    // Precondition: not running.
    void StartSavingThread();
    // Precondition: running. Wakes the thread at once, joins it, then saves
    // what is new on the calling thread.
    void StopSavingThread();
};
