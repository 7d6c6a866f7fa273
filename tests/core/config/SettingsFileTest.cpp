#include "allocation/AddressManager.h"
#include "config/Settings.h"
#include "config/SettingsFile.h"
#include "engine/TransactionManager.h"
#include "foundation/AppException.h"
#include "foundation/Tools.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

// Dotted form in failure messages.
void PrintTo(const IPv4Address& address, std::ostream* stream)
{
    *stream << address.ToString();
}

namespace {

constexpr int LOADED = -1;

// Settings wired to an address manager as the server wires them, with the
// lease file kept inside the test's folder.
struct Server {
    explicit Server(const TemporaryFolder& folder) : addressManager(&settings, &transactionManager)
    {
        addressManager.SetLeasesFilePath(folder.FilePath("leases.dat"));
        settings.SetAddressManager(&addressManager);
    }

    // The code Load raised, or LOADED.
    int Load(const std::string& path)
    {
        try {
            settings.Load(path);
        } catch (const AppException& exception) {
            return exception.GetCode();
        }
        return LOADED;
    }

    std::vector<std::string> Reservations() const
    {
        std::vector<std::string> rows;
        for (size_t i = 0; i < addressManager.GetReservationCount(); ++i) {
            const AddressReservation row = addressManager.GetReservation(i);
            rows.push_back(row.GetHardwareAddress().ToString() + " " + row.GetIPAddress().ToString());
        }
        return rows;
    }

    std::vector<std::string> Options() const
    {
        std::vector<std::string> options;
        for (const RawOption& option : settings.GetAdditionalOptions()) {
            options.push_back(option.GetCodeString() + " " + option.GetDataString());
        }
        return options;
    }

    Settings settings;
    TransactionManager transactionManager;
    AddressManager addressManager;
};

void WriteFile(const std::string& path, const std::string& contents)
{
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << contents;
    ASSERT_TRUE(file.good()) << path;
}

std::string ReadFile(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream contents;
    contents << file.rdbuf();
    return contents.str();
}

// Lines joined with CR LF, each line ended.
std::string Lines(const std::vector<std::string>& lines, const char* lineEnd = "\r\n")
{
    std::string text;
    for (const std::string& line : lines) {
        text += line + lineEnd;
    }
    return text;
}

const std::vector<std::string> POOL_LINES = {
    "PoolStartAddress 10.0.0.100",
    "PoolEndAddress 10.0.0.200",
    "SubnetMask 255.255.255.0",
};

std::vector<std::string> PoolAnd(std::vector<std::string> more)
{
    std::vector<std::string> lines = POOL_LINES;
    lines.insert(lines.end(), more.begin(), more.end());
    return lines;
}

// Every field but the preferred listening address, which defaults leave alone.
void ExpectSameSettings(const Server& expected, const Server& actual)
{
    const Settings& a = expected.settings;
    const Settings& b = actual.settings;
    EXPECT_EQ(a.GetPoolStartAddress(), b.GetPoolStartAddress());
    EXPECT_EQ(a.GetPoolEndAddress(), b.GetPoolEndAddress());
    EXPECT_EQ(a.GetSubnetMask(), b.GetSubnetMask());
    EXPECT_EQ(a.GetDNSAddress1(), b.GetDNSAddress1());
    EXPECT_EQ(a.GetDNSAddress2(), b.GetDNSAddress2());
    EXPECT_EQ(a.GetLeaseDuration(), b.GetLeaseDuration());
    EXPECT_EQ(a.GetDefaultGateway(), b.GetDefaultGateway());
    EXPECT_EQ(a.GetAdditionalOptions(), b.GetAdditionalOptions());
    EXPECT_EQ(a.GetMinimizeToSystemTray(), b.GetMinimizeToSystemTray());
    for (int eventType = 0; eventType < EVENT_TYPE_COUNT; ++eventType) {
        EXPECT_EQ(a.GetLogEventEnabled(eventType), b.GetLogEventEnabled(eventType)) << eventType;
    }
    EXPECT_EQ(a.GetLogFilePath(), b.GetLogFilePath());
    EXPECT_EQ(a.GetLoggingEnabled(), b.GetLoggingEnabled());
    EXPECT_EQ(a.GetLogIgnoredDHCPMessages(), b.GetLogIgnoredDHCPMessages());
    EXPECT_EQ(expected.Reservations(), actual.Reservations());
}

const char* const DEFAULT_FILE = "PoolStartAddress 192.168.1.240\r\n"
                                 "PoolEndAddress 192.168.1.254\r\n"
                                 "SubnetMask 255.255.255.0\r\n"
                                 "DefaultGateway 192.168.1.1\r\n"
                                 "DNSAddress1 192.168.1.1\r\n"
                                 "LeaseDuration 3600\r\n"
                                 "MinimizeToSystemTray False\r\n"
                                 "LoggingEnabled False\r\n"
                                 "LogIgnoredDHCPMessages False\r\n"
                                 "LogFilePath \"log.txt\"\r\n"
                                 "LogEvent_ServerStart True\r\n"
                                 "LogEvent_ServerStop True\r\n"
                                 "LogEvent_DHCPDiscoverReceived True\r\n"
                                 "LogEvent_DHCPRequestReceived True\r\n"
                                 "LogEvent_DHCPOfferSent True\r\n"
                                 "LogEvent_DHCPAckSent True\r\n"
                                 "LogEvent_DHCPNakSent True\r\n"
                                 "LogEvent_DHCPInformReceived True\r\n"
                                 "LogEvent_DHCPReleaseReceived True\r\n";

class SettingsFileTest : public ::testing::Test {
protected:
    TemporaryFolder folder;
    std::string path = folder.FilePath("settings.cfg");
};

} // namespace

