#include "log/LogItem.h"

#include "LogTestSupport.h"

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>

namespace {

const HardwareAddress CLIENT("00:11:22:33:44:55");
const std::nullopt_t NONE = std::nullopt;

int64_t At(int hours, int minutes, int seconds)
{
    return MAY_FIRST_2024_123456 + (hours - 12) * 3600 + (minutes - 34) * 60 + (seconds - 56);
}

} // namespace

TEST(LogItemTest, FileLinesOfEveryKind)
{
    const UtcTimeZone utc;
    struct Case {
        LogItem item;
        const char* line;
    };
    const Case cases[] = {
        {LogItem(ServerStart, NONE, IPv4Address(192, 168, 1, 10), false, At(12, 34, 56)),
         "2024-05-01 12:34:56: Server start, listening IP address = 192.168.1.10"},
        {LogItem(ServerStop, NONE, NONE, false, At(12, 40, 0)), "2024-05-01 12:40:00: Server stop"},
        {LogItem(DHCPDiscoverReceived, CLIENT, NONE, false, At(12, 35, 1)),
         "2024-05-01 12:35:01: DHCP Discover received, client hardware address = 00:11:22:33:44:55"},
        {LogItem(DHCPDiscoverReceived, CLIENT, NONE, true, At(12, 35, 2)),
         "2024-05-01 12:35:02: DHCP Discover received, message ignored, client hardware address = "
         "00:11:22:33:44:55"},
        {LogItem(DHCPOfferSent, CLIENT, IPv4Address(192, 168, 1, 240), false, At(12, 35, 1)),
         "2024-05-01 12:35:01: DHCP Offer sent, client hardware address = 00:11:22:33:44:55, offered IP address = "
         "192.168.1.240"},
        {LogItem(DHCPRequestReceived, CLIENT, IPv4Address(), false, At(12, 35, 2)),
         "2024-05-01 12:35:02: DHCP Request received, client hardware address = 00:11:22:33:44:55"},
        {LogItem(DHCPRequestReceived, CLIENT, IPv4Address(192, 168, 1, 240), false, At(13, 5, 2)),
         "2024-05-01 13:05:02: DHCP Request received, client hardware address = 00:11:22:33:44:55, client IP "
         "address = 192.168.1.240"},
        {LogItem(DHCPAckSent, CLIENT, IPv4Address(), false, At(12, 35, 2)),
         "2024-05-01 12:35:02: DHCP ACK sent, client hardware address = 00:11:22:33:44:55"},
        {LogItem(DHCPNakSent, CLIENT, IPv4Address(192, 168, 1, 241), false, At(13, 5, 2)),
         "2024-05-01 13:05:02: DHCP NAK sent, client hardware address = 00:11:22:33:44:55, client IP address = "
         "192.168.1.241"},
        {LogItem(DHCPNakSent, CLIENT, IPv4Address(), false, At(13, 5, 2)),
         "2024-05-01 13:05:02: DHCP NAK sent, client hardware address = 00:11:22:33:44:55"},
        {LogItem(DHCPInformReceived, CLIENT, IPv4Address(192, 168, 1, 50), false, At(12, 36, 0)),
         "2024-05-01 12:36:00: DHCP Inform received"},
        {LogItem(DHCPReleaseReceived, CLIENT, IPv4Address(192, 168, 1, 240), false, At(12, 37, 0)),
         "2024-05-01 12:37:00: DHCP Release received, client hardware address = 00:11:22:33:44:55, client IP "
         "address = 192.168.1.240"},
        {LogItem(DHCPReleaseReceived, CLIENT, IPv4Address(192, 168, 1, 240), true, At(12, 37, 0)),
         "2024-05-01 12:37:00: DHCP Release received, message ignored, client hardware address = "
         "00:11:22:33:44:55, client IP address = 192.168.1.240"},
    };
    for (const Case& test : cases) {
        EXPECT_EQ(test.item.GetLogLine(), test.line);
    }
}

