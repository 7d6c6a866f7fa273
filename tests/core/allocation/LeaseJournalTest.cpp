#include "support/AllocationWorld.h"
#include "support/TestHardware.h"

#include "allocation/LeaseJournal.h"
#include "allocation/LeaseJournalRecovery.h"
#include "allocation/StorageWarnings.h"
#include "support/FileText.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <functional>
#include <optional>
#include <thread>

#include <sys/resource.h>

namespace {

constexpr int changes = 24;
using Step = LeaseJournal::CompactionStep;
using Kind = StorageWarnings::Kind;

// A lease file with two leases, a journal begun over it, and a run of
// changes made through an AddressManager; the files stay as a kill leaves
// them. states[k] is the table after k changes.
struct JournalRun {
    TemporaryFolder folder;
    std::string leaseFile = folder.FilePath("leases.dat");
    LeaseJournal::Paths paths = LeaseJournal::Paths::For(leaseFile);
    StorageWarnings warnings;
    std::vector<std::vector<Lease>> states;

    // One change of each kind in turn, each on a row that exists.
    static void Change(AllocationWorld& world, int k)
    {
        const IPv4Address address = IPv4Address::FromUint32(Address("192.168.1.240").ToUint32() + k % 12);
        switch (k % 4) {
        case 0:
        case 2:
            world.addresses.AddLease(TestHardware(k), address, 600 + k);
            break;
        case 1:
            world.addresses.ReleaseLease(IPv4Address::FromUint32(address.ToUint32() - 1));
            break;
        default:
            world.addresses.RemoveLease(IPv4Address::FromUint32(address.ToUint32() - 1));
        }
        world.clock.Advance(7);
    }

    void Record(int changes, int initialLeases = 2, uint64_t compactionLimit = 0,
                std::function<bool(Step)> proceed = {}, std::function<bool()> settled = {})
    {
        AllocationWorld world;
        world.addresses.SetLeasesFilePath(leaseFile);
        for (int i = 0; i < initialLeases; ++i) {
            world.addresses.AddLease(TestHardware(100 + i), IPv4Address(10, 0, 0, 1 + i), 3600);
        }
        if (initialLeases > 0) {
            ASSERT_TRUE(world.addresses.TrySaveLeases());
        }
        LeaseJournal journal(leaseFile, &warnings);
        journal.SetCompactionLimit(compactionLimit, std::move(proceed));
        journal.Lock();
        journal.Begin(world.addresses.GetLeases(), LeaseJournalRecovery::Run(paths, warnings).leaseFileBytes);
        world.addresses.AttachJournal(&journal);
        states.push_back(world.addresses.GetLeases());
        for (int k = 0; k < changes; ++k) {
            Change(world, k);
            states.push_back(world.addresses.GetLeases());
        }
        for (int wait = 0; settled && !settled() && wait < 1000; ++wait) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        journal.StopBackground();
        world.addresses.AttachJournal(nullptr);
    }

    // A start as the server makes it: recovery, then the journal begun over
    // the recovered table (which writes the lease file), then a kill.
    std::vector<Lease> Recover(std::vector<Kind>& kinds)
    {
        LeaseJournal journal(leaseFile, &warnings);
        journal.Lock();
        LeaseJournalRecovery::Result result = LeaseJournalRecovery::Run(paths, warnings);
        journal.Begin(result.rows, result.leaseFileBytes);
        for (const auto& warning : warnings.Take()) {
            kinds.push_back(warning.kind);
        }
        return result.rows;
    }

    size_t JournalRecordsBefore(const std::string& bytes) const
    {
        return LeaseJournalReader::Read(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()).records.size();
    }
    bool KeptAside() const
    {
        for (const auto& entry : std::filesystem::directory_iterator(folder.Path())) {
            if (entry.path().string().find(".damaged.") != std::string::npos) {
                return true;
            }
        }
        return false;
    }
};

void Truncate(const std::string& path, size_t removed)
{
    const std::string bytes = ReadText(path);
    WriteText(path, bytes.substr(0, bytes.size() - std::min(removed, bytes.size())));
}

} // namespace