TEST_F(SettingsFileTest, SaveWritesEveryLineInOrderAndLoadsBackEqual)
{
    Server defaults(folder);
    defaults.settings.Save(path);
    EXPECT_EQ(ReadFile(path), DEFAULT_FILE);
    Server loaded(folder);
    loaded.settings.SetLeaseDuration(1);
    loaded.settings.SetLoggingEnabled(true);
    EXPECT_EQ(loaded.Load(path), LOADED);
    ExpectSameSettings(defaults, loaded);
    EXPECT_TRUE(loaded.settings.GetPreferredListeningAddress().IsZero());

    // Every optional line, options and reservations in their places. The
    // preferred address is written straight into the field only by a load
    // (no lease file switch), so it comes first, from a file of its own.
    Server custom(folder);
    Settings& settings = custom.settings;
    WriteFile(folder.FilePath("preferred.cfg"), Lines(PoolAnd({"PreferredListeningAddress 10.1.0.1"})));
    ASSERT_EQ(custom.Load(folder.FilePath("preferred.cfg")), LOADED);
    settings.SetPoolStartAddress(IPv4Address(10, 1, 0, 10));
    settings.SetPoolEndAddress(IPv4Address(10, 1, 3, 250));
    settings.SetSubnetMask(22);
    settings.SetDefaultGateway(IPv4Address(10, 1, 0, 1));
    settings.SetDNSAddress1(IPv4Address(10, 1, 0, 2));
    settings.SetDNSAddress2(IPv4Address(10, 1, 0, 3));
    settings.SetLeaseDuration(2147483646);
    settings.SetMinimizeToSystemTray(true);
    settings.SetLoggingEnabled(true);
    settings.SetLogIgnoredDHCPMessages(true);
    settings.SetLogFilePath("logs\\\\my log.txt");
    settings.SetLogEventEnabled(DHCPOfferSent, false);
    settings.SetLogEventEnabled(DHCPReleaseReceived, false);
    settings.GetAdditionalOptions().emplace_back("43", "1 2 3");
    settings.GetAdditionalOptions().emplace_back("4", "192 168 1 100");
    custom.addressManager.AddReservation(
        AddressReservation(HardwareAddress("00:11:22:33:44:55"), IPv4Address(10, 1, 2, 5)));
    custom.addressManager.AddReservation(
        AddressReservation(HardwareAddress("aa:bb:cc:dd:ee:ff"), IPv4Address(10, 1, 0, 5)));

    custom.settings.Save(path);
    EXPECT_EQ(ReadFile(path), "PoolStartAddress 10.1.0.10\r\n"
                              "PoolEndAddress 10.1.3.250\r\n"
                              "SubnetMask 255.255.252.0\r\n"
                              "DefaultGateway 10.1.0.1\r\n"
                              "DNSAddress1 10.1.0.2\r\n"
                              "DNSAddress2 10.1.0.3\r\n"
                              "LeaseDuration 2147483646\r\n"
                              "PreferredListeningAddress 10.1.0.1\r\n"
                              "AdditionalOption 43 1 2 3\r\n"
                              "AdditionalOption 4 192 168 1 100\r\n"
                              "AddressReservation 00:11:22:33:44:55 10.1.2.5\r\n"
                              "AddressReservation aa:bb:cc:dd:ee:ff 10.1.0.5\r\n"
                              "MinimizeToSystemTray True\r\n"
                              "LoggingEnabled True\r\n"
                              "LogIgnoredDHCPMessages True\r\n"
                              "LogFilePath \"logs/my log.txt\"\r\n"
                              "LogEvent_ServerStart True\r\n"
                              "LogEvent_ServerStop True\r\n"
                              "LogEvent_DHCPDiscoverReceived True\r\n"
                              "LogEvent_DHCPRequestReceived True\r\n"
                              "LogEvent_DHCPOfferSent False\r\n"
                              "LogEvent_DHCPAckSent True\r\n"
                              "LogEvent_DHCPNakSent True\r\n"
                              "LogEvent_DHCPInformReceived True\r\n"
                              "LogEvent_DHCPReleaseReceived False\r\n");
    Server reloaded(folder);
    EXPECT_EQ(reloaded.Load(path), LOADED);
    settings.SetLogFilePath("logs/my log.txt"); // what the file holds after the path was cleaned
    ExpectSameSettings(custom, reloaded);
    EXPECT_EQ(reloaded.settings.GetPreferredListeningAddress(), IPv4Address(10, 1, 0, 1));
}

