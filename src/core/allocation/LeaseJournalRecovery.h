#pragma once

#include "allocation/Lease.h"
#include "allocation/LeaseJournalReader.h"

#include <optional>
#include <string>
#include <vector>

class LeaseReplayTable;
class StorageWarnings;

// Rebuilds the lease table at start from the lease file and the journals
// beside it, and decides the fate of every journal file: redone, dropped as
// already contained in the lease file, or kept aside as damaged.
//
// The files of one lease file L (see LeaseJournal for how they come about):
//   L.journal      the active journal;
//   L.journal.old  the journal before it, while a compaction folds it into L;
//   L.journal.new  the fresh journal of a start, before it takes the place of
//                  the others (it continues the lease file that start wrote).
//
// Invariant kept by every step of the writer: after a crash at any moment,
// one of these holds, and the rules below find it.
//   - L.journal.new continues L: the others are contained in L;
//   - L.journal.old continues L (its slot A or B names L), and L.journal
//     follows it (slot A AfterJournal with its id) or continues L itself;
//   - L.journal continues L and L.journal.old, if any, is contained in L
//     (slot B of L.journal names L: the compaction got as far as the rename);
//   - L.journal is Standalone: it rebuilds the table by itself.
class LeaseJournalRecovery {
public:
    struct Paths {
        std::string leaseFile;
        std::string journal;
        std::string previous; // L.journal.old
        std::string fresh;    // L.journal.new
        std::string lock;     // L.journal.lock
        static Paths For(const std::string& leaseFile);
    };

    struct Result {
        // Some journal held records or was kept aside: the table is `rows`.
        bool journalFound = false;
        std::vector<Lease> rows;
        // The lease file as it was read (empty when missing).
        std::string leaseFileBytes;
    };

    // Reads L and its journals, keeps aside what is damaged or does not
    // continue L (telling `warnings`), removes what is contained in L, and
    // redoes the rest onto L's rows. A lease file that cannot be read or
    // decoded leaves the journals alone and the table to its caller.
    static Result Run(const Paths& paths, StorageWarnings& warnings);

    // Some journal waits beside `leaseFile` to be replayed at the next start.
    static bool IsPending(const std::string& leaseFile);

    // The journal's records apply to a lease file in state `state`.
    static bool Continues(const LeaseJournalReader::Contents& journal, const LeaseJournalReader::FileState& state);
    // The rows of `leaseFileBytes` with `journal` redone on them; nothing when
    // the bytes do not decode or the journal does not continue them.
    static std::optional<std::vector<Lease>> Replay(const std::string& leaseFileBytes, const std::string& journalBytes);

    // Renames `path` to path + ".damaged." + a UTC time stamp; returns the new
    // name, or `path` when the rename failed.
    static std::string KeepAside(const std::string& path);

private:
    static void Redo(const LeaseJournalReader::Contents& journal, LeaseReplayTable& table);
};
