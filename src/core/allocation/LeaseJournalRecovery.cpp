#include "allocation/LeaseJournalRecovery.h"

#include "allocation/LeaseReplayTable.h"
#include "allocation/StorageWarnings.h"
#include "foundation/AppException.h"
#include "foundation/Tools.h"

#include <unistd.h>

#include <ctime>

namespace {

using Reader = LeaseJournalReader;

struct JournalFile {
    const std::string* path = nullptr;
    bool present = false;
    Reader::Contents contents;
};

const uint8_t* BytesOf(const std::string& text)
{
    return reinterpret_cast<const uint8_t*>(text.data());
}

// Raises FileReadingError for bytes that are no lease file.
std::vector<Lease> RowsOf(const std::string& leaseFileBytes)
{
    return Lease::UnserializeRows(BytesOf(leaseFileBytes), leaseFileBytes.size());
}

JournalFile ReadJournal(const std::string& path)
{
    JournalFile file;
    file.path = &path;
    std::string bytes;
    if (!Tools::FileExists(path) || !Tools::ReadWholeFile(path, bytes)) {
        return file;
    }
    file.present = true;
    file.contents = Reader::Read(BytesOf(bytes), bytes.size());
    return file;
}

bool HasSlotB(const Reader::Contents& journal, const Reader::FileState& state)
{
    return journal.slotB.kind == Reader::BaseKind::LeaseFile && journal.slotB.leaseFile == state;
}

Reader::FileState StateOf(const std::string& bytes)
{
    return Reader::FileState::Of(BytesOf(bytes), bytes.size());
}

} // namespace

LeaseJournalRecovery::Paths LeaseJournalRecovery::Paths::For(const std::string& leaseFile)
{
    const std::string journal = leaseFile + ".journal";
    return Paths{leaseFile, journal, journal + ".old", journal + ".new", journal + ".lock"};
}

bool LeaseJournalRecovery::IsPending(const std::string& leaseFile)
{
    const Paths paths = Paths::For(leaseFile);
    return Tools::FileExists(paths.journal) || Tools::FileExists(paths.previous) || Tools::FileExists(paths.fresh);
}

bool LeaseJournalRecovery::Continues(const Reader::Contents& journal, const Reader::FileState& state)
{
    return HasSlotB(journal, state) || journal.slotA.kind == Reader::BaseKind::Standalone ||
           (journal.slotA.kind == Reader::BaseKind::LeaseFile && journal.slotA.leaseFile == state);
}

void LeaseJournalRecovery::Redo(const Reader::Contents& journal, LeaseReplayTable& table)
{
    table.ReserveMore(journal.records.size());
    for (const Reader::Record& record : journal.records) {
        Reader::Apply(record, table);
    }
}

std::optional<std::vector<Lease>> LeaseJournalRecovery::Replay(const std::string& leaseFileBytes,
                                                                const std::string& journalBytes)
{
    const Reader::Contents journal = Reader::Read(BytesOf(journalBytes), journalBytes.size());
    if (!Continues(journal, StateOf(leaseFileBytes)) || journal.ending == Reader::Ending::Damaged) {
        return std::nullopt;
    }
    LeaseReplayTable table;
    try {
        table.Assign(RowsOf(leaseFileBytes));
    } catch (const AppException&) {
        return std::nullopt;
    }
    Redo(journal, table);
    return table.Rows();
}

LeaseJournalRecovery::Result LeaseJournalRecovery::Run(const Paths& paths, StorageWarnings& warnings)
{
    Result result;
    if (Tools::FileExists(paths.leaseFile) && !Tools::ReadWholeFile(paths.leaseFile, result.leaseFileBytes)) {
        return result;
    }
    // No journal at all, the common case after a clean stop: nothing to
    // decode here, the load of the lease file has done that.
    if (!IsPending(paths.leaseFile)) {
        return result;
    }
    const Reader::FileState state = StateOf(result.leaseFileBytes);
    LeaseReplayTable table;
    try {
        table.Assign(RowsOf(result.leaseFileBytes));
    } catch (const AppException&) {
        // A lease file nobody can decode is no base for any journal: they
        // are kept for a person to look at.
        for (const std::string* path : {&paths.previous, &paths.journal}) {
            if (Tools::FileExists(*path)) {
                warnings.Add(StorageWarnings::Kind::JournalNotContinuing, KeepAside(*path));
            }
        }
        return result;
    }

    // A start that wrote L and its fresh journal, and ended before the swap.
    const JournalFile fresh = ReadJournal(paths.fresh);
    if (fresh.present && fresh.contents.slotA.kind == Reader::BaseKind::LeaseFile &&
        fresh.contents.slotA.leaseFile == state) {
        ::unlink(paths.previous.c_str());
        ::rename(paths.fresh.c_str(), paths.journal.c_str());
    } else if (fresh.present) {
        ::unlink(paths.fresh.c_str());
    }

    const JournalFile previous = ReadJournal(paths.previous);
    const JournalFile current = ReadJournal(paths.journal);

    const auto keepAside = [&](const JournalFile& file, bool damaged) {
        result.journalFound = true;
        warnings.Add(damaged ? StorageWarnings::Kind::JournalDamaged : StorageWarnings::Kind::JournalNotContinuing,
                     KeepAside(*file.path));
    };
    const auto redo = [&](const JournalFile& file) {
        result.journalFound = true;
        Redo(file.contents, table);
        if (file.contents.ending == Reader::Ending::Damaged) {
            keepAside(file, true);
        }
    };
    // A journal of which only a torn header exists holds nothing to redo.
    const auto holdsNothing = [](const JournalFile& file) {
        return !file.present || (file.contents.slotA.kind == Reader::BaseKind::None &&
                                 file.contents.ending != Reader::Ending::Damaged);
    };

    bool previousRedone = false;
    if (!holdsNothing(previous)) {
        if (Continues(previous.contents, state)) {
            redo(previous);
            previousRedone = true;
        } else if (HasSlotB(current.contents, state) ||
                   current.contents.slotA.kind == Reader::BaseKind::Standalone) {
            ::unlink(paths.previous.c_str()); // Contained in L, or superseded.
        } else {
            keepAside(previous, previous.contents.ending == Reader::Ending::Damaged);
        }
    } else if (previous.present) {
        ::unlink(paths.previous.c_str());
    }

    if (!holdsNothing(current)) {
        const bool followsPrevious = current.contents.slotA.kind == Reader::BaseKind::AfterJournal &&
                                     previousRedone &&
                                     current.contents.slotA.previousJournalId == previous.contents.slotA.journalId;
        if (followsPrevious || Continues(current.contents, state)) {
            redo(current);
        } else {
            keepAside(current, current.contents.ending == Reader::Ending::Damaged);
        }
    } else if (current.present) {
        ::unlink(paths.journal.c_str());
    }

    result.rows = table.Rows();
    return result;
}

std::string LeaseJournalRecovery::KeepAside(const std::string& path)
{
    const std::time_t now = std::time(nullptr);
    std::tm parts{};
    ::gmtime_r(&now, &parts);
    char stamp[32];
    std::strftime(stamp, sizeof stamp, "%Y%m%d-%H%M%S", &parts);
    std::string aside = path + ".damaged." + stamp;
    for (int attempt = 1; Tools::FileExists(aside); ++attempt) {
        aside = path + ".damaged." + stamp + "-" + std::to_string(attempt);
    }
    return ::rename(path.c_str(), aside.c_str()) == 0 ? aside : path;
}