TEST_F(SettingsFileTest, PathlessFormsUseSettingsCfgInTheWorkingDirectory)
{
    const std::string previous = Tools::GetCurrentDirectory();
    ASSERT_EQ(::chdir(folder.Path().c_str()), 0);
    Server saver(folder);
    saver.settings.SetLeaseDuration(600);
    saver.settings.Save();
    Server loader(folder);
    int outcome = LOADED;
    try {
        loader.settings.Load();
    } catch (const AppException& exception) {
        outcome = exception.GetCode();
    }
    ASSERT_EQ(::chdir(previous.c_str()), 0);
    EXPECT_EQ(saver.settings.GetSettingsFilePath(), "settings.cfg");
    EXPECT_TRUE(Tools::FileExists(folder.FilePath("settings.cfg")));
    EXPECT_EQ(outcome, LOADED);
    EXPECT_EQ(loader.settings.GetLeaseDuration(), 600);
}

TEST_F(SettingsFileTest, LineEndsAreNormalizedAndAFileWithoutAnyIsRefused)
{
    const std::vector<std::string> lines = PoolAnd({"LeaseDuration 120", "LoggingEnabled true"});
    WriteFile(path, Lines(lines, "\n"));
    Server lf(folder);
    EXPECT_EQ(lf.Load(path), LOADED);
    EXPECT_EQ(lf.settings.GetLeaseDuration(), 120);
    EXPECT_TRUE(lf.settings.GetLoggingEnabled());
    EXPECT_EQ(ReadFile(path), Lines(lines));

    // Mixed line ends: the LF-only lines get a CR in front of every LF, also
    // where one stood already; the line end is still all of it.
    WriteFile(path, "PoolStartAddress 10.0.0.100\nPoolEndAddress 10.0.0.200\r\nSubnetMask 255.255.255.0\r\n");
    Server mixed(folder);
    EXPECT_EQ(mixed.Load(path), LOADED);
    EXPECT_EQ(mixed.settings.GetPoolEndAddress(), IPv4Address(10, 0, 0, 200));

    // A last line without its line end still counts.
    WriteFile(path, Lines(POOL_LINES) + "LeaseDuration 240");
    Server unended(folder);
    EXPECT_EQ(unended.Load(path), LOADED);
    EXPECT_EQ(unended.settings.GetLeaseDuration(), 240);

    // Blank and empty lines are skipped without a mark.
    WriteFile(path, Lines(PoolAnd({"", "     ", "LeaseDuration 60"})));
    Server blanks(folder);
    EXPECT_EQ(blanks.Load(path), LOADED);
    EXPECT_EQ(blanks.settings.GetLeaseDuration(), 60);

    // Not a single line end: refused before anything changes, also when the
    // one line is good, and also for an empty file.
    for (const std::string& contents : {std::string("LoggingEnabled True"), std::string()}) {
        WriteFile(path, contents);
        Server refused(folder);
        EXPECT_EQ(refused.Load(path), AppException::UnsupportedEOLStyle);
        EXPECT_FALSE(refused.settings.GetLoggingEnabled());
        EXPECT_EQ(ReadFile(path), contents);
    }

    Server missing(folder);
    missing.settings.SetLeaseDuration(99);
    EXPECT_EQ(missing.Load(folder.FilePath("nothing.cfg")), AppException::FileNotExists);
    EXPECT_EQ(missing.settings.GetLeaseDuration(), 99);
}

