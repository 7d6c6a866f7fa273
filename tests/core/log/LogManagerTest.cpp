#include "log/LogManager.h"

#include "LogTestSupport.h"
#include "config/Settings.h"
#include "foundation/Tools.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

const HardwareAddress CLIENT("00:11:22:33:44:55");
const IPv4Address LISTENING(192, 168, 1, 10);

std::string ReadFile(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream contents;
    contents << file.rdbuf();
    return contents.str();
}

std::vector<std::string> FileLines(const std::string& path)
{
    std::vector<std::string> lines;
    std::istringstream contents(ReadFile(path));
    for (std::string line; std::getline(contents, line);) {
        lines.push_back(line);
    }
    return lines;
}

class LogManagerTest : public ::testing::Test {
protected:
    LogManagerTest()
    {
        settings.SetLoggingEnabled(true);
        settings.SetLogFilePath(logPath);
    }

    void AddStart() { log.AddLogItem(ServerStart, std::nullopt, LISTENING, false); }
    void AddStop() { log.AddLogItem(ServerStop, std::nullopt, std::nullopt, false); }
    void AddDiscover(bool ignored = false) { log.AddLogItem(DHCPDiscoverReceived, CLIENT, std::nullopt, ignored); }
    void AddOffer() { log.AddLogItem(DHCPOfferSent, CLIENT, IPv4Address(192, 168, 1, 240), false); }

    std::vector<std::string> ItemLines(size_t fromIndex = 0) const
    {
        std::vector<std::string> lines;
        for (const LogItem& item : log.GetLogItems(fromIndex)) {
            lines.push_back(item.GetLogLine());
        }
        return lines;
    }

    UtcTimeZone utc;
    TemporaryFolder folder;
    std::string logPath = folder.FilePath("log.txt");
    FixedClock clock{MAY_FIRST_2024_123456};
    Settings settings;
    LogManager log{&settings, &clock};
};

} // namespace

TEST_F(LogManagerTest, ThreeFiltersInOrder)
{
    settings.SetLoggingEnabled(false);
    settings.SetLogIgnoredDHCPMessages(true);
    AddStart();
    AddDiscover(true);
    EXPECT_EQ(log.GetLogItemCount(), 0u);

    settings.SetLoggingEnabled(true);
    settings.SetLogEventEnabled(DHCPOfferSent, false);
    AddOffer();
    AddDiscover();
    EXPECT_EQ(log.GetLogItemCount(), 1u);

    settings.SetLogIgnoredDHCPMessages(false);
    AddDiscover(true);
    EXPECT_EQ(log.GetLogItemCount(), 1u);
    settings.SetLogIgnoredDHCPMessages(true);
    AddDiscover(true);
    // A disabled kind stays out even for an ignored message.
    settings.SetLogEventEnabled(DHCPDiscoverReceived, false);
    AddDiscover(true);
    AddDiscover();

    const std::vector<LogItem> items = log.GetLogItems(0);
    ASSERT_EQ(items.size(), 2u);
    EXPECT_FALSE(items[0].IsMessageIgnored());
    EXPECT_TRUE(items[1].IsMessageIgnored());
    EXPECT_EQ(items[0].GetTimeString(), "2024-05-01 12:34:56");
}

TEST_F(LogManagerTest, ItemsByIndexInOrderOfAdding)
{
    EXPECT_TRUE(log.GetLogItems(0).empty());
    AddStart();
    clock.Set(MAY_FIRST_2024_123456 + 1);
    AddDiscover();
    clock.Set(MAY_FIRST_2024_123456 + 2);
    AddOffer();
    EXPECT_EQ(ItemLines(0).size(), 3u);
    EXPECT_EQ(ItemLines(1), (std::vector<std::string>{
                                "2024-05-01 12:34:57: DHCP Discover received, client hardware address = 00:11:22:33:44:55",
                                "2024-05-01 12:34:58: DHCP Offer sent, client hardware address = 00:11:22:33:44:55, "
                                "offered IP address = 192.168.1.240"}));
    EXPECT_EQ(ItemLines(2).size(), 1u);
    EXPECT_TRUE(log.GetLogItems(3).empty());
}

TEST_F(LogManagerTest, AStopRightAfterAStartLeavesTheStopLineInTheFile)
{
    AddStart();
    log.StartSavingThread();
    EXPECT_TRUE(log.IsSavingThreadRunning());
    AddDiscover();
    AddStop();
    log.StopSavingThread();
    EXPECT_FALSE(log.IsSavingThreadRunning());
    EXPECT_EQ(ReadFile(logPath),
              "2024-05-01 12:34:56: Server start, listening IP address = 192.168.1.10\n"
              "2024-05-01 12:34:56: DHCP Discover received, client hardware address = 00:11:22:33:44:55\n"
              "2024-05-01 12:34:56: Server stop\n");
}

