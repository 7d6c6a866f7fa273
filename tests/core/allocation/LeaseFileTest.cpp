#include "support/AllocationWorld.h"
#include "support/RaisedCode.h"
#include "support/TestHardware.h"

#include "foundation/Serializable.h"
#include "foundation/Tools.h"
#include "support/FileText.h"
#include "support/ScopedEnvironment.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <filesystem>

#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

ByteString ReadBytes(const std::string& path)
{
    const std::string text = ReadText(path);
    return ByteString(text.begin(), text.end());
}

void WriteBytes(const std::string& path, const ByteString& bytes)
{
    WriteText(path, std::string(bytes.begin(), bytes.end()));
}

ByteString TwoLeaseFile(int first = 10, int second = 11)
{
    AllocationWorld source;
    source.addresses.AddLease(TestHardware(first), IPv4Address(192, 168, 1, 240 + first), 100);
    source.addresses.AddLease(TestHardware(second), IPv4Address(192, 168, 1, 240 + second), 200);
    return source.addresses.SerializeLeases();
}

} // namespace

TEST(LeaseFileTest, FileIsByteExactAndRoundTripsOrderStartTimesAndAwkwardBytes)
{
    TemporaryFolder folder;
    const std::string path = folder.FilePath("leases.dat");
    AllocationWorld written;
    written.addresses.SaveLeases(path); // an empty table is an empty file
    EXPECT_EQ(ReadBytes(path), ByteString());
    written.addresses.AddLease(HardwareAddress(std::string("00:11:22:33:44:55")), Address("192.168.1.240"), 3600);
    written.addresses.SaveLeases(path);
    EXPECT_EQ(ReadBytes(path), (ByteString{
                                   46, 0, 0, 0,                                    // the one record
                                   8, 0, 0, 0, 0x00, 0xF1, 0x53, 0x65, 0, 0, 0, 0, // start time 1'700'000'000
                                   8, 0, 0, 0, 16, 14, 0, 0, 0, 0, 0, 0,           // duration
                                   10, 0, 0, 0, 1, 0, 0, 0, 0, 17, 34, 51, 68, 85, // hardware type, then address
                                   4, 0, 0, 0, 192, 168, 1, 240,                   // IP address
                               }));
    // A negative start time is sign-extended; a reader keeps only the low 32 bits.
    const ByteString early = Lease(TestHardware(1), Address("10.0.0.1"), 60, -5).Serialize();
    EXPECT_EQ(ByteString(early.begin() + 4, early.begin() + 12),
              (ByteString{0xFB, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}));
    const Lease wide(Serializable::SerializeGroup(
        {Tools::Int64ToBytes(0x1234'0000'0010LL), Tools::Int64ToBytes(0x7'0000'0020LL), TestHardware(1).Serialize(), {10, 0, 0, 1}}));
    EXPECT_EQ(wide.GetStartTime(), 0x10);
    EXPECT_EQ(wide.GetDuration(), 0x20);

    written.clock.Advance(42);
    written.addresses.AddLease(TestHardware(2), Address("192.168.1.245"), 0);
    written.addresses.ReleaseLease(Address("192.168.1.240")); // expired rows are written too
    // 10, 13 and 26 (LF, CR, ^Z) in the start time, duration, hardware and IP.
    written.clock.Set(0x1A0D0A1A);
    const uint8_t awkward[16] = {10, 13, 26, 10, 13, 26, 10, 13, 26, 10, 13, 26, 10, 13, 26, 10};
    written.addresses.AddLease(HardwareAddress(awkward, 16, 13), Address("10.13.26.10"), 0x0A0D1A);
    written.addresses.SaveLeases(path);
    EXPECT_EQ(ReadBytes(path).size(), 2u * 50u + 60u); // the longest hardware address: a 60-byte record

    AllocationWorld read;
    read.addresses.AddLease(TestHardware(9), Address("192.168.1.249"), 60); // replaced by the file
    read.addresses.LoadLeases(path);
    EXPECT_EQ(read.addresses.GetLeaseCount(), 3u);
    EXPECT_TRUE(SameRows(read.addresses.GetLeases(), written.addresses.GetLeases()));
    read.addresses.UnserializeLeases({}); // and back to empty
    EXPECT_EQ(read.addresses.GetLeaseCount(), 0u);
}

