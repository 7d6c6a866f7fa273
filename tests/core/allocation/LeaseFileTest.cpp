#include "AllocationTestWorld.h"

#include "foundation/Serializable.h"
#include "foundation/Tools.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>

#include <grp.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

const HardwareAddress EXAMPLE_CLIENT(std::string("00:11:22:33:44:55"));

// The table that every damaged file must leave alone: two rows, one released.
void FillReferenceTable(AllocationWorld& world)
{
    world.addresses.AddLease(Client(1), Address("192.168.1.241"), 600);
    world.clock.Advance(7);
    world.addresses.AddLease(Client(2), Address("192.168.1.242"), 3600);
    world.addresses.ReleaseLease(Address("192.168.1.241"));
}

// A real file of two leases, as a damaged file starts out.
ByteString TwoLeaseFile()
{
    AllocationWorld source;
    source.addresses.AddLease(Client(10), Address("192.168.1.250"), 100);
    source.addresses.AddLease(Client(11), Address("192.168.1.251"), 200);
    return source.addresses.SerializeLeases();
}

ByteString WithRecord(ByteString file, const ByteString& leaseGroup)
{
    const ByteString record = Serializable::SerializeGroup({leaseGroup});
    file.insert(file.end(), record.begin(), record.end());
    return file;
}

const ByteString START = Tools::Int64ToBytes(1'700'000'000);
const ByteString DURATION = Tools::Int64ToBytes(3600);
const ByteString HARDWARE = {1, 0, 0, 0, 2, 0, 0, 0, 0, 9};
const ByteString ADDRESS = {192, 168, 1, 249};

// Runs `action` in a child process that has dropped root, so that folder
// permissions apply. Returns its exit status, or -1 when it could not.
int RunUnprivileged(const std::function<int()>& action)
{
    if (::geteuid() != 0) {
        return action();
    }
    const pid_t child = ::fork();
    if (child == 0) {
        const uid_t nobody = 65534;
        if (::setgroups(0, nullptr) != 0 || ::setgid(nobody) != 0 || ::setuid(nobody) != 0) {
            ::_exit(255);
        }
        ::_exit(action());
    }
    int status = 0;
    if (child < 0 || ::waitpid(child, &status, 0) != child || !WIFEXITED(status) || WEXITSTATUS(status) == 255) {
        return -1;
    }
    return WEXITSTATUS(status);
}

class CurrentDirectoryGuard {
public:
    explicit CurrentDirectoryGuard(const std::string& folder) : saved(std::filesystem::current_path())
    {
        std::filesystem::current_path(folder);
    }
    ~CurrentDirectoryGuard() { std::filesystem::current_path(saved); }

private:
    std::filesystem::path saved;
};

class EnvironmentGuard {
public:
    EnvironmentGuard(const char* name, const std::string& value) : name(name)
    {
        const char* old = std::getenv(name);
        if (old != nullptr) {
            saved = old;
        }
        ::setenv(name, value.c_str(), 1);
    }
    ~EnvironmentGuard()
    {
        if (saved) {
            ::setenv(name, saved->c_str(), 1);
        } else {
            ::unsetenv(name);
        }
    }

private:
    const char* name;
    std::optional<std::string> saved;
};

} // namespace

