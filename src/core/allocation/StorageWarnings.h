#pragma once

#include <mutex>
#include <string>
#include <vector>

// What went wrong with the lease files while nobody was asked: a journal that
// cannot be written, or one found damaged at start. Each warning goes to
// standard error at once and waits here until the window takes it; the engine
// never waits for the window. Thread-safe: the receive thread, the journal's
// own threads and the main thread all reach it.
class StorageWarnings {
public:
    enum class Kind {
        // The journal cannot be written: granted leases may be lost at a crash.
        // `detail` is the system's reason. Once per episode.
        WriteFailed,
        // Writing works again and the whole table has been written.
        WriteRecovered,
        // A damaged journal was found at start; `path` is where it was kept aside.
        JournalDamaged,
        // A journal that does not continue the lease file beside it; kept aside.
        JournalNotContinuing,
    };

    struct Warning {
        Kind kind;
        std::string path;
        std::string detail;
    };

    void Add(Kind kind, const std::string& path, const std::string& detail = std::string());
    // The warnings not yet taken, oldest first.
    std::vector<Warning> Take();

private:
    std::mutex mutex;
    std::vector<Warning> pending; // guarded by mutex
};
