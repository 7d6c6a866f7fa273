#include "log/LogManager.h"

#include "config/Settings.h"
#include "foundation/Precondition.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>

namespace {

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using FilePointer = std::unique_ptr<std::FILE, FileCloser>;

} // namespace

LogManager::LogManager(Settings* settings, const Clock* clock)
    : settings(settings), clock(clock != nullptr ? clock : &systemClock)
{
    PRECONDITION(settings != nullptr);
}

LogManager::~LogManager()
{
    if (savingThreadRunning) {
        StopSavingThread();
    }
}

void LogManager::AddLogItem(EventType eventType, const std::optional<HardwareAddress>& clientHardwareAddress,
                            const std::optional<IPv4Address>& ipAddress, bool messageIgnored)
{
    if (!settings->GetLoggingEnabled() || !settings->GetLogEventEnabled(eventType) ||
        (messageIgnored && !settings->GetLogIgnoredDHCPMessages())) {
        return;
    }
    // Built outside the lock: the receive thread pays only for the append there.
    LogItem item(eventType, clientHardwareAddress, ipAddress, messageIgnored, clock->Now());
    const std::lock_guard<std::mutex> lock(logItemsMutex);
    logItems.Append(item);
}

std::vector<LogItem> LogManager::GetLogItems(size_t fromIndex) const
{
    std::vector<LogItem> copies;
    const std::lock_guard<std::mutex> lock(logItemsMutex);
    PRECONDITION(fromIndex <= logItems.Size());
    logItems.CopyTo(copies, fromIndex, logItems.Size() - fromIndex);
    return copies;
}

size_t LogManager::GetLogItemCount() const
{
    const std::lock_guard<std::mutex> lock(logItemsMutex);
    return logItems.Size();
}

void LogManager::ExtendSnapshot(LogSnapshot& snapshot) const
{
    const std::lock_guard<std::mutex> lock(logItemsMutex);
    logItems.Extend(snapshot);
}

bool LogManager::IsSavingThreadRunning() const
{
    return savingThreadRunning;
}

void LogManager::StartSavingThread()
{
    PRECONDITION(!savingThreadRunning);
    {
        const std::lock_guard<std::mutex> lock(wakeMutex);
        stopRequested = false;
    }
    savingThreadRunning = true;
    savingThread = std::thread(&LogManager::SavingThread, this);
}

void LogManager::StopSavingThread()
{
    PRECONDITION(savingThreadRunning);
    {
        const std::lock_guard<std::mutex> lock(wakeMutex);
        stopRequested = true;
    }
    wakeCondition.notify_all();
    savingThread.join();
    savingThreadRunning = false;
    // Everything logged up to now, the ServerStop item too, goes to the file.
    try {
        SaveNewItems();
    } catch (...) {
        // A lost log line must not break the stop of the server.
    }
}

void LogManager::SavingThread()
{
    const auto sleepPeriod = std::chrono::milliseconds(SLEEP_PERIOD_MS);
    std::unique_lock<std::mutex> lock(wakeMutex);
    while (!wakeCondition.wait_for(lock, sleepPeriod, [this] { return stopRequested; })) {
        ++tickCounter;
        if (tickCounter % SAVE_EVERY_TICKS != 0) {
            continue;
        }
        lock.unlock();
        try {
            SaveNewItems();
        } catch (...) {
            // Nothing may leave this thread; the next save tries again with
            // whatever is new by then.
        }
        lock.lock();
    }
}

void LogManager::SaveNewItems()
{
    size_t itemCount = 0;
    {
        const std::lock_guard<std::mutex> lock(logItemsMutex);
        itemCount = logItems.Size();
    }
    if (savedItemCount >= itemCount) {
        return; // nothing new: the file is not even opened
    }
    // Items never change once added, so the new ones can be copied slice by
    // slice below. They count as handled whatever happens to the file: a log
    // that cannot be written loses its lines rather than repeating them later.
    const size_t firstNew = savedItemCount;
    savedItemCount = itemCount;

    const FilePointer file(std::fopen(settings->GetLogFilePath().c_str(), "a"));
    if (!file) {
        return;
    }
    std::vector<LogItem> slice;
    std::string text;
    // Items come in bursts of the same second: each time is rendered once.
    std::optional<int64_t> renderedTime;
    std::string timeString;
    for (size_t next = firstNew; next < itemCount;) {
        const size_t count = std::min(SAVE_SLICE_ITEMS, itemCount - next);
        slice.clear();
        {
            const std::lock_guard<std::mutex> lock(logItemsMutex);
            logItems.CopyTo(slice, next, count);
        }
        next += count;

        text.clear();
        for (const LogItem& item : slice) {
            if (renderedTime != item.GetTime()) {
                timeString = item.GetTimeString();
                renderedTime = item.GetTime();
            }
            item.AppendLogLine(text, timeString);
            text += '\n';
        }
        // A slice goes out in one write and is flushed at once, so a crash
        // loses at most the slice being written.
        std::fwrite(text.data(), 1, text.size(), file.get());
        std::fflush(file.get());
    }
}
