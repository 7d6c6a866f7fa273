#include "allocation/AddressManager.h"
#include "config/Settings.h"
#include "config/SettingsFile.h"
#include "engine/TransactionManager.h"

#include "support/FileText.h"
#include "support/RaisedCode.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace {

constexpr int LOADED = -1;

// Settings wired to an address manager as the server wires them, with the
// files kept inside the test's folder.
struct Server {
    explicit Server(const TemporaryFolder& folder) : folder(folder), addressManager(&settings, &transactionManager)
    {
        addressManager.SetLeasesFilePath(folder.FilePath("leases.dat"));
        settings.SetAddressManager(&addressManager);
    }

    // Writes settings.cfg and loads it: the code raised, or LOADED.
    int Load(const std::string& contents)
    {
        EXPECT_TRUE(WriteText(folder.FilePath("settings.cfg"), contents));
        return CodeRaisedBy([&] { settings.Load(folder.FilePath("settings.cfg")); });
    }

    // What Save writes: every field, so equal texts mean equal settings.
    std::string Saved() const
    {
        settings.Save(folder.FilePath("saved.cfg"));
        return ReadText(folder.FilePath("saved.cfg"));
    }

    const TemporaryFolder& folder;
    Settings settings;
    TransactionManager transactionManager;
    AddressManager addressManager;
};

// The pool lines and `more`, each ended with `lineEnd`.
std::string PoolAnd(const std::vector<std::string>& more, const char* lineEnd = "\r\n")
{
    std::string text = std::string("PoolStartAddress 10.0.0.100") + lineEnd + "PoolEndAddress 10.0.0.200" + lineEnd +
                       "SubnetMask 255.255.255.0" + lineEnd;
    for (const std::string& line : more) {
        text += line + lineEnd;
    }
    return text;
}

std::string Replaced(std::string text, const std::vector<std::pair<std::string, std::string>>& changes)
{
    for (const auto& [from, to] : changes) {
        text.replace(text.find(from), from.size(), to);
    }
    return text;
}

const std::string DEFAULT_FILE = "PoolStartAddress 192.168.1.240\r\n"
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

} // namespace

