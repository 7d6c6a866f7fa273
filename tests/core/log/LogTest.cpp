#include "config/Settings.h"
#include "foundation/Tools.h"
#include "log/LogManager.h"

#include "support/FileText.h"
#include "support/ManualClock.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

const HardwareAddress CLIENT("00:11:22:33:44:55");
const std::nullopt_t NONE = std::nullopt;
constexpr int64_t MAY_FIRST_2024_123456 = 1714566896; // UTC
using Lines = std::vector<std::string>;

// Time stamps are local time; the texts are compared under UTC.
void UseTimeZone(const char* zone)
{
    ::setenv("TZ", zone, 1);
    ::tzset();
}

Lines FileLines(const std::string& path)
{
    Lines lines;
    std::istringstream contents(ReadText(path));
    for (std::string line; std::getline(contents, line);) {
        lines.push_back(line);
    }
    return lines;
}

const std::string START_LINE = "2024-05-01 12:34:56: Server start, listening IP address = 192.168.1.10";
const std::string DISCOVER_LINE =
    "2024-05-01 12:34:56: DHCP Discover received, client hardware address = 00:11:22:33:44:55";
const std::string STOP_LINE = "2024-05-01 12:34:56: Server stop";

class LogManagerTest : public ::testing::Test {
protected:
    LogManagerTest()
    {
        UseTimeZone("UTC");
        settings.SetLoggingEnabled(true);
        settings.SetLogFilePath(logPath);
    }

    void AddStart() { log.AddLogItem(ServerStart, NONE, IPv4Address(192, 168, 1, 10), false); }
    void AddStop() { log.AddLogItem(ServerStop, NONE, NONE, false); }
    void AddDiscover(bool ignored = false) { log.AddLogItem(DHCPDiscoverReceived, CLIENT, NONE, ignored); }

    TemporaryFolder folder;
    std::string logPath = folder.FilePath("log.txt");
    ManualClock clock{MAY_FIRST_2024_123456};
    Settings settings;
    LogManager log{&settings, &clock};
};

} // namespace

TEST(LogItemTest, FileLinesOfEveryKind)
{
    UseTimeZone("UTC");
    const IPv4Address address(192, 168, 1, 240);
    const std::string mac = "client hardware address = 00:11:22:33:44:55";
    const std::string ip = ", client IP address = 192.168.1.240";
    const struct {
        LogItem item;
        std::string line;
    } cases[] = {
        {LogItem(ServerStart, NONE, IPv4Address(192, 168, 1, 10), false, 0),
         "Server start, listening IP address = 192.168.1.10"},
        {LogItem(ServerStop, NONE, NONE, false, 0), "Server stop"},
        {LogItem(DHCPDiscoverReceived, CLIENT, NONE, false, 0), "DHCP Discover received, " + mac},
        {LogItem(DHCPDiscoverReceived, CLIENT, NONE, true, 0), "DHCP Discover received, message ignored, " + mac},
        {LogItem(DHCPOfferSent, CLIENT, address, false, 0),
         "DHCP Offer sent, " + mac + ", offered IP address = 192.168.1.240"},
        {LogItem(DHCPRequestReceived, CLIENT, IPv4Address(), false, 0), "DHCP Request received, " + mac},
        {LogItem(DHCPRequestReceived, CLIENT, address, false, 0), "DHCP Request received, " + mac + ip},
        {LogItem(DHCPAckSent, CLIENT, IPv4Address(), false, 0), "DHCP ACK sent, " + mac},
        {LogItem(DHCPNakSent, CLIENT, address, false, 0), "DHCP NAK sent, " + mac + ip},
        {LogItem(DHCPInformReceived, CLIENT, address, false, 0), "DHCP Inform received"},
        {LogItem(DHCPReleaseReceived, CLIENT, address, true, 0), "DHCP Release received, message ignored, " + mac + ip},
        {LogItem(static_cast<EventType>(12), CLIENT, address, false, 0), "other event"},
    };
    for (const auto& row : cases) {
        EXPECT_EQ(row.item.GetLogLine(), "1970-01-01 00:00:00: " + row.line);
    }
    EXPECT_EQ(LogItem::GetEventTypeName(-1), "other event");

    // The screen columns leave the ignored mark out.
    const LogItem ignored(DHCPDiscoverReceived, CLIENT, NONE, true, MAY_FIRST_2024_123456);
    EXPECT_EQ(ignored.GetEventName(), "DHCP Discover received");
    EXPECT_EQ(ignored.GetDetails(), mac);
    UseTimeZone("CET-1");
    EXPECT_EQ(ignored.GetTimeString(), "2024-05-01 13:34:56"); // local time
}