TEST_F(SettingsFileTest, EachKindOfBadLineIsDroppedAndMarkedWhileGoodLinesStay)
{
    const std::string longPath(SettingsFile::MAX_LINE_LENGTH - std::string("LogFilePath ").size() + 1, 'x');
    const std::vector<std::string> badLines = {
        "Lonely",
        "LoggingEnabled",
        "LoggingEnabled yes",
        "LoggingEnabled True False",
        "LogEvent_ServerStop maybe",
        "LeaseDuration -5",
        "LeaseDuration 1h",
        "LeaseDuration 2147483647",
        "LeaseDuration 99999999999",
        "LeaseDuration 60 70",
        "DefaultGateway 192.168.1.300",
        "DNSAddress1 10.0.0",
        "DNSAddress2 10.0.0.1 10.0.0.2",
        "PoolStartAddress 10.0.0.x",
        "LogFilePath \"one quote.txt",
        "LogFilePath \"three\"quotes\".txt",
        "LogFilePath my logs.txt",
        "LogFilePath \"my logs.txt",
        "LogFilePath my \"logs\".txt",
        "AdditionalOption 43",
        "AdditionalOption 255 1",
        "AdditionalOption 43 1 255",
        "AddressReservation 00:11:22:33:44:5 10.0.0.5",
        "AddressReservation 00:11:22:33:44:55 10.0.0.256",
        "AddressReservation 00:11:22:33:44:55",
        "LogFilePath " + longPath,
    };
    for (const std::string& badLine : badLines) {
        WriteFile(path, Lines(PoolAnd({"DefaultGateway 10.0.0.1", badLine, "LoggingEnabled TRUE",
                                      "LogFilePath \"good.txt\"", "AdditionalOption 1 254 254 254 0"})));
        Server server(folder);
        server.settings.SetLeaseDuration(1234);
        EXPECT_EQ(server.Load(path), AppException::SettingsFilePartlyLoaded) << badLine;
        const Settings& settings = server.settings;
        EXPECT_EQ(settings.GetPoolStartAddress(), IPv4Address(10, 0, 0, 100)) << badLine;
        EXPECT_EQ(settings.GetPoolEndAddress(), IPv4Address(10, 0, 0, 200)) << badLine;
        EXPECT_EQ(settings.GetDefaultGateway(), IPv4Address(10, 0, 0, 1)) << badLine;
        EXPECT_TRUE(settings.GetDNSAddress1().IsZero()) << badLine;
        EXPECT_TRUE(settings.GetDNSAddress2().IsZero()) << badLine;
        EXPECT_EQ(settings.GetLeaseDuration(), 1234) << badLine;
        EXPECT_TRUE(settings.GetLoggingEnabled()) << badLine;
        EXPECT_TRUE(settings.GetLogEventEnabled(ServerStop)) << badLine;
        EXPECT_EQ(settings.GetLogFilePath(), "good.txt") << badLine;
        EXPECT_EQ(server.Options(), std::vector<std::string>{"1 254 254 254 0"}) << badLine;
        EXPECT_TRUE(server.Reservations().empty()) << badLine;
    }

    // The longest allowed line is still read.
    const std::string longestPath(SettingsFile::MAX_LINE_LENGTH - std::string("LogFilePath ").size(), 'y');
    WriteFile(path, Lines(PoolAnd({"LogFilePath " + longestPath})));
    Server longest(folder);
    EXPECT_EQ(longest.Load(path), LOADED);
    EXPECT_EQ(longest.settings.GetLogFilePath(), longestPath);

    // The boundary of the lease time and a key given twice: the last good line wins.
    WriteFile(path, Lines(PoolAnd({"LeaseDuration 2147483646", "LeaseDuration 0", "LeaseDuration x"})));
    Server twice(folder);
    EXPECT_EQ(twice.Load(path), AppException::SettingsFilePartlyLoaded);
    EXPECT_EQ(twice.settings.GetLeaseDuration(), 0);
}