// Every way a journal can be found at start, and what comes back of it.
TEST(LeaseJournalTest, ReplayRestoresWhatEachKindOfLeftoverHolds)
{
    struct Case {
        const char* name;
        int initialLeases;
        // Changes the files; returns the index of the state expected back,
        // or nothing for the lease file's own rows as they are then.
        std::function<std::optional<size_t>(JournalRun&)> damage;
        std::vector<Kind> warnings;
    };
    const std::vector<Case> cases = {
        {"intact", 2, [](JournalRun&) { return std::optional<size_t>(changes); }, {}},
        {"torn tail, cut silently", 2,
         [](JournalRun& run) {
             Truncate(run.paths.journal, 5);
             return std::optional<size_t>(changes - 1);
         },
         {}},
        {"corrupt record in the middle: the records before it, the journal kept aside", 2,
         [](JournalRun& run) {
             std::string bytes = ReadText(run.paths.journal);
             const size_t middle = bytes.size() / 2;
             bytes[middle] = static_cast<char>(bytes[middle] ^ 0x5A);
             WriteText(run.paths.journal, bytes);
             return std::optional<size_t>(run.JournalRecordsBefore(bytes));
         },
         {Kind::JournalDamaged}},
        {"empty journal", 2,
         [](JournalRun& run) {
             WriteText(run.paths.journal, "");
             return std::optional<size_t>(0);
         },
         {}},
        {"journal over a lease file that was never written", 0,
         [](JournalRun&) { return std::optional<size_t>(changes); }, {}},
        {"journal without its lease file", 2,
         [](JournalRun& run) {
             std::filesystem::remove(run.leaseFile);
             return std::optional<size_t>();
         },
         {Kind::JournalNotContinuing}},
        {"journal that does not continue the lease file beside it", 2,
         [](JournalRun& run) {
             AllocationWorld other;
             other.addresses.AddLease(TestHardware(7), Address("10.9.9.9"), 60);
             other.addresses.SaveLeases(run.leaseFile);
             return std::optional<size_t>();
         },
         {Kind::JournalNotContinuing}},
        {"replay twice: a start that replayed, wrote the lease file and was killed", 2,
         [](JournalRun& run) {
             LeaseJournal journal(run.leaseFile, &run.warnings);
             journal.Lock();
             const auto recovered = LeaseJournalRecovery::Run(run.paths, run.warnings);
             journal.Begin(recovered.rows, recovered.leaseFileBytes);
             return std::optional<size_t>(changes);
         },
         {}},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(test.name);
        JournalRun run;
        run.Record(changes, test.initialLeases);
        const std::optional<size_t> expected = test.damage(run);
        const std::string leaseFile = ReadText(run.leaseFile);
        std::vector<Kind> warnings;
        const std::vector<Lease> rows = run.Recover(warnings);
        EXPECT_TRUE(SameRows(rows, expected ? run.states.at(*expected)
                                            : Lease::UnserializeRows(reinterpret_cast<const uint8_t*>(leaseFile.data()),
                                                                     leaseFile.size())));
        EXPECT_EQ(warnings, test.warnings);
        EXPECT_EQ(run.KeptAside(), !test.warnings.empty());
        // Whatever was found, a second recovery of the same files agrees.
        std::vector<Kind> again;
        EXPECT_TRUE(SameRows(run.Recover(again), rows));
        EXPECT_TRUE(again.empty());
    }
}

// A crash after each step of a compaction, and a compaction that ends, while
// changes go on: nothing is lost.
TEST(LeaseJournalTest, CompactionLosesNothingWhereverACrashStopsIt)
{
    for (const std::optional<Step> stop : {std::optional<Step>(Step::Switched), std::optional<Step>(Step::SnapshotWritten),
                                           std::optional<Step>(Step::Bound), std::optional<Step>(Step::Renamed),
                                           std::optional<Step>()}) {
        SCOPED_TRACE(stop ? static_cast<int>(*stop) : -1);
        JournalRun run;
        // The compaction thread runs at a lower priority: the run waits (at
        // most 10 s) until a compaction has reached the step, or, with no
        // stop, until none is left to do.
        auto reached = std::make_shared<std::atomic<bool>>(false);
        run.Record(60, 2, 400,
                   [stop, reached](Step step) {
                       *reached = *reached || step == stop;
                       return step != stop;
                   },
                   [&] { return stop ? reached->load() : !std::filesystem::exists(run.paths.previous); });
        EXPECT_EQ(std::filesystem::exists(run.paths.previous), stop.has_value());
        const std::string leaseFile = ReadText(run.leaseFile);
        const bool snapshotInPlace = !stop || *stop == Step::Renamed;
        EXPECT_EQ(SameRows(Lease::UnserializeRows(reinterpret_cast<const uint8_t*>(leaseFile.data()), leaseFile.size()),
                           run.states[0]),
                  !snapshotInPlace);
        std::vector<Kind> warnings;
        EXPECT_TRUE(SameRows(run.Recover(warnings), run.states.back()));
        EXPECT_TRUE(warnings.empty());
        EXPECT_FALSE(run.KeptAside());
    }
}

// RLIMIT_FSIZE stands for a full disk: writes fail with EFBIG (SIGXFSZ
// ignored). The table goes on changing; when room comes back, the next
// change writes the whole table and the journal is whole again.
TEST(LeaseJournalTest, FullDiskIsReportedOnceAndTheWholeTableIsWrittenWhenRoomComesBack)
{
    JournalRun run;
    AllocationWorld world;
    world.addresses.SetLeasesFilePath(run.leaseFile);
    LeaseJournal journal(run.leaseFile, &run.warnings);
    journal.Lock();
    journal.Begin({}, "");
    world.addresses.AttachJournal(&journal);
    JournalRun::Change(world, 0);

    const auto oldHandler = std::signal(SIGXFSZ, SIG_IGN);
    rlimit oldLimit{};
    getrlimit(RLIMIT_FSIZE, &oldLimit);
    rlimit limit = oldLimit;
    limit.rlim_cur = journal.GetSize() + 100;
    setrlimit(RLIMIT_FSIZE, &limit);
    for (int k = 1; k < 30; ++k) {
        JournalRun::Change(world, k);
    }
    setrlimit(RLIMIT_FSIZE, &oldLimit);
    std::signal(SIGXFSZ, oldHandler);

    std::vector<StorageWarnings::Warning> warnings = run.warnings.Take();
    ASSERT_EQ(warnings.size(), 1u);
    EXPECT_EQ(warnings[0].kind, Kind::WriteFailed);
    EXPECT_EQ(warnings[0].detail, std::strerror(EFBIG));
    std::this_thread::sleep_for(LeaseJournal::RETRY_INTERVAL + std::chrono::milliseconds(100));
    JournalRun::Change(world, 30);
    warnings = run.warnings.Take();
    ASSERT_EQ(warnings.size(), 1u);
    EXPECT_EQ(warnings[0].kind, Kind::WriteRecovered);
    JournalRun::Change(world, 31);
    journal.StopBackground();
    journal.Finish(false); // as a kill leaves it
    world.addresses.AttachJournal(nullptr);

    std::vector<Kind> kinds;
    EXPECT_TRUE(SameRows(run.Recover(kinds), world.addresses.GetLeases()));
    EXPECT_TRUE(kinds.empty());
}
