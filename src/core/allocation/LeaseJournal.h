#pragma once

#include "allocation/Lease.h"
#include "allocation/LeaseJournalReader.h"
#include "allocation/LeaseJournalRecovery.h"
#include "foundation/IPv4Address.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

class AddressManager;
class StorageWarnings;

// The writer of the lease journal (format in LeaseJournalReader.h): while the
// server runs, every change of the lease table is written as one record with
// pwrite(2) on the receive thread, before the reply that announces it goes
// out, so a process that dies at any moment loses nothing it has promised.
// A thread of its own runs fdatasync about once a second while records are
// unsynced, so a power cut loses at most about the last second.
//
// Compaction. When the journal passes its size limit, the receive thread only
// renames it to L.journal.old and starts a new L.journal that follows it
// (slot A AfterJournal): a rename, a create and a 64-byte write, and wakes
// the compaction thread (at a lower priority). That thread then replays
// L + L.journal.old into a snapshot, writes it to a temporary file and syncs
// it, binds the new journal to it (slot B, synced), renames it over L, syncs
// the folder and removes L.journal.old. A crash
// after any of these steps leaves files that LeaseJournalRecovery reads back
// to the same table.
//
// Failures. A write that fails (disk full, quota, read-only folder, file too
// large) is reported once per episode to StorageWarnings; the server goes on
// answering. Records are dropped from then on, and at most once a second the
// next change asks for the whole table (WantsSnapshot): it is written as
// Clear followed by one Append per row, at the end of the last good record.
// When that succeeds the episode ends.
//
// Threads: Begin, Finish and Lock on the main thread; the Record operations
// on the receive thread, with the lease table's lock held; the sync and
// compaction threads are this object's own.
class LeaseJournal {
public:
    using Paths = LeaseJournalRecovery::Paths;
    // A journal is compacted once it holds this many bytes, or twice the
    // lease file's size when that is larger.
    static constexpr uint64_t COMPACTION_BYTES = 4u << 20;
    static constexpr std::chrono::milliseconds SYNC_INTERVAL{1000};
    static constexpr std::chrono::milliseconds RETRY_INTERVAL{1000};

    // `warnings` must outlive the journal.
    LeaseJournal(const std::string& leaseFilePath, StorageWarnings* warnings);
    // Finish(false) when Finish was not called.
    ~LeaseJournal();

    LeaseJournal(const LeaseJournal&) = delete;
    LeaseJournal& operator=(const LeaseJournal&) = delete;

    // What a start does once its port is bound: locks the journal of the
    // lease file of `addresses`, redoes what the journals beside it hold (a
    // non-empty journal always reloads the table from the file first),
    // begins afresh and attaches itself to `addresses`. Raises LeaseFileInUse.
    static std::unique_ptr<LeaseJournal> Open(AddressManager& addresses, StorageWarnings& warnings);

    const Paths& GetPaths() const { return paths; }
    // Takes the lock file with a non-blocking flock. Raises LeaseFileInUse
    // when another process holds it; a lock file that cannot be made is
    // reported, and the journal starts in a failed episode.
    void Lock();
    // The table at start is `rows`; the lease file holds `leaseFileBytes`.
    // Writes the lease file when the two differ, then makes the fresh
    // journal the only one, and starts the sync thread.
    void Begin(const std::vector<Lease>& rows, const std::string& leaseFileBytes);

    // ---- Receive thread, with the lease table's lock held ----
    void RecordAdd(const Lease& lease);
    void RecordErase(const IPv4Address& address);
    void RecordExpire(const IPv4Address& address, int64_t moment);
    // True while records are lost and a new attempt is due: the caller then
    // gives the whole table, after the change, to RecordSnapshot.
    bool WantsSnapshot();
    void RecordSnapshot(const std::vector<Lease>& rows);

    // Waits for a running compaction and ends the sync thread; called before
    // the lease file is saved at a stop.
    void StopBackground();
    // After the stop's save: when `leaseFileSaved`, the journal files go,
    // else they are synced and stay for the next start. Releases the lock.
    void Finish(bool leaseFileSaved);

    // Bytes written to the active journal; for tests and benchmarks.
    uint64_t GetSize();

    // The steps of a compaction after which a crash leaves a distinct set of
    // files. Tests stop a compaction there, as a crash would, with `proceed`
    // answering false; the files stay as they are.
    enum class CompactionStep { Switched, SnapshotWritten, Bound, Renamed };
    // Before Begin: compaction from `bytes` on instead of COMPACTION_BYTES.
    void SetCompactionLimit(uint64_t bytes, std::function<bool(CompactionStep)> proceed = {});

private:
    struct OpenFile;
    using Clock = std::chrono::steady_clock;

    void Write(const uint8_t* data, size_t length);
    bool WriteLocked(const uint8_t* data, size_t length);
    void FailLocked(int error);
    bool CreateStandaloneLocked(const std::string& records);
    bool TakeLock(bool throwWhenHeld);
    void MaybeCompactLocked();
    bool SwitchLocked();
    void CompactionLoop();
    void Compact(std::shared_ptr<OpenFile> target, uint64_t targetId);
    void SyncLoop();
    static std::string Header(LeaseJournalReader::BaseKind kind, uint64_t id, uint64_t value, uint32_t crc);
    static std::string Slot(LeaseJournalReader::BaseKind kind, uint64_t id, uint64_t value, uint32_t crc);
    static uint64_t NewId();

    const Paths paths;
    StorageWarnings* warnings;
    int lockDescriptor = -1;

    // Invariant: everything below is guarded by mutex. `offset` is where the
    // next record goes: the end of the last complete record written.
    std::mutex mutex;
    std::condition_variable wake;           // the sync thread's
    std::condition_variable compactionWake; // the compaction thread's
    std::shared_ptr<OpenFile> file;
    uint64_t journalId = 0;
    uint64_t offset = 0;
    uint64_t compactionBytes = COMPACTION_BYTES;
    uint64_t compactionLimit = 0; // set by a test: used as is
    std::function<bool(CompactionStep)> proceed;
    uint64_t writes = 0;       // grows with every successful write
    bool failing = false;      // records have been lost since the last snapshot
    Clock::time_point nextAttempt;
    bool compacting = false; // from the request to the end of a compaction
    std::shared_ptr<OpenFile> compactionTarget; // a request not yet taken
    uint64_t compactionTargetId = 0;
    bool stopping = false;
    bool finished = false;
    std::thread syncThread;
    std::thread compactionThread;
};