TEST_F(LogManagerTest, EachRunAppendsOnlyItsNewItems)
{
    ASSERT_TRUE(Tools::ReplaceFileContents(logPath, "an earlier line\n"));
    AddStart();
    log.StartSavingThread();
    AddStop();
    log.StopSavingThread();

    clock.Set(MAY_FIRST_2024_123456 + 60);
    AddStart();
    log.StartSavingThread();
    AddOffer();
    AddStop();
    log.StopSavingThread();

    // A run that logs nothing writes nothing.
    log.StartSavingThread();
    log.StopSavingThread();

    EXPECT_EQ(FileLines(logPath),
              (std::vector<std::string>{
                  "an earlier line",
                  "2024-05-01 12:34:56: Server start, listening IP address = 192.168.1.10",
                  "2024-05-01 12:34:56: Server stop",
                  "2024-05-01 12:35:56: Server start, listening IP address = 192.168.1.10",
                  "2024-05-01 12:35:56: DHCP Offer sent, client hardware address = 00:11:22:33:44:55, offered IP "
                  "address = 192.168.1.240",
                  "2024-05-01 12:35:56: Server stop",
              }));
    EXPECT_EQ(log.GetLogItemCount(), 5u);
}

TEST_F(LogManagerTest, TheSavingThreadWritesWhileRunning)
{
    log.StartSavingThread();
    AddStart();
    // The thread saves every two seconds; give it ample time, then stop.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (FileLines(logPath).empty() && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    EXPECT_EQ(FileLines(logPath),
              std::vector<std::string>{"2024-05-01 12:34:56: Server start, listening IP address = 192.168.1.10"});
    AddStop();
    log.StopSavingThread();
    EXPECT_EQ(FileLines(logPath).size(), 2u);
}

TEST_F(LogManagerTest, LinesForAnUnwritablePathAreLostButStayInMemory)
{
    settings.SetLogFilePath(folder.FilePath("no-such-folder/log.txt"));
    AddStart();
    log.StartSavingThread();
    AddDiscover();
    AddStop();
    log.StopSavingThread();
    EXPECT_EQ(log.GetLogItemCount(), 3u);
    EXPECT_FALSE(Tools::FileExists(folder.FilePath("no-such-folder/log.txt")));

    // An empty path behaves the same.
    settings.SetLogFilePath("");
    AddStart();
    log.StartSavingThread();
    log.StopSavingThread();

    settings.SetLogFilePath(logPath);
    log.StartSavingThread();
    AddOffer();
    log.StopSavingThread();
    EXPECT_EQ(FileLines(logPath), std::vector<std::string>{"2024-05-01 12:34:56: DHCP Offer sent, client hardware "
                                                           "address = 00:11:22:33:44:55, offered IP address = "
                                                           "192.168.1.240"});
    EXPECT_EQ(log.GetLogItemCount(), 5u);
}

TEST_F(LogManagerTest, TheDestructorStopsTheThreadWithALastSave)
{
    {
        LogManager scoped(&settings, &clock);
        scoped.AddLogItem(ServerStart, std::nullopt, LISTENING, false);
        scoped.StartSavingThread();
        scoped.AddLogItem(ServerStop, std::nullopt, std::nullopt, false);
    }
    EXPECT_EQ(FileLines(logPath).size(), 2u);
}

TEST_F(LogManagerTest, TwoWritersAndAReaderWhileTheThreadSaves)
{
    constexpr int PER_WRITER = 3000;
    log.StartSavingThread();
    std::atomic<bool> writing{true};
    std::atomic<int> readerFaults{0};
    std::thread reader([&] {
        size_t shown = 0;
        while (writing) {
            const std::vector<LogItem> items = log.GetLogItems(shown);
            shown += items.size();
            // Whatever the reader sees is a whole item.
            for (const LogItem& item : items) {
                if (item.GetDetails() != "client hardware address = 00:11:22:33:44:55" &&
                    item.GetEventType() != DHCPOfferSent) {
                    ++readerFaults;
                }
            }
        }
        if (shown > log.GetLogItemCount()) {
            ++readerFaults;
        }
    });
    std::thread discovers([&] {
        for (int i = 0; i < PER_WRITER; ++i) {
            AddDiscover();
        }
    });
    std::thread offers([&] {
        for (int i = 0; i < PER_WRITER; ++i) {
            AddOffer();
        }
    });
    discovers.join();
    offers.join();
    writing = false;
    reader.join();
    log.StopSavingThread();

    EXPECT_EQ(readerFaults, 0);
    const std::vector<LogItem> items = log.GetLogItems(0);
    ASSERT_EQ(items.size(), 2u * PER_WRITER);
    int discoverCount = 0;
    for (const LogItem& item : items) {
        discoverCount += item.GetEventType() == DHCPDiscoverReceived ? 1 : 0;
    }
    EXPECT_EQ(discoverCount, PER_WRITER);
    // The file holds every item once, in the order of the list.
    const std::vector<std::string> lines = FileLines(logPath);
    ASSERT_EQ(lines.size(), items.size());
    for (size_t i = 0; i < items.size(); ++i) {
        ASSERT_EQ(lines[i], items[i].GetLogLine()) << i;
    }
}

TEST(LogManagerDeathTest, PreconditionsOfTheThreadAndTheIndex)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    Settings settings;
    LogManager log(&settings);
    EXPECT_DEATH(log.StopSavingThread(), "savingThreadRunning");
    EXPECT_DEATH(log.GetLogItems(1), "fromIndex");
}