TEST_F(SettingsFileTest, UnknownKeysAreSkippedButAMissingPoolOrMaskIsFatal)
{
    WriteFile(path, Lines(PoolAnd({"FooBar 1 2 3", "leaseduration 77", "LeaseDuration 88"})));
    Server unknown(folder);
    EXPECT_EQ(unknown.Load(path), LOADED);
    EXPECT_EQ(unknown.settings.GetLeaseDuration(), 88);

    struct Case {
        const char* name;
        std::vector<std::string> lines;
    };
    const std::vector<Case> cases = {
        {"lower-case key", {"poolstartaddress 10.0.0.100", "PoolEndAddress 10.0.0.200", "SubnetMask 255.255.255.0"}},
        {"no pool end", {"PoolStartAddress 10.0.0.100", "SubnetMask 255.255.255.0"}},
        {"pool start 0.0.0.0", {"PoolStartAddress 0.0.0.0", "PoolEndAddress 10.0.0.200", "SubnetMask 255.255.255.0"}},
        {"no mask", {"PoolStartAddress 10.0.0.100", "PoolEndAddress 10.0.0.200"}},
        {"not a mask", {"PoolStartAddress 10.0.0.100", "PoolEndAddress 10.0.0.200", "SubnetMask 255.0.255.0"}},
        {"zero mask", {"PoolStartAddress 10.0.0.100", "PoolEndAddress 10.0.0.200", "SubnetMask 0.0.0.0"}},
    };
    for (const Case& fatal : cases) {
        std::vector<std::string> lines = fatal.lines;
        for (const char* more : {"DefaultGateway 10.0.0.1", "LeaseDuration 10", "AdditionalOption 43 1",
                                 "AddressReservation 00:11:22:33:44:55 10.0.0.5", "LoggingEnabled True",
                                 "MinimizeToSystemTray True", "LogIgnoredDHCPMessages True",
                                 "LogEvent_DHCPNakSent False", "LogFilePath \"kept.txt\""}) {
            lines.push_back(more);
        }
        WriteFile(path, Lines(lines));
        Server server(folder);
        EXPECT_EQ(server.Load(path), AppException::SettingsFileFatalError) << fatal.name;
        // Pool, mask, gateway, lease time, options and reservations keep the
        // values from before; the lines that store directly have stored.
        const Settings& settings = server.settings;
        EXPECT_EQ(settings.GetPoolStartAddress(), IPv4Address(192, 168, 1, 240)) << fatal.name;
        EXPECT_EQ(settings.GetSubnetMask(), 24) << fatal.name;
        EXPECT_EQ(settings.GetDefaultGateway(), IPv4Address(192, 168, 1, 1)) << fatal.name;
        EXPECT_EQ(settings.GetLeaseDuration(), 3600) << fatal.name;
        EXPECT_TRUE(settings.GetAdditionalOptions().empty()) << fatal.name;
        EXPECT_TRUE(server.Reservations().empty()) << fatal.name;
        EXPECT_TRUE(settings.GetLoggingEnabled()) << fatal.name;
        EXPECT_TRUE(settings.GetMinimizeToSystemTray()) << fatal.name;
        EXPECT_TRUE(settings.GetLogIgnoredDHCPMessages()) << fatal.name;
        EXPECT_FALSE(settings.GetLogEventEnabled(DHCPNakSent)) << fatal.name;
        EXPECT_EQ(settings.GetLogFilePath(), "kept.txt") << fatal.name;
    }
}