// One case for each way a file can be short or damaged: the whole file is
// refused and the table stays as it was.
TEST(LeaseFileTest, DamagedOrMissingFilesRaiseAndKeepTheTable)
{
    const ByteString good = TwoLeaseFile();
    ASSERT_EQ(good.size(), 100u);
    const ByteString start = Tools::Int64ToBytes(1'700'000'000);
    const ByteString hardware = TestHardware(9).Serialize();
    const ByteString address = {192, 168, 1, 249};
    ByteString longHardware = {1, 0, 0, 0};
    longHardware.resize(4 + 17, 0x42);
    // The good rows and one more record, holding `group`.
    const auto withRecord = [&](const ByteString& group) {
        ByteString file = good;
        const ByteString record = Serializable::SerializeGroup({group});
        file.insert(file.end(), record.begin(), record.end());
        return file;
    };
    const auto withGroup = [&](const std::vector<ByteString>& items) { return withRecord(Serializable::SerializeGroup(items)); };
    ByteString sizePastEnd = good;
    sizePastEnd[50] = 51; // the second record claims one byte more than is left
    ByteString itemPastRecord = withGroup({start, start, hardware, address});
    itemPastRecord[142] = 5; // its IP address item claims one byte more than the record holds

    const struct {
        const char* name;
        ByteString file;
    } cases[] = {
        {"truncated", ByteString(good.begin(), good.end() - 1)},
        {"size field cut short", ByteString(good.begin(), good.begin() + 52)},
        {"record size past the end", sizePastEnd},
        {"item size past its record", itemPastRecord},
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
    AllocationWorld world;
    world.addresses.UnserializeLeases(TwoLeaseFile(1, 2));
    const std::vector<Lease> before = world.addresses.GetLeases();
    for (const auto& [name, file] : cases) {
        WriteBytes(path, file);
        EXPECT_EQ(CodeRaisedBy([&] { world.addresses.LoadLeases(path); }), AppException::FileReadingError) << name;
        EXPECT_TRUE(SameRows(world.addresses.GetLeases(), before)) << name;
    }

    // Paths that are no readable file: missing, a folder, a FIFO without a
    // writer (an open for reading would block for ever).
    const std::string fifo = folder.FilePath("fifo.dat");
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    EXPECT_EQ(CodeRaisedBy([&] { world.addresses.LoadLeases(folder.FilePath("none.dat")); }), AppException::FileNotExists);
    EXPECT_EQ(CodeRaisedBy([&] { world.addresses.LoadLeases(folder.Path()); }), AppException::FileReadingError);
    EXPECT_EQ(CodeRaisedBy([&] { world.addresses.LoadLeases(fifo); }), AppException::FileReadingError);
    EXPECT_TRUE(SameRows(world.addresses.GetLeases(), before));
}

// A save that runs out of space part-way (a file size limit, as a full disk,
// also for root) returns quietly, keeps the table and leaves the previous
// file as it was. It runs in a child process, so that the limit does not stay.
TEST(LeaseFileTest, InterruptedSaveLeavesThePreviousFileIntact)
{
    TemporaryFolder folder;
    const std::string path = folder.FilePath("leases.dat");
    WriteBytes(path, TwoLeaseFile());
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        std::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit = {64, 64};
        AllocationWorld world;
        for (int i = 0; i < 10; ++i) {
            world.addresses.AddLease(TestHardware(i), IPv4Address(192, 168, 1, 240 + i), 60);
        }
        const std::vector<Lease> before = world.addresses.GetLeases();
        if (::setrlimit(RLIMIT_FSIZE, &limit) == 0) {
            world.addresses.SaveLeases(path);
        }
        ::_exit(SameRows(world.addresses.GetLeases(), before) ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_EQ(ReadBytes(path), TwoLeaseFile());
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.Path()), {}), 1); // no temporary file left
}

// Construction reads "leases.dat" of the working directory; destruction saves
// only once a listening address is known, to that address's file. Damaged
// files are swallowed at both loads, and the table stays.
TEST(LeaseFileTest, ConstructionReadsLeasesDatAndDestructionSavesOnlyWithAListeningAddress)
{
    TemporaryFolder folder;
    ScopedEnvironment environment;
    std::filesystem::current_path(folder.Path());
    environment.Set("TEMP", folder.Path());

    WriteBytes("leases.dat", TwoLeaseFile());
    {
        AllocationWorld world;
        EXPECT_EQ(world.addresses.GetLeaseCount(), 2u);
        world.addresses.RemoveLease(Address("192.168.1.250"));
    }
    EXPECT_EQ(ReadBytes("leases.dat"), TwoLeaseFile()); // no listening address: nothing written

    WriteBytes("leases.dat", ByteString{1, 2, 3});
    const std::string ownFile = folder.FilePath("quorvy_leases_192.168.1.10.dat");
    WriteBytes(ownFile, ByteString{46, 0, 0});
    {
        AllocationWorld world;
        EXPECT_EQ(world.addresses.GetLeaseCount(), 0u);
        world.addresses.AddLease(TestHardware(5), Address("192.168.1.245"), 60);
        EXPECT_EQ(CodeRaisedBy([&] { world.settings.SetPreferredListeningAddress(Address("192.168.1.10")); }), -1);
        EXPECT_EQ(world.addresses.GetLeaseCount(), 1u);
    }
    const Lease saved(TestHardware(5), Address("192.168.1.245"), 60, 1'700'000'000);
    EXPECT_EQ(ReadBytes(ownFile), Serializable::SerializeGroup({saved.Serialize()}));
}

// A load of the file the table last matched is skipped; what a load gives
// must never show it. Files are aged by an hour, as a file from the last run
// would be, so that the skip comes into play.
TEST(LeaseFileTest, ReloadingAlwaysGivesTheFileAsItStandsNow)
{
    TemporaryFolder folder;
    const std::string path = folder.FilePath("leases.dat");
    const auto writeOld = [&](const ByteString& bytes) {
        WriteBytes(path, bytes);
        std::filesystem::last_write_time(path, std::filesystem::last_write_time(path) - std::chrono::hours(1));
    };
    AllocationWorld world;
    writeOld(TwoLeaseFile());
    world.addresses.LoadLeases(path);
    world.addresses.ReleaseLease(Address("192.168.1.250")); // changed since the load: the load puts the file back
    world.addresses.LoadLeases(path);
    EXPECT_EQ(world.addresses.SerializeLeases(), TwoLeaseFile());
    writeOld(TwoLeaseFile(7, 8)); // written anew, of the same size: read anew
    world.addresses.LoadLeases(path);
    EXPECT_EQ(world.addresses.SerializeLeases(), TwoLeaseFile(7, 8));
}
