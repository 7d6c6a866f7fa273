#include "log/LogManager.h"

#include "config/Settings.h"
#include "foundation/Precondition.h"

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
    logItems.push_back(std::move(item));
}

std::vector<LogItem> LogManager::GetLogItems(size_t fromIndex) const
{
    const std::lock_guard<std::mutex> lock(logItemsMutex);
    PRECONDITION(fromIndex <= logItems.size());
    return std::vector<LogItem>(logItems.begin() + static_cast<std::ptrdiff_t>(fromIndex), logItems.end());
}

size_t LogManager::GetLogItemCount() const
{
    const std::lock_guard<std::mutex> lock(logItemsMutex);
    return logItems.size();
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
    std::vector<LogItem> newItems;
    {
        const std::lock_guard<std::mutex> lock(logItemsMutex);
        if (savedItemCount >= logItems.size()) {
            return; // nothing new: the file is not even opened
        }
        newItems.assign(logItems.begin() + static_cast<std::ptrdiff_t>(savedItemCount), logItems.end());
    }
    // These items count as handled whatever happens to the file below: a log
    // that cannot be written loses its lines rather than repeating them later.
    savedItemCount += newItems.size();

    const FilePointer file(std::fopen(settings->GetLogFilePath().c_str(), "a"));
    if (!file) {
        return;
    }
    // Flushed line by line, so a crash loses at most the line being written.
    for (const LogItem& item : newItems) {
        const std::string line = item.GetLogLine() + '\n';
        std::fwrite(line.data(), 1, line.size(), file.get());
        std::fflush(file.get());
    }
}