TEST_F(SettingsFileTest, MissingOptionalLinesLeaveZeroAddressesNotDefaults)
{
    WriteFile(path, Lines(POOL_LINES));
    Server server(folder);
    server.settings.SetLeaseDuration(500);
    EXPECT_EQ(server.Load(path), LOADED);
    EXPECT_TRUE(server.settings.GetDefaultGateway().IsZero());
    EXPECT_TRUE(server.settings.GetDNSAddress1().IsZero());
    EXPECT_TRUE(server.settings.GetPreferredListeningAddress().IsZero());
    EXPECT_EQ(server.settings.GetLeaseDuration(), 500);
    EXPECT_EQ(server.settings.GetSubnetMask(), 24);
}

TEST_F(SettingsFileTest, ReservationsAreCheckedAgainstThePoolOfTheFile)
{
    // The default pool is 192.168.1.x; the file moves it to 10.0.0.x before
    // the rows are checked. Rows outside the subnet or clashing are dropped.
    WriteFile(path, Lines({
                        "AddressReservation 00:11:22:33:44:55 10.0.0.5",
                        "AddressReservation 00:00:00:00:00:01 192.168.1.5",
                        "AddressReservation 00:11:22:33:44:55 10.0.0.6",
                        "AddressReservation 00:00:00:00:00:02 10.0.0.5",
                        "AddressReservation AA:BB:CC:DD:EE:FF 10.0.0.250",
                        "PoolStartAddress 10.0.0.100",
                        "PoolEndAddress 10.0.0.200",
                        "SubnetMask 255.255.255.0",
                    }));
    Server server(folder);
    EXPECT_EQ(server.Load(path), AppException::SettingsFilePartlyLoaded);
    EXPECT_EQ(server.Reservations(), (std::vector<std::string>{"00:11:22:33:44:55 10.0.0.5",
                                                                "aa:bb:cc:dd:ee:ff 10.0.0.250"}));
    EXPECT_EQ(server.settings.GetPoolStartAddress(), IPv4Address(10, 0, 0, 100));

    WriteFile(path, Lines(PoolAnd({"AddressReservation 00:11:22:33:44:55 10.0.0.5",
                                   "AddressReservation 00:11:22:33:44:66   10.0.0.6"})));
    Server clean(folder);
    EXPECT_EQ(clean.Load(path), LOADED);
    EXPECT_EQ(clean.Reservations().size(), 2u);
}

TEST_F(SettingsFileTest, AnInvalidPoolGivesAllDefaultsWithoutReservationsOrOptions)
{
    WriteFile(path, Lines({"PoolStartAddress 10.0.0.200", "PoolEndAddress 10.0.0.100", "SubnetMask 255.255.255.0",
                           "DefaultGateway 10.0.0.1", "LeaseDuration 60", "PreferredListeningAddress 10.0.0.1",
                           "AdditionalOption 43 1", "AddressReservation 00:11:22:33:44:55 10.0.0.5",
                           "LoggingEnabled True", "LogFilePath \"other.txt\""}));
    Server server(folder);
    server.settings.GetAdditionalOptions().emplace_back("4", "1 2 3 4");
    server.addressManager.AddReservation(
        AddressReservation(HardwareAddress("00:00:00:00:00:09"), IPv4Address(192, 168, 1, 9)));
    EXPECT_EQ(server.Load(path), AppException::SettingsFileFatalError);
    Server defaults(folder);
    ExpectSameSettings(defaults, server);
    // The preferred address has no default; the take-over had written it.
    EXPECT_EQ(server.settings.GetPreferredListeningAddress(), IPv4Address(10, 0, 0, 1));
    EXPECT_TRUE(server.Reservations().empty());

    // Under a /32 mask no pool is valid.
    WriteFile(path, Lines({"PoolStartAddress 10.0.0.1", "PoolEndAddress 10.0.0.1", "SubnetMask 255.255.255.255"}));
    Server host(folder);
    EXPECT_EQ(host.Load(path), AppException::SettingsFileFatalError);
    EXPECT_EQ(host.settings.GetSubnetMask(), 24);
}