TEST(SettingsFileTest, SaveWritesEveryLineInOrderAndLoadsBackEqual)
{
    TemporaryFolder folder;
    Server defaults(folder);
    EXPECT_EQ(defaults.Saved(), DEFAULT_FILE);
    // The flags of the loader differ from the file before the load.
    Server loaded(folder);
    loaded.settings.SetMinimizeToSystemTray(true);
    loaded.settings.SetLoggingEnabled(true);
    loaded.settings.SetLogIgnoredDHCPMessages(true);
    for (int eventType = 0; eventType < EVENT_TYPE_COUNT; ++eventType) {
        loaded.settings.SetLogEventEnabled(eventType, false);
    }
    EXPECT_EQ(loaded.Load(DEFAULT_FILE), LOADED);
    EXPECT_EQ(loaded.Saved(), DEFAULT_FILE);

    const std::string expected = "PoolStartAddress 10.1.0.10\r\n"
                                 "PoolEndAddress 10.1.3.250\r\n"
                                 "SubnetMask 255.255.252.0\r\n"
                                 "DefaultGateway 10.1.0.1\r\n"
                                 "DNSAddress1 10.1.0.2\r\n"
                                 "DNSAddress2 10.1.0.3\r\n"
                                 "LeaseDuration 2147483646\r\n"
                                 "PreferredListeningAddress 10.1.0.1\r\n"
                                 "AdditionalOption 66 1\r\n"
                                 "AdditionalOption 43 1 2 3\r\n"
                                 "AddressReservation 00:11:22:33:44:55 10.1.2.5\r\n"
                                 "AddressReservation aa:bb:cc:dd:ee:ff 10.1.0.5\r\n"
                                 "MinimizeToSystemTray True\r\n"
                                 "LoggingEnabled True\r\n"
                                 "LogIgnoredDHCPMessages True\r\n"
                                 "LogFilePath \"logs/my  log.txt\"\r\n"
                                 "LogEvent_ServerStart True\r\n"
                                 "LogEvent_ServerStop True\r\n"
                                 "LogEvent_DHCPDiscoverReceived True\r\n"
                                 "LogEvent_DHCPRequestReceived True\r\n"
                                 "LogEvent_DHCPOfferSent False\r\n"
                                 "LogEvent_DHCPAckSent True\r\n"
                                 "LogEvent_DHCPNakSent True\r\n"
                                 "LogEvent_DHCPInformReceived True\r\n"
                                 "LogEvent_DHCPReleaseReceived False\r\n";
    // The same file with blanks to fold, upper case to lower, a path to clean;
    // options add up behind those already there.
    Server custom(folder);
    custom.settings.GetAdditionalOptions().emplace_back("66", "1");
    EXPECT_EQ(custom.Load(Replaced(expected,
                                   {{"AdditionalOption 66 1\r\n", ""},
                                    {"43 1 2 3", "43 1   2  3"},
                                    {"AddressReservation aa:bb:cc:dd:ee:ff", "  AddressReservation  AA:BB:CC:DD:EE:FF"},
                                    {"LoggingEnabled True", "LoggingEnabled tRUE"},
                                    {"logs/my", "logs\\\\my"}})),
              LOADED);
    EXPECT_EQ(custom.Saved(), expected);
    Server reloaded(folder);
    EXPECT_EQ(reloaded.Load(expected), LOADED);
    EXPECT_EQ(reloaded.Saved(), expected);
    // A failed save raises (the file itself is replaced whole or not at all).
    EXPECT_EQ(CodeRaisedBy([&] { reloaded.settings.Save(folder.FilePath("missing/settings.cfg")); }),
              AppException::FileWritingError);
}

TEST(SettingsFileTest, LineEndsAreNormalizedAndAFileWithoutAnyIsRefused)
{
    TemporaryFolder folder;
    const std::vector<std::string> lines = {"LeaseDuration 120", "", "     ", "LoggingEnabled true"};
    Server lf(folder);
    EXPECT_EQ(lf.Load(PoolAnd(lines, "\n")), LOADED);
    EXPECT_EQ(lf.settings.GetLeaseDuration(), 120);
    EXPECT_TRUE(lf.settings.GetLoggingEnabled());
    // Lines the file leaves out give zero addresses, not the defaults.
    EXPECT_TRUE(lf.settings.GetDefaultGateway().IsZero() && lf.settings.GetDNSAddress1().IsZero());
    EXPECT_EQ(ReadText(folder.FilePath("settings.cfg")), PoolAnd(lines));
    // Read only: the same settings, and the file keeps its LF line ends.
    Server readOnly(folder);
    WriteText(folder.FilePath("settings.cfg"), PoolAnd(lines, "\n"));
    readOnly.settings.LoadWithoutWriting(folder.FilePath("settings.cfg"));
    EXPECT_EQ(readOnly.Saved(), lf.Saved());
    EXPECT_EQ(ReadText(folder.FilePath("settings.cfg")), PoolAnd(lines, "\n"));
    // Mixed line ends, and a last line without its end.
    Server mixed(folder);
    EXPECT_EQ(mixed.Load("PoolStartAddress 10.0.0.100\nPoolEndAddress 10.0.0.200\r\nSubnetMask 255.255.255.0\r\n"
                         "LeaseDuration 240"),
              LOADED);
    EXPECT_EQ(mixed.settings.GetLeaseDuration(), 240);

    // Not a single line end: refused before anything changes, also when the
    // one line is good; a missing file likewise.
    for (const std::string contents : {"LoggingEnabled True", ""}) {
        Server refused(folder);
        EXPECT_EQ(refused.Load(contents), AppException::UnsupportedEOLStyle);
        EXPECT_EQ(CodeRaisedBy([&] { refused.settings.LoadWithoutWriting(folder.FilePath("settings.cfg")); }),
                  AppException::UnsupportedEOLStyle);
        EXPECT_EQ(refused.Saved(), DEFAULT_FILE);
        EXPECT_EQ(ReadText(folder.FilePath("settings.cfg")), contents);
    }
    Server missing(folder);
    EXPECT_EQ(CodeRaisedBy([&] { missing.settings.Load(folder.FilePath("nothing.cfg")); }),
              AppException::FileNotExists);
}

