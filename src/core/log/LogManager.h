#pragma once

#include "foundation/Clock.h"
#include "foundation/HardwareAddress.h"
#include "foundation/IPv4Address.h"
#include "log/LogItem.h"
#include "log/LogItemList.h"
#include "log/LogSnapshot.h"

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

class Settings;

// The in-memory log of the process and the writer of the log file. Items are
// filtered by the settings, kept for the whole run (the list only grows), and
// appended to the file by a saving thread every 2000 ms and once more at stop.
class LogManager {
public:
    static constexpr unsigned SLEEP_PERIOD_MS = 500;
    static constexpr unsigned SAVE_EVERY_TICKS = 4;
    // A save copies and writes the new items this many at a time, so that it
    // holds the lock only briefly and needs little memory however much is new.
    static constexpr size_t SAVE_SLICE_ITEMS = 4096;

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
    // Makes `snapshot` show every item logged so far. Under the lock it adds
    // only pointers to the blocks it lacks, never copies an item, so its cost
    // follows what is new. Precondition: `snapshot` was made empty or by this
    // manager.
    void ExtendSnapshot(LogSnapshot& snapshot) const;

    bool IsSavingThreadRunning() const;
    // Precondition: not running.
    void StartSavingThread();
    // Precondition: running. Wakes the thread at once, joins it, then saves
    // what is new on the calling thread.
    void StopSavingThread();

private:
    void SavingThread();
    // Appends the items not yet handled to the log file. Only one thread runs
    // it at a time: the saving thread, or the caller of StopSavingThread after
    // the join. A file that cannot be opened or written loses those lines;
    // nothing is reported and they stay in memory.
    void SaveNewItems();

    Settings* settings;
    Clock systemClock;
    const Clock* clock;

    // Guards logItems only, held for one append or one copy, never for file work.
    mutable std::mutex logItemsMutex;
    LogItemList logItems;

    // Items before this index have been handled by SaveNewItems (written, or
    // lost with a file that could not be opened). Touched only by the one
    // thread that runs SaveNewItems.
    size_t savedItemCount = 0;
    // Sleeps done so far; not reset at a stop.
    unsigned tickCounter = 0;

    // Read by the main thread; the saving thread waits on stopRequested.
    std::atomic<bool> savingThreadRunning{false};
    std::mutex wakeMutex;
    std::condition_variable wakeCondition;
    bool stopRequested = false;
    std::thread savingThread;
};