TEST_F(SettingsFileTest, OptionsJoinWithSingleBlanksAndAddUpAfterExistingOnes)
{
    WriteFile(path, Lines(PoolAnd({"AdditionalOption 43 1   2  3", "   AdditionalOption   4 192 168 1 100  "})));
    Server server(folder);
    server.settings.GetAdditionalOptions().emplace_back("66", "1");
    EXPECT_EQ(server.Load(path), LOADED);
    EXPECT_EQ(server.Options(), (std::vector<std::string>{"66 1", "43 1 2 3", "4 192 168 1 100"}));
    EXPECT_EQ(server.settings.GetAdditionalOptions()[1].GetData(), (ByteString{1, 2, 3}));
}

TEST_F(SettingsFileTest, LogFilePathQuotingAndCleaning)
{
    struct Case {
        std::string line;
        std::string path;
    };
    const std::vector<Case> cases = {
        {"LogFilePath C:\\logs\\server.txt", "C:/logs/server.txt"},
        {"LogFilePath \"C:\\logs\\server.txt\"", "C:/logs/server.txt"},
        {"LogFilePath \"plain.txt", ""}, // one quote: refused below
        {"LogFilePath \"/var/my  logs/x y.txt\"", "/var/my  logs/x y.txt"},
        {"LogFilePath \" spaced.txt \"", " spaced.txt "},
        {"LogFilePath \"/a//b\\\\c.txt\"", "/a/b/c.txt"},
        {"LogFilePath \"\"", ""},
    };
    for (const Case& test : cases) {
        WriteFile(path, Lines(PoolAnd({test.line})));
        Server server(folder);
        const int outcome = server.Load(path);
        if (Tools::CountChar(test.line, '"') == 1) {
            EXPECT_EQ(outcome, AppException::SettingsFilePartlyLoaded) << test.line;
            EXPECT_EQ(server.settings.GetLogFilePath(), "log.txt") << test.line;
        } else {
            EXPECT_EQ(outcome, LOADED) << test.line;
            EXPECT_EQ(server.settings.GetLogFilePath(), test.path) << test.line;
        }
    }
}

TEST_F(SettingsFileTest, AFailedSaveRaisesAndLeavesThePreviousFile)
{
    Server server(folder);
    server.settings.Save(path);
    const std::string previous = ReadFile(path);
    server.settings.SetLeaseDuration(42);

    // The target is a folder: nothing can be renamed over it.
    const std::string folderPath = folder.FilePath("a-folder");
    ASSERT_EQ(::mkdir(folderPath.c_str(), 0755), 0);
    try {
        server.settings.Save(folderPath);
        ADD_FAILURE() << "saving over a folder succeeded";
    } catch (const AppException& exception) {
        EXPECT_EQ(exception.GetCode(), AppException::FileWritingError);
    }
    EXPECT_TRUE(Tools::DirectoryExists(folderPath));

    // The new contents cannot be written in full (a file size limit stops the
    // temporary file; this works for root too): the old file stays whole.
    struct rlimit original {};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &original), 0);
    const auto previousHandler = std::signal(SIGXFSZ, SIG_IGN);
    struct rlimit small = original;
    small.rlim_cur = 64;
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
    int code = LOADED;
    try {
        server.settings.Save(path);
    } catch (const AppException& exception) {
        code = exception.GetCode();
    }
    ::setrlimit(RLIMIT_FSIZE, &original);
    std::signal(SIGXFSZ, previousHandler);
    EXPECT_EQ(code, AppException::FileWritingError);
    EXPECT_EQ(ReadFile(path), previous);

    // A folder that does not exist.
    EXPECT_THROW(server.settings.Save(folder.FilePath("missing/settings.cfg")), AppException);
    EXPECT_EQ(ReadFile(path), previous);
}