TEST_F(LogManagerTest, ThreeFiltersInOrderAndItemsByIndex)
{
    settings.SetLoggingEnabled(false);
    settings.SetLogIgnoredDHCPMessages(true);
    AddStart();
    settings.SetLoggingEnabled(true);
    settings.SetLogEventEnabled(ServerStop, false);
    AddStop();
    settings.SetLogIgnoredDHCPMessages(false);
    AddDiscover(true);
    EXPECT_EQ(log.GetLogItemCount(), 0u);

    AddDiscover();
    settings.SetLogIgnoredDHCPMessages(true);
    clock.Advance(1);
    AddDiscover(true);
    // A disabled kind stays out even for an ignored message.
    settings.SetLogEventEnabled(DHCPDiscoverReceived, false);
    AddDiscover(true);
    AddStart();

    const std::vector<LogItem> items = log.GetLogItems(1);
    ASSERT_EQ(items.size(), 2u);
    EXPECT_EQ(items[0].GetLogLine(), "2024-05-01 12:34:57: DHCP Discover received, message ignored, client hardware "
                                     "address = 00:11:22:33:44:55");
    EXPECT_EQ(items[1].GetLogLine(), "2024-05-01 12:34:57: Server start, listening IP address = 192.168.1.10");
    EXPECT_EQ(log.GetLogItems(0)[0].GetLogLine(), DISCOVER_LINE);
    EXPECT_TRUE(log.GetLogItems(3).empty());
}

TEST_F(LogManagerTest, EachRunAppendsItsNewItemsWhileRunningAtStopAndFromTheDestructor)
{
    ASSERT_TRUE(WriteText(logPath, "an earlier line\n"));
    log.StartSavingThread();
    AddStart();
    // The thread saves every two seconds; give it ample time.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (FileLines(logPath).size() < 2 && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    EXPECT_EQ(FileLines(logPath), (Lines{"an earlier line", START_LINE}));
    AddDiscover();
    AddStop();
    log.StopSavingThread(); // a stop right after an item still writes it
    EXPECT_FALSE(log.IsSavingThreadRunning());
    EXPECT_EQ(ReadText(logPath), "an earlier line\n" + START_LINE + "\n" + DISCOVER_LINE + "\n" + STOP_LINE + "\n");

    log.StartSavingThread(); // a run that logs nothing writes nothing
    log.StopSavingThread();
    {
        LogManager scoped(&settings, &clock);
        scoped.StartSavingThread();
        scoped.AddLogItem(ServerStop, NONE, NONE, false);
    }
    EXPECT_EQ(FileLines(logPath), (Lines{"an earlier line", START_LINE, DISCOVER_LINE, STOP_LINE, STOP_LINE}));
}

TEST_F(LogManagerTest, LinesForALogFileThatCannotBeOpenedStayInMemory)
{
    for (const std::string& unusable : {folder.FilePath("no-such-folder/log.txt"), std::string()}) {
        settings.SetLogFilePath(unusable);
        AddStart();
        log.StartSavingThread();
        AddStop();
        log.StopSavingThread();
    }
    EXPECT_EQ(log.GetLogItemCount(), 4u);
    EXPECT_FALSE(Tools::FileExists(folder.FilePath("no-such-folder")));
    // Those lines are lost for the file; the next run writes only its own.
    settings.SetLogFilePath(logPath);
    log.StartSavingThread();
    AddDiscover();
    log.StopSavingThread();
    EXPECT_EQ(FileLines(logPath), Lines{DISCOVER_LINE});
}

TEST_F(LogManagerTest, TwoWritersWhileTheThreadSaves)
{
    constexpr int PER_WRITER = 3000; // together more than one save slice
    log.StartSavingThread();
    std::thread discovers([&] {
        for (int i = 0; i < PER_WRITER; ++i) {
            AddDiscover();
        }
    });
    for (int i = 0; i < PER_WRITER; ++i) {
        AddStart();
    }
    discovers.join();
    log.StopSavingThread();
    // The file holds every item once, in the order of the list.
    const std::vector<LogItem> items = log.GetLogItems(0);
    const Lines lines = FileLines(logPath);
    ASSERT_EQ(items.size(), 2u * PER_WRITER);
    ASSERT_EQ(lines.size(), items.size());
    for (size_t i = 0; i < items.size(); ++i) {
        ASSERT_EQ(lines[i], items[i].GetLogLine()) << i;
    }
}

TEST_F(LogManagerTest, SnapshotReadsWhileItemsArriveAndOutlivesItsLog)
{
    const size_t count = 2 * LogItemList::ITEMS_PER_BLOCK + 5; // three blocks, the last one partly filled
    std::thread writer([&] {
        for (size_t i = 0; i < count; ++i) {
            i % 2 == 0 ? AddDiscover() : AddStart();
        }
    });
    // Each extension shows exactly the items stored by then, in order.
    LogSnapshot snapshot;
    for (size_t seen = 0; seen < count;) {
        log.ExtendSnapshot(snapshot);
        for (; seen < snapshot.Size(); ++seen) {
            ASSERT_EQ(snapshot[seen].GetEventType(), seen % 2 == 0 ? DHCPDiscoverReceived : ServerStart) << seen;
        }
    }
    writer.join();
    log.ExtendSnapshot(snapshot);
    ASSERT_EQ(snapshot.Size(), count);
    EXPECT_EQ(snapshot[count - 1].GetLogLine(), DISCOVER_LINE);

    LogSnapshot kept;
    {
        LogManager scoped(&settings, &clock);
        scoped.AddLogItem(ServerStop, NONE, NONE, false);
        scoped.ExtendSnapshot(kept);
    }
    EXPECT_EQ(kept[0].GetLogLine(), STOP_LINE);
}