TEST(LogItemTest, ScreenColumnsLeaveOutTheIgnoredMark)
{
    const UtcTimeZone utc;
    const LogItem ignored(DHCPDiscoverReceived, CLIENT, NONE, true, At(12, 35, 2));
    EXPECT_EQ(ignored.GetTimeString(), "2024-05-01 12:35:02");
    EXPECT_EQ(ignored.GetEventName(), "DHCP Discover received");
    EXPECT_EQ(ignored.GetDetails(), "client hardware address = 00:11:22:33:44:55");
    EXPECT_TRUE(ignored.IsMessageIgnored());
    EXPECT_EQ(LogItem(ServerStop, NONE, NONE, false, 0).GetDetails(), "");

    // Local time: the same moment under another zone.
    ::setenv("TZ", "CET-1", 1);
    ::tzset();
    EXPECT_EQ(ignored.GetTimeString(), "2024-05-01 13:35:02");
}

TEST(LogItemTest, TitlesAndUnknownKinds)
{
    const char* const titles[] = {"Server start",        "Server stop",           "DHCP Discover received",
                                  "DHCP Request received", "DHCP Offer sent",     "DHCP ACK sent",
                                  "DHCP NAK sent",       "DHCP Inform received", "DHCP Release received"};
    for (int eventType = 0; eventType < EVENT_TYPE_COUNT; ++eventType) {
        EXPECT_EQ(LogItem::GetEventTypeName(eventType), titles[eventType]);
    }
    for (const int unknown : {9, 10, 200, -1}) {
        EXPECT_EQ(LogItem::GetEventTypeName(unknown), "other event") << unknown;
    }
    const UtcTimeZone utc;
    const LogItem other(static_cast<EventType>(12), CLIENT, IPv4Address(1, 2, 3, 4), false, At(12, 34, 56));
    EXPECT_EQ(other.GetEventName(), "other event");
    EXPECT_EQ(other.GetDetails(), "");
    EXPECT_EQ(other.GetLogLine(), "2024-05-01 12:34:56: other event");
}

TEST(LogItemTest, CopiesStandAloneAndCarryTheSavedMark)
{
    const UtcTimeZone utc;
    auto original = std::make_unique<LogItem>(DHCPOfferSent, CLIENT, IPv4Address(10, 0, 0, 7), false, At(12, 34, 56));
    original->MarkSavedToFile();
    const LogItem copy = *original;
    const std::string line = original->GetLogLine();
    original.reset();
    EXPECT_EQ(copy.GetLogLine(), line);
    EXPECT_TRUE(copy.IsSavedToFile());
    EXPECT_EQ(copy.GetEventType(), DHCPOfferSent);
    EXPECT_FALSE(LogItem(ServerStop, NONE, NONE, false, 0).IsSavedToFile());
}

TEST(LogItemDeathTest, PreconditionsOfTheConstructorAndTheSavedMark)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    LogItem item(ServerStop, NONE, NONE, false, 0);
    item.MarkSavedToFile();
    EXPECT_DEATH(item.MarkSavedToFile(), "savedToFile");
    EXPECT_DEATH(LogItem(ServerStart, NONE, NONE, false, 0), "ipAddress");
    EXPECT_DEATH(LogItem(ServerStop, CLIENT, NONE, false, 0), "clientHardwareAddress");
    EXPECT_DEATH(LogItem(DHCPDiscoverReceived, CLIENT, IPv4Address(1, 1, 1, 1), false, 0), "ipAddress");
    EXPECT_DEATH(LogItem(DHCPOfferSent, CLIENT, IPv4Address(1, 1, 1, 1), true, 0), "messageIgnored");
    EXPECT_DEATH(LogItem(DHCPAckSent, NONE, IPv4Address(1, 1, 1, 1), false, 0), "clientHardwareAddress");
}