TEST(SettingsFileTest, EachKindOfBadLineIsDroppedWhileGoodLinesStay)
{
    TemporaryFolder folder;
    const auto withLine = [](const std::string& line) {
        return PoolAnd({"DefaultGateway 10.0.0.1", line, "LoggingEnabled TRUE", "LogFilePath \"good.txt\"",
                        "AdditionalOption 1 254 254 254 0", "FooBar 1 2", "leaseduration 77"});
    };
    // Unknown keys (keys are compared exactly) are skipped without a mark.
    Server good(folder);
    good.settings.SetLeaseDuration(1234);
    ASSERT_EQ(good.Load(withLine("")), LOADED);
    const std::string goodText = good.Saved();

    const std::string key = "LogFilePath ";
    const std::string longest(SettingsFile::MAX_LINE_LENGTH - key.size(), 'y');
    const std::string badLines[] = {
        "Lonely", "LoggingEnabled", "LoggingEnabled yes", "LoggingEnabled True False", "LogEvent_ServerStop maybe",
        "LeaseDuration -5", "LeaseDuration 1h", "LeaseDuration 2147483647", "LeaseDuration 99999999999",
        "LeaseDuration 60 70", "DefaultGateway 192.168.1.300", "DNSAddress2 10.0.0.1 10.0.0.2",
        "PoolStartAddress 10.0.0.x", "LogFilePath \"one quote.txt", "LogFilePath \"three\"quotes\".txt",
        "LogFilePath my logs.txt", "AdditionalOption 43", "AdditionalOption 255 1", "AdditionalOption 43 1 255",
        "AddressReservation 00:11:22:33:44:5 10.0.0.5", "AddressReservation 00:11:22:33:44:55 10.0.0.256",
        "AddressReservation 00:11:22:33:44:55", key + longest + "y", // one character over the line limit
    };
    for (const std::string& badLine : badLines) {
        Server server(folder);
        server.settings.SetLeaseDuration(1234);
        EXPECT_EQ(server.Load(withLine(badLine)), AppException::SettingsFilePartlyLoaded) << badLine;
        EXPECT_EQ(server.Saved(), goodText) << badLine;
    }

    // Quoting: blanks inside quotes stay; one word needs none; the longest line is still read.
    const std::pair<std::string, std::string> paths[] = {
        {"C:\\logs\\server.txt", "C:/logs/server.txt"}, {"\" spaced.txt \"", " spaced.txt "}, {"\"\"", ""},
        {longest, longest}};
    for (const auto& [text, cleaned] : paths) {
        Server server(folder);
        EXPECT_EQ(server.Load(PoolAnd({key + text})), LOADED) << text;
        EXPECT_EQ(server.settings.GetLogFilePath(), cleaned) << text;
    }
    // A key given twice: the last good line wins.
    Server twice(folder);
    EXPECT_EQ(twice.Load(PoolAnd({"LeaseDuration 2147483646", "LeaseDuration 0", "LeaseDuration x"})),
              AppException::SettingsFilePartlyLoaded);
    EXPECT_EQ(twice.settings.GetLeaseDuration(), 0);

    // Reservations are checked against the pool of the file, which moves it
    // from 192.168.1.x: rows outside the subnet or clashing are dropped.
    Server reserving(folder);
    EXPECT_EQ(reserving.Load(PoolAnd({}) + "AddressReservation 00:11:22:33:44:55 10.0.0.5\r\n"
                                           "AddressReservation 00:00:00:00:00:01 192.168.1.5\r\n"
                                           "AddressReservation 00:11:22:33:44:55 10.0.0.6\r\n"
                                           "AddressReservation 00:00:00:00:00:02 10.0.0.5\r\n"
                                           "AddressReservation AA:BB:CC:DD:EE:FF 10.0.0.250\r\n"),
              AppException::SettingsFilePartlyLoaded);
    ASSERT_EQ(reserving.addressManager.GetReservationCount(), 2u);
    EXPECT_EQ(reserving.addressManager.GetReservation(0).GetIPAddress(), IPv4Address(10, 0, 0, 5));
    EXPECT_EQ(reserving.addressManager.GetReservation(1).GetIPAddress(), IPv4Address(10, 0, 0, 250));
}