TEST(LeaseFileTest, OneLeaseFileIsByteExact)
{
    TemporaryFolder folder;
    AllocationWorld world;
    world.clock.Set(1'700'000'000);
    world.addresses.AddLease(EXAMPLE_CLIENT, Address("192.168.1.240"), 3600);
    const std::string path = folder.FilePath("leases.dat");
    world.addresses.SaveLeases(path);

    const ByteString expected = {
        46, 0, 0, 0,
        8, 0, 0, 0, 0x00, 0xF1, 0x53, 0x65, 0, 0, 0, 0,
        8, 0, 0, 0, 16, 14, 0, 0, 0, 0, 0, 0,
        10, 0, 0, 0, 1, 0, 0, 0, 0, 17, 34, 51, 68, 85,
        4, 0, 0, 0, 192, 168, 1, 240,
    };
    EXPECT_EQ(ReadBytes(path), expected);
    EXPECT_EQ(world.addresses.SerializeLeases(), expected);
}

TEST(LeaseFileTest, TablesRoundTripWithOrderStartTimesAndAwkwardBytes)
{
    TemporaryFolder folder;
    const std::string path = folder.FilePath("leases.dat");
    AllocationWorld written;
    written.clock.Set(1'700'000'000);
    written.addresses.AddLease(Client(1), Address("192.168.1.245"), 3600);
    written.clock.Advance(42);
    written.addresses.AddLease(Client(2), Address("192.168.1.240"), 0);
    written.addresses.ReleaseLease(Address("192.168.1.245")); // expired rows are written too
    // 10, 13 and 26 (LF, CR, ^Z) in the start time, duration, hardware and IP.
    written.clock.Set(0x1A0D0A1A);
    const uint8_t awkward[6] = {10, 13, 26, 10, 13, 26};
    written.addresses.AddLease(HardwareAddress(awkward, 6, 13), Address("10.13.26.10"), 0x0A0D1A);
    written.addresses.SaveLeases(path);
    EXPECT_EQ(ReadBytes(path).size(), 3u * 50u);

    AllocationWorld read;
    read.addresses.AddLease(Client(9), Address("192.168.1.249"), 60); // replaced by the file
    read.addresses.LoadLeases(path);
    const std::vector<Lease> rows = read.addresses.GetLeases();
    ASSERT_EQ(rows.size(), 3u);
    EXPECT_TRUE(SameRows(rows, written.addresses.GetLeases()));
    EXPECT_EQ(rows[0].GetIPAddress(), Address("192.168.1.245"));
    EXPECT_EQ(rows[1].GetStartTime(), 1'700'000'042);
    EXPECT_EQ(rows[2].GetStartTime(), 0x1A0D0A1A);
    EXPECT_EQ(rows[2].GetDuration(), 0x0A0D1A);
    EXPECT_EQ(rows[2].GetHardwareAddress().GetType(), 13u);
    EXPECT_EQ(rows[0].GetRemainingTime(1'700'000'042), -1); // released at that moment
}

TEST(LeaseFileTest, EmptyTableIsAnEmptyFileAndBack)
{
    TemporaryFolder folder;
    const std::string path = folder.FilePath("leases.dat");
    AllocationWorld world;
    world.addresses.SaveLeases(path);
    ASSERT_TRUE(std::filesystem::exists(path));
    EXPECT_EQ(std::filesystem::file_size(path), 0u);

    FillReferenceTable(world);
    world.addresses.LoadLeases(path);
    EXPECT_EQ(world.addresses.GetLeaseCount(), 0u);
}

TEST(LeaseFileTest, MissingFileRaisesFileNotExistsAndKeepsTheTable)
{
    TemporaryFolder folder;
    AllocationWorld world;
    FillReferenceTable(world);
    const std::vector<Lease> before = world.addresses.GetLeases();
    EXPECT_EQ(CodeRaisedBy([&] { world.addresses.LoadLeases(folder.FilePath("none.dat")); }),
              AppException::FileNotExists);
    world.addresses.SetLeasesFilePath(folder.FilePath("also-none.dat"));
    EXPECT_EQ(CodeRaisedBy([&] { world.addresses.LoadLeases(); }), AppException::FileNotExists);
    EXPECT_TRUE(SameRows(world.addresses.GetLeases(), before));
}

TEST(LeaseFileTest, DamagedFilesRaiseFileReadingErrorAndKeepTheTable)
{
    const ByteString good = TwoLeaseFile();
    ASSERT_EQ(good.size(), 100u);
    ByteString sizePastEnd = good;
    sizePastEnd[50] = 51; // the second record claims one byte more than is left
    ByteString lengthInHeader = good;
    lengthInHeader[3] = 0x80; // a size of 2^31 + 46

    const struct {
        const char* name;
        ByteString data;
    } cases[] = {
        {"truncated in the last item", ByteString(good.begin(), good.end() - 1)},
        {"truncated inside a size field", ByteString(good.begin(), good.begin() + 52)},
        {"two stray bytes", ByteString{46, 0}},
        {"size past the end", sizePastEnd},
        {"huge size", lengthInHeader},
        {"three items", WithRecord(good, Serializable::SerializeGroup({START, DURATION, HARDWARE}))},
        {"five items", WithRecord(good, Serializable::SerializeGroup({START, DURATION, HARDWARE, ADDRESS, {7}}))},
        {"7-byte integer",
         WithRecord(good, Serializable::SerializeGroup({ByteString(7, 0), DURATION, HARDWARE, ADDRESS}))},
        {"17-byte hardware address",
         WithRecord(good, Serializable::SerializeGroup({START, DURATION, [] {
                                                            ByteString hardware = {1, 0, 0, 0};
                                                            hardware.resize(21, 0x42);
                                                            return hardware;
                                                        }(),
                                                        ADDRESS}))},
        {"3-byte IP address", WithRecord(good, Serializable::SerializeGroup({START, DURATION, HARDWARE, {1, 2, 3}}))},
        {"not a group inside", WithRecord(good, ByteString{1, 2, 3, 4, 5})},
    };
    for (const auto& testCase : cases) {
        TemporaryFolder folder;
        const std::string path = folder.FilePath("leases.dat");
        WriteBytes(path, testCase.data);
        AllocationWorld world;
        FillReferenceTable(world);
        const std::vector<Lease> before = world.addresses.GetLeases();
        EXPECT_EQ(CodeRaisedBy([&] { world.addresses.LoadLeases(path); }), AppException::FileReadingError)
            << testCase.name;
        EXPECT_TRUE(SameRows(world.addresses.GetLeases(), before)) << testCase.name;
        EXPECT_EQ(CodeRaisedBy([&] { world.addresses.UnserializeLeases(testCase.data); }),
                  AppException::FileReadingError)
            << testCase.name;
        EXPECT_TRUE(SameRows(world.addresses.GetLeases(), before)) << testCase.name;
    }
    // The good file itself loads, as a check on the cases above.
    AllocationWorld world;
    world.addresses.UnserializeLeases(good);
    EXPECT_EQ(world.addresses.GetLeaseCount(), 2u);
}

TEST(LeaseFileTest, PathsThatAreNoPlainFileRaiseWithoutWaiting)
{
    TemporaryFolder folder;
    AllocationWorld world;
    FillReferenceTable(world);
    const std::vector<Lease> before = world.addresses.GetLeases();

    EXPECT_EQ(CodeRaisedBy([&] { world.addresses.LoadLeases(folder.Path()); }), AppException::FileReadingError);
    // A FIFO without a writer would block an open for reading for ever.
    const std::string fifo = folder.FilePath("fifo.dat");
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    EXPECT_EQ(CodeRaisedBy([&] { world.addresses.LoadLeases(fifo); }), AppException::FileReadingError);
    EXPECT_TRUE(SameRows(world.addresses.GetLeases(), before));
}

TEST(LeaseFileTest, FailedSaveLeavesThePreviousFileIntact)
{
    TemporaryFolder folder;
    const std::string locked = folder.FilePath("locked");
    std::filesystem::create_directory(locked);
    const std::string path = locked + "/leases.dat";
    const ByteString previous = TwoLeaseFile();
    WriteBytes(path, previous);
    ::chmod(path.c_str(), 0666);
    ::chmod(locked.c_str(), 0555);

    // Exit status 0: SaveLeases returned quietly and the table is untouched.
    const int result = RunUnprivileged([&] {
        AllocationWorld world;
        FillReferenceTable(world);
        const std::vector<Lease> before = world.addresses.GetLeases();
        world.addresses.SaveLeases(path);
        return SameRows(world.addresses.GetLeases(), before) ? 0 : 1;
    });
    if (result < 0) {
        GTEST_SKIP() << "cannot drop root privileges to test a folder without write access";
    }
    EXPECT_EQ(result, 0);
    EXPECT_EQ(ReadBytes(path), previous);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(locked), std::filesystem::directory_iterator()), 1);
}

TEST(LeaseFileTest, SaveThatRunsOutOfSpaceLeavesThePreviousFileIntact)
{
    TemporaryFolder folder;
    const std::string path = folder.FilePath("leases.dat");
    const ByteString previous = TwoLeaseFile();
    WriteBytes(path, previous);

    // A file size limit makes the write fail part-way, as a full disk does,
    // also for root. It runs in a child so that the limit stays there.
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        std::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit = {64, 64};
        if (::setrlimit(RLIMIT_FSIZE, &limit) != 0) {
            ::_exit(2);
        }
        AllocationWorld world;
        for (int i = 0; i < 10; ++i) {
            world.addresses.AddLease(Client(i), IPv4Address(192, 168, 1, 240 + i), 60);
        }
        world.addresses.SaveLeases(path);
        ::_exit(world.addresses.GetLeaseCount() == 10 ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_EQ(ReadBytes(path), previous);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.Path()), std::filesystem::directory_iterator()),
              1);
}

TEST(LeaseFileTest, ConstructionReadsLeasesDatAndDestructionSavesOnlyWithAListeningAddress)
{
    TemporaryFolder folder;
    const CurrentDirectoryGuard inFolder(folder.Path());
    const EnvironmentGuard temp("TEMP", folder.Path());

    WriteBytes("leases.dat", TwoLeaseFile());
    {
        AllocationWorld world;
        EXPECT_EQ(world.addresses.GetLeaseCount(), 2u);
        EXPECT_EQ(world.addresses.GetLeasesFilePath(), "leases.dat");
        world.addresses.RemoveLease(Address("192.168.1.250"));
    }
    // No listening address was ever set: nothing was written.
    EXPECT_EQ(ReadBytes("leases.dat"), TwoLeaseFile());

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
    const ByteString saved = ReadBytes(folder.FilePath("quorvy_leases_192.168.1.10.dat"));
    EXPECT_EQ(saved.size(), 50u);

    AllocationWorld world;
    world.settings.SetPreferredListeningAddress(Address("192.168.1.10"));
    ASSERT_EQ(world.addresses.GetLeaseCount(), 1u);
    EXPECT_EQ(world.addresses.GetLease(0).GetHardwareAddress(), Client(5));

    // A damaged file of another address is refused like a missing one: no
    // failure reaches the caller, and the table stays.
    WriteBytes(folder.FilePath("quorvy_leases_192.168.1.11.dat"), ByteString{46, 0, 0});
    EXPECT_EQ(CodeRaisedBy([&] { world.settings.SetPreferredListeningAddress(Address("192.168.1.11")); }), -1);
    ASSERT_EQ(world.addresses.GetLeaseCount(), 1u);
    EXPECT_EQ(world.addresses.GetLease(0).GetHardwareAddress(), Client(5));
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
