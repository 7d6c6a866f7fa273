#include "AllocationTestWorld.h"

#include "foundation/Serializable.h"
#include "foundation/Tools.h"
#include "support/TemporaryFolder.h"
#include "support/Unprivileged.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>

#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// The table every failed load must leave alone: two rows, one released.
void FillReferenceTable(AllocationWorld& world)
{
    world.addresses.AddLease(Client(1), Address("192.168.1.241"), 600);
    world.clock.Advance(7);
    world.addresses.AddLease(Client(2), Address("192.168.1.242"), 3600);
    world.addresses.ReleaseLease(Address("192.168.1.241"));
}

ByteString TwoLeaseFile(int first = 10, int second = 11)
{
    AllocationWorld source;
    source.addresses.AddLease(Client(first), IPv4Address(192, 168, 1, 240 + first), 100);
    source.addresses.AddLease(Client(second), IPv4Address(192, 168, 1, 240 + second), 200);
    return source.addresses.SerializeLeases();
}

size_t FileCount(const std::string& folder)
{
    return static_cast<size_t>(
        std::distance(std::filesystem::directory_iterator(folder), std::filesystem::directory_iterator()));
}

} // namespace

TEST(LeaseFileTest, WorkedExampleIsByteExact)
{
    TemporaryFolder folder;
    AllocationWorld world;
    world.clock.Set(1'700'000'000);
    world.addresses.AddLease(HardwareAddress(std::string("00:11:22:33:44:55")), Address("192.168.1.240"), 3600);
    world.addresses.SaveLeases(folder.FilePath("leases.dat"));
    const ByteString expected = {
        46, 0, 0, 0,                                         // the one record
        8, 0, 0, 0, 0x00, 0xF1, 0x53, 0x65, 0, 0, 0, 0,      // start time
        8, 0, 0, 0, 16, 14, 0, 0, 0, 0, 0, 0,                // duration
        10, 0, 0, 0, 1, 0, 0, 0, 0, 17, 34, 51, 68, 85,      // hardware type, then address
        4, 0, 0, 0, 192, 168, 1, 240,                        // IP address
    };
    EXPECT_EQ(ReadBytes(folder.FilePath("leases.dat")), expected);

    // A negative start time is sign-extended; a reader keeps only the low 32
    // bits of a stored integer.
    const ByteString early = Lease(Client(1), Address("10.0.0.1"), 60, -5).Serialize();
    EXPECT_EQ(ByteString(early.begin() + 4, early.begin() + 12), (ByteString{0xFB, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}));
    const Lease wide(Serializable::SerializeGroup({Tools::Int64ToBytes(0x1234'0000'0010LL),
                                                   Tools::Int64ToBytes(0x7'0000'0020LL),
                                                   ByteString(expected.begin() + 32, expected.begin() + 42),
                                                   {192, 168, 1, 240}}));
    EXPECT_EQ(wide.GetStartTime(), 0x10);
    EXPECT_EQ(wide.GetDuration(), 0x20);
}

TEST(LeaseFileTest, TablesRoundTripWithOrderStartTimesAndAwkwardBytes)
{
    TemporaryFolder folder;
    const std::string path = folder.FilePath("leases.dat");
    AllocationWorld written;
    written.addresses.SaveLeases(path); // an empty table is an empty file
    EXPECT_EQ(ReadBytes(path), ByteString());
    written.clock.Set(1'700'000'000);
    written.addresses.AddLease(Client(1), Address("192.168.1.245"), 3600);
    written.clock.Advance(42);
    written.addresses.AddLease(Client(2), Address("192.168.1.240"), 0);
    written.addresses.ReleaseLease(Address("192.168.1.245")); // expired rows are written too
    // 10, 13 and 26 (LF, CR, ^Z) in the start time, duration, hardware and IP.
    written.clock.Set(0x1A0D0A1A);
    const uint8_t awkward[16] = {10, 13, 26, 10, 13, 26, 10, 13, 26, 10, 13, 26, 10, 13, 26, 10};
    written.addresses.AddLease(HardwareAddress(awkward, 16, 13), Address("10.13.26.10"), 0x0A0D1A);
    written.addresses.SaveLeases(path);
    EXPECT_EQ(ReadBytes(path).size(), 2u * 50u + 60u); // the longest hardware address: a 60-byte record

    AllocationWorld read;
    read.addresses.AddLease(Client(9), Address("192.168.1.249"), 60); // replaced by the file
    read.addresses.LoadLeases(path);
    const std::vector<Lease> rows = read.addresses.GetLeases();
    ASSERT_EQ(rows.size(), 3u);
    EXPECT_TRUE(SameRows(rows, written.addresses.GetLeases()));
    EXPECT_EQ(rows[0].GetRemainingTime(1'700'000'042), -1); // released at that moment
    EXPECT_EQ(rows[1].GetStartTime(), 1'700'000'042);
    EXPECT_EQ(rows[2].GetStartTime(), 0x1A0D0A1A);

    written.addresses.UnserializeLeases({}); // and back to empty
    EXPECT_EQ(written.addresses.GetLeaseCount(), 0u);
}

TEST(LeaseFileTest, DamagedOrMissingFilesRaiseAndKeepTheTable)
{
    const ByteString good = TwoLeaseFile();
    ASSERT_EQ(good.size(), 100u);
    const ByteString start = Tools::Int64ToBytes(1'700'000'000);
    const ByteString hardware = {1, 0, 0, 0, 2, 0, 0, 0, 0, 9};
    const ByteString address = {192, 168, 1, 249};
    ByteString longHardware = {1, 0, 0, 0};
    longHardware.resize(4 + 17, 0x42);
    const ByteString goodGroup = Serializable::SerializeGroup({start, start, hardware, address});
    // A file of the good rows and one more record, holding `group`.
    const auto withRecord = [&](const ByteString& group) {
        ByteString file = good;
        const ByteString record = Serializable::SerializeGroup({group});
        file.insert(file.end(), record.begin(), record.end());
        return std::pair{file, group};
    };
    const auto withGroup = [&](const std::vector<ByteString>& items) {
        return withRecord(Serializable::SerializeGroup(items));
    };
    ByteString sizePastEnd = good;
    sizePastEnd[50] = 51; // the second record claims one byte more than is left

    const struct {
        const char* name;
        std::pair<ByteString, ByteString> fileAndGroup; // the group is the bad lease inside, if any
    } cases[] = {
        {"truncated", {ByteString(good.begin(), good.end() - 1), ByteString(goodGroup.begin(), goodGroup.end() - 1)}},
        {"size past the end", {sizePastEnd, [&] { ByteString bad = goodGroup; bad[0] = 9; return bad; }()}},
        {"three items", withGroup({start, start, hardware})},
        {"five items", withGroup({start, start, hardware, address, {7}})},
        {"an empty item, dropped", withGroup({start, start, {}, address})},
        {"7-byte integer", withGroup({ByteString(7, 0), start, hardware, address})},
        {"9-byte integer", withGroup({start, ByteString(9, 0), hardware, address})},
        {"17-byte hardware address", withGroup({start, start, longHardware, address})},
        {"3-byte IP address", withGroup({start, start, hardware, {1, 2, 3}})},
        {"not a group inside", withRecord({1, 2, 3, 4, 5})},
    };
    TemporaryFolder folder;
    const std::string path = folder.FilePath("leases.dat");
    for (const auto& [name, fileAndGroup] : cases) {
        AllocationWorld world;
        FillReferenceTable(world);
        const std::vector<Lease> before = world.addresses.GetLeases();
        WriteBytes(path, fileAndGroup.first);
        EXPECT_EQ(CodeRaisedBy([&] { world.addresses.LoadLeases(path); }), AppException::FileReadingError) << name;
        EXPECT_EQ(CodeRaisedBy([&] { world.addresses.UnserializeLeases(fileAndGroup.first); }),
                  AppException::FileReadingError)
            << name;
        EXPECT_TRUE(SameRows(world.addresses.GetLeases(), before)) << name;
        Lease lease = before[0];
        EXPECT_EQ(CodeRaisedBy([&] { lease.Unserialize(fileAndGroup.second); }), AppException::FileReadingError)
            << name;
        EXPECT_TRUE(SameRow(lease, before[0])) << name;
    }

    // Paths that are no readable file: missing, a folder, a FIFO without a
    // writer (an open for reading would block for ever).
    const std::string fifo = folder.FilePath("fifo.dat");
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    AllocationWorld world;
    FillReferenceTable(world);
    const std::vector<Lease> before = world.addresses.GetLeases();
    EXPECT_EQ(CodeRaisedBy([&] { world.addresses.LoadLeases(folder.FilePath("none.dat")); }),
              AppException::FileNotExists);
    EXPECT_EQ(CodeRaisedBy([&] { world.addresses.LoadLeases(folder.Path()); }), AppException::FileReadingError);
    EXPECT_EQ(CodeRaisedBy([&] { world.addresses.LoadLeases(fifo); }), AppException::FileReadingError);
    EXPECT_TRUE(SameRows(world.addresses.GetLeases(), before));
}

// A save that cannot write (a folder without write access) or that runs out
// of space part-way (a file size limit, as a full disk, also for root) returns
// quietly, keeps the table and leaves the previous file as it was. Both run
// in a child process, so that neither the user nor the limit stay.
TEST(LeaseFileTest, FailedOrInterruptedSaveLeavesThePreviousFileIntact)
{
    TemporaryFolder folder;
    const std::string locked = folder.FilePath("locked");
    std::filesystem::create_directory(locked);
    const std::string lockedPath = locked + "/leases.dat";
    const std::string path = folder.FilePath("leases.dat");
    WriteBytes(lockedPath, TwoLeaseFile());
    WriteBytes(path, TwoLeaseFile());
    ::chmod(lockedPath.c_str(), 0666);
    ::chmod(locked.c_str(), 0555);
    const auto saveKeepsTable = [](const std::string& target) {
        AllocationWorld world;
        for (int i = 0; i < 10; ++i) {
            world.addresses.AddLease(Client(i), IPv4Address(192, 168, 1, 240 + i), 60);
        }
        const std::vector<Lease> before = world.addresses.GetLeases();
        world.addresses.SaveLeases(target);
        return SameRows(world.addresses.GetLeases(), before) ? 0 : 1;
    };

    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        std::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit = {64, 64};
        ::_exit(::setrlimit(RLIMIT_FSIZE, &limit) != 0 ? 2 : saveKeepsTable(path));
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_EQ(ReadBytes(path), TwoLeaseFile());

    const int result = RunUnprivileged([&] { return saveKeepsTable(lockedPath); });
    if (result < 0) {
        GTEST_SKIP() << "cannot drop root privileges to test a folder without write access";
    }
    EXPECT_EQ(result, 0);
    EXPECT_EQ(ReadBytes(lockedPath), TwoLeaseFile());
    EXPECT_EQ(FileCount(locked), 1u); // no temporary file left behind
    EXPECT_EQ(FileCount(folder.Path()), 2u);
}

TEST(LeaseFileTest, ConstructionReadsLeasesDatAndDestructionSavesOnlyWithAListeningAddress)
{
    TemporaryFolder folder;
    // The working directory and TEMP are put back however the test ends.
    struct Restore {
        std::filesystem::path directory = std::filesystem::current_path();
        const char* temp = std::getenv("TEMP");
        std::string oldTemp = temp == nullptr ? "" : temp;
        ~Restore()
        {
            std::filesystem::current_path(directory);
            temp == nullptr ? ::unsetenv("TEMP") : ::setenv("TEMP", oldTemp.c_str(), 1);
        }
    } restore;
    std::filesystem::current_path(folder.Path());
    ::setenv("TEMP", folder.Path().c_str(), 1);

    WriteBytes("leases.dat", TwoLeaseFile());
    {
        AllocationWorld world;
        EXPECT_EQ(world.addresses.GetLeaseCount(), 2u);
        world.addresses.RemoveLease(Address("192.168.1.250"));
    }
    EXPECT_EQ(ReadBytes("leases.dat"), TwoLeaseFile()); // no listening address: nothing written

    WriteBytes("leases.dat", ByteString{1, 2, 3});
    {
        AllocationWorld world; // a damaged file is swallowed at construction
        EXPECT_EQ(world.addresses.GetLeaseCount(), 0u);
        world.addresses.AddLease(Client(5), Address("192.168.1.245"), 60);
        // No file for this address yet: the table in memory stays.
        world.settings.SetPreferredListeningAddress(Address("192.168.1.10"));
        EXPECT_EQ(world.addresses.GetLeasesFilePath(), folder.Path() + "/quorvy_leases_192.168.1.10.dat");
        EXPECT_EQ(world.addresses.GetLeaseCount(), 1u);
    }
    AllocationWorld world;
    world.settings.SetPreferredListeningAddress(Address("192.168.1.10"));
    ASSERT_EQ(world.addresses.GetLeaseCount(), 1u);
    EXPECT_EQ(world.addresses.GetLease(0).GetHardwareAddress(), Client(5));

    // A damaged file of another address is refused like a missing one: no
    // failure reaches the caller, and the table stays.
    WriteBytes(folder.FilePath("quorvy_leases_192.168.1.11.dat"), ByteString{46, 0, 0});
    EXPECT_EQ(CodeRaisedBy([&] { world.settings.SetPreferredListeningAddress(Address("192.168.1.11")); }), -1);
    EXPECT_EQ(world.addresses.GetLeaseCount(), 1u);
}

TEST(LeaseFileTest, ReloadingAlwaysGivesTheFileAsItStandsNow)
{
    // A load of the file the table last matched is skipped; what a load gives
    // must never show it. Files are aged by an hour, as a file from the last
    // run would be, so that the skip really comes into play.
    TemporaryFolder folder;
    const std::string path = folder.FilePath("leases.dat");
    const auto writeOld = [&](const ByteString& bytes) {
        WriteBytes(path, bytes);
        std::filesystem::last_write_time(path, std::filesystem::last_write_time(path) - std::chrono::hours(1));
    };
    AllocationWorld world;
    writeOld(TwoLeaseFile());
    world.addresses.LoadLeases(path);
    ASSERT_EQ(world.addresses.GetLeaseCount(), 2u);

    // A change of the table since the load: the load puts the file back.
    world.addresses.ReleaseLease(world.addresses.GetLease(0).GetIPAddress());
    world.addresses.AddLease(Client(9), Address("192.168.1.249"), 60);
    world.addresses.LoadLeases(path);
    ASSERT_EQ(world.addresses.GetLeaseCount(), 2u);
    EXPECT_FALSE(world.addresses.GetLease(0).IsExpired(world.clock.Now()));

    // A file written anew, even of the same size: read anew.
    const ByteString other = [] {
        AllocationWorld source;
        source.addresses.AddLease(Client(7), Address("192.168.1.247"), 30);
        source.addresses.AddLease(Client(8), Address("192.168.1.248"), 30);
        return source.addresses.SerializeLeases();
    }();
    ASSERT_EQ(other.size(), TwoLeaseFile().size());
    writeOld(other);
    world.addresses.LoadLeases(path);
    ASSERT_EQ(world.addresses.GetLeaseCount(), 2u);
    EXPECT_EQ(world.addresses.GetLease(0).GetHardwareAddress(), Client(7));

    // The skip is real: bytes changed behind an unchanged size and time are
    // not read again while the table is as loaded.
    const auto stamp = std::filesystem::last_write_time(path);
    WriteBytes(path, TwoLeaseFile());
    std::filesystem::last_write_time(path, stamp);
    world.addresses.LoadLeases(path);
    EXPECT_EQ(world.addresses.SerializeLeases(), other);

    // After a save the same holds: a later change of the table is undone by
    // a load, and a load right after the save gives the rows just saved.
    world.addresses.SaveLeases(path);
    world.addresses.RemoveLease(Address("192.168.1.247"));
    world.addresses.LoadLeases(path);
    EXPECT_EQ(world.addresses.GetLeaseCount(), 2u);
    world.addresses.SaveLeases(path);
    world.addresses.LoadLeases(path);
    EXPECT_EQ(world.addresses.SerializeLeases(), other);
}