TEST(SettingsFileTest, AMissingOrInvalidPoolIsFatal)
{
    // Pool, mask, gateway, lease time, options and reservations keep their
    // values; the lines that store directly have stored.
    TemporaryFolder folder;
    const std::string expected = Replaced(DEFAULT_FILE, {{"Tray False", "Tray True"},
                                                         {"LoggingEnabled False", "LoggingEnabled True"},
                                                         {"Messages False", "Messages True"},
                                                         {"log.txt", "kept.txt"},
                                                         {"NakSent True", "NakSent False"}});
    const std::string file = PoolAnd({"DefaultGateway 10.0.0.1", "LeaseDuration 10", "AdditionalOption 43 1",
                                      "AddressReservation 00:11:22:33:44:55 10.0.0.5", "LoggingEnabled True",
                                      "MinimizeToSystemTray True", "LogIgnoredDHCPMessages True",
                                      "LogEvent_DHCPNakSent False", "LogFilePath \"kept.txt\""});
    const std::pair<std::string, std::string> damages[] = {
        {"PoolStartAddress", "poolstartaddress"}, {"PoolEndAddress 10.0.0.200\r\n", ""},
        {"10.0.0.100", "0.0.0.0"},                 {"SubnetMask 255.255.255.0\r\n", ""},
        {"255.255.255.0", "255.0.255.0"},          {"255.255.255.0", "0.0.0.0"},
    };
    for (const auto& damage : damages) {
        Server server(folder);
        EXPECT_EQ(server.Load(Replaced(file, {damage})), AppException::SettingsFileFatalError) << damage.second;
        EXPECT_EQ(server.Saved(), expected) << damage.second;
    }

    // A pool that is there but invalid gives all defaults, without the
    // reservations and options held before; the preferred address has no
    // default, and the take-over had written it.
    Server server(folder);
    server.settings.GetAdditionalOptions().emplace_back("4", "1 2 3 4");
    server.addressManager.AddReservation(
        AddressReservation(HardwareAddress("00:00:00:00:00:09"), IPv4Address(192, 168, 1, 9)));
    EXPECT_EQ(server.Load(Replaced(file, {{"10.0.0.100", "10.0.0.201"}}) + "PreferredListeningAddress 10.0.0.1\r\n"),
              AppException::SettingsFileFatalError);
    EXPECT_EQ(server.Saved(), Replaced(DEFAULT_FILE, {{"3600\r\n", "3600\r\nPreferredListeningAddress 10.0.0.1\r\n"}}));
    // Under a /32 mask no pool is valid.
    Server host(folder);
    EXPECT_EQ(host.Load("PoolStartAddress 10.0.0.1\r\nPoolEndAddress 10.0.0.1\r\nSubnetMask 255.255.255.255\r\n"),
              AppException::SettingsFileFatalError);
    EXPECT_EQ(host.Saved(), DEFAULT_FILE);
}
