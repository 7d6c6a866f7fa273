#include "EngineHarness.h"

#include "foundation/AppException.h"
#include "foundation/Tools.h"

#include <fstream>
#include <sstream>

// Building, starting and stopping the server as a whole, and the listener's
// choice of address.

namespace {

const std::vector<uint8_t> MAC_A = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55};

int32_t CodeOf(const std::function<void()>& action)
{
    try {
        action();
    } catch (const AppException& exception) {
        return exception.GetCode();
    }
    return -1;
}

std::string ReadFile(const std::string& path)
{
    std::ifstream file(path);
    std::stringstream contents;
    contents << file.rdbuf();
    return contents.str();
}

} // namespace

TEST(DHCPServerTest, VersionReadsOneDotZero)
{
    EXPECT_EQ(DHCPServer::GetVersion(), "1.0");
}

TEST(DHCPServerTest, ConstructionChoosesTheFirstAddressAndWritesItBack)
{
    EngineHarness harness({IPv4Address(127, 0, 0, 1), EngineHarness::SERVER_ADDRESS, IPv4Address(127, 1, 2, 3),
                           EngineHarness::OTHER_LOCAL_ADDRESS});
    DHCPServer& server = harness.Server();
    EXPECT_EQ(*server.GetAvailableListeningAddresses(),
              (std::vector<IPv4Address>{EngineHarness::SERVER_ADDRESS, EngineHarness::OTHER_LOCAL_ADDRESS}));
    EXPECT_EQ(server.GetListeningAddress(), EngineHarness::SERVER_ADDRESS);
    EXPECT_EQ(harness.GetSettings().GetPreferredListeningAddress(), EngineHarness::SERVER_ADDRESS);
    EXPECT_TRUE(server.IsPreferredAddressAvailable());
    EXPECT_FALSE(server.IsRunning());
    EXPECT_EQ(harness.network.GetOpenCount(), 0);
    EXPECT_EQ(harness.Addresses().GetLeasesFilePath(), harness.LeaseFilePath(EngineHarness::SERVER_ADDRESS));
}

TEST(DHCPServerTest, ConstructionFailsWithTheListenersAndThePrivilegeCodes)
{
    EngineHarness harness;
    auto platform = harness.Platform();

    harness.localAddresses = {IPv4Address(127, 0, 0, 1)};
    EXPECT_EQ(CodeOf([&] { DHCPServer server(platform); }), AppException::NoAddressToListenOn);
    harness.localAddresses = {};
    EXPECT_EQ(CodeOf([&] { DHCPServer server(platform); }), AppException::NoAddressToListenOn);
    harness.localAddresses = {IPv4Address(), EngineHarness::SERVER_ADDRESS};
    EXPECT_EQ(CodeOf([&] { DHCPServer server(platform); }), AppException::InvalidListeningAddresses);

    auto failingDetection = harness.Platform();
    failingDetection.detectLocalAddresses = []() -> std::vector<IPv4Address> {
        throw AppException(AppException::CannotDetermineLocalAddresses);
    };
    EXPECT_EQ(CodeOf([&] { DHCPServer server(failingDetection); }), AppException::CannotDetermineLocalAddresses);

    auto unprivileged = harness.Platform();
    unprivileged.canBindPrivilegedPort = [] { return false; };
    harness.localAddresses = {EngineHarness::SERVER_ADDRESS};
    EXPECT_EQ(CodeOf([&] { DHCPServer server(unprivileged); }), AppException::NotAdministrator);
}

TEST(DHCPServerTest, StartWithInvalidSettingsOpensNothing)
{
    EngineHarness harness;
    harness.GetSettings().SetPoolEndAddress(IPv4Address(10, 0, 0, 255)); // the broadcast address
    EXPECT_EQ(CodeOf([&] { harness.Server().Start(); }), AppException::ServerSettingsNotValid);
    EXPECT_FALSE(harness.Server().IsRunning());
    EXPECT_EQ(harness.network.GetOpenCount(), 0);
    EXPECT_FALSE(harness.Server().GetLogManager()->IsSavingThreadRunning());
    EXPECT_EQ(harness.Server().GetLogManager()->GetLogItemCount(), 0u);
}

TEST(DHCPServerTest, FailedBindLeavesTheServerStoppedAndALaterStartWorks)
{
    EngineHarness harness;
    for (const int32_t failure : {AppException::CannotBindSocket, AppException::CannotDetermineInterfaceName}) {
        harness.network.SetOpenFailure(failure);
        EXPECT_EQ(CodeOf([&] { harness.Server().Start(); }), failure);
        EXPECT_FALSE(harness.Server().IsRunning());
        EXPECT_FALSE(harness.network.IsOpen());
        EXPECT_FALSE(harness.Server().GetLogManager()->IsSavingThreadRunning());
    }
    harness.Start();
    EXPECT_TRUE(harness.Server().IsRunning());
    EXPECT_EQ(harness.SendForOne(ClientDatagram(1, 1, MAC_A)).MessageType(), 2);
}

TEST(DHCPServerTest, StartAndStopFrameTheLogAndBindPort67OnTheListeningAddress)
{
    EngineHarness harness;
    harness.Server().Start();
    EXPECT_TRUE(harness.Server().IsRunning());
    EXPECT_TRUE(harness.network.IsOpen());
    EXPECT_EQ(harness.network.GetOpenedAddress(), EngineHarness::SERVER_ADDRESS);
    EXPECT_EQ(harness.network.GetOpenedPort(), 67);
    EXPECT_TRUE(harness.Server().GetLogManager()->IsSavingThreadRunning());

    harness.Server().Stop();
    EXPECT_FALSE(harness.Server().IsRunning());
    EXPECT_FALSE(harness.network.IsOpen());
    EXPECT_FALSE(harness.Server().GetLogManager()->IsSavingThreadRunning());
    const auto items = harness.Server().GetLogManager()->GetLogItems(0);
    ASSERT_EQ(EventsOf(items), (std::vector<EventType>{ServerStart, ServerStop}));
    EXPECT_EQ(items[0].GetDetails(), "listening IP address = 10.0.0.1");
    EXPECT_EQ(items[1].GetDetails(), "");
    // The last save at the stop has written both lines.
    const std::string log = ReadFile(harness.temporaryFolder.FilePath("log.txt"));
    EXPECT_NE(log.find(": Server start, listening IP address = 10.0.0.1\n"), std::string::npos);
    EXPECT_NE(log.find(": Server stop\n"), std::string::npos);
}

TEST(DHCPServerTest, WithoutLoggingThereAreNoItemsAndNoSavingThread)
{
    EngineHarness harness;
    harness.GetSettings().SetLoggingEnabled(false);
    harness.Server().Start();
    EXPECT_FALSE(harness.Server().GetLogManager()->IsSavingThreadRunning());
    harness.SendForOne(ClientDatagram(1, 1, MAC_A));
    harness.Server().Stop();
    EXPECT_EQ(harness.Server().GetLogManager()->GetLogItemCount(), 0u);
}

TEST(DHCPServerTest, LoggingSwitchedOffWhileRunningStopsTheSavingThreadWithoutAStopItem)
{
    EngineHarness harness;
    harness.Server().Start();
    harness.GetSettings().SetLoggingEnabled(false);
    harness.Server().Stop();
    EXPECT_FALSE(harness.Server().GetLogManager()->IsSavingThreadRunning());
    EXPECT_EQ(EventsOf(harness.Server().GetLogManager()->GetLogItems(0)), (std::vector<EventType>{ServerStart}));
}

TEST(DHCPServerTest, LeasesAreSavedAtStopAndLoadedAgainAtStart)
{
    EngineHarness harness;
    harness.Start();
    const IPv4Address held = harness.Obtain(MAC_A, 1);
    harness.Server().Stop();
    const std::string leaseFile = harness.LeaseFilePath(EngineHarness::SERVER_ADDRESS);
    ASSERT_TRUE(Tools::FileExists(leaseFile));

    // Lost in memory while stopped; the start reads the file again.
    harness.Addresses().RemoveLease(held);
    ASSERT_EQ(harness.Addresses().GetLeaseCount(), 0u);
    harness.Start();
    EXPECT_EQ(harness.network.GetOpenCount(), 2);
    EXPECT_EQ(harness.network.GetOpenedAddress(), EngineHarness::SERVER_ADDRESS);
    EXPECT_TRUE(harness.LiveLeaseOn(held).has_value());
    EXPECT_EQ(harness.SendForOne(ClientDatagram(1, 2, MAC_A)).message.GetYourIPAddress(), held);
}

TEST(DHCPServerTest, ANewServerFindsTheLeasesOfTheLastRun)
{
    EngineHarness harness;
    harness.Start();
    const IPv4Address held = harness.Obtain(TestMac(1), 1);
    ASSERT_EQ(harness.Obtain(MAC_A, 2), held + 1);
    harness.Server().Stop();

    // A new run: the choice of the listening address loads that address's file.
    harness.ReplaceServer();
    EXPECT_EQ(harness.Addresses().GetLeaseCount(), 2u);
    harness.Start();
    EXPECT_EQ(harness.SendForOne(ClientDatagram(1, 3, MAC_A)).message.GetYourIPAddress(), held + 1);
}

TEST(DHCPServerTest, DeletingARunningServerStopsItAndSavesItsLeases)
{
    EngineHarness harness;
    harness.Start();
    const IPv4Address held = harness.Obtain(MAC_A, 1);
    harness.DestroyServer();
    EXPECT_FALSE(harness.network.IsOpen());
    const std::string log = ReadFile(harness.temporaryFolder.FilePath("log.txt"));
    EXPECT_NE(log.find(": Server stop\n"), std::string::npos);

    harness.ReplaceServer();
    EXPECT_EQ(harness.Addresses().GetLeasedAddress(HardwareAddress("00:11:22:33:44:55")), held);
}

TEST(DHCPServerTest, PreferredAddressDecidesTheBindingAndAnUnavailableOneIsReplaced)
{
    EngineHarness harness;
    harness.GetSettings().SetPreferredListeningAddress(EngineHarness::OTHER_LOCAL_ADDRESS);
    EXPECT_TRUE(harness.Server().IsPreferredAddressAvailable());
    harness.Server().Start();
    EXPECT_EQ(harness.network.GetOpenedAddress(), EngineHarness::OTHER_LOCAL_ADDRESS);
    EXPECT_EQ(harness.Server().GetListeningAddress(), EngineHarness::OTHER_LOCAL_ADDRESS);
    // The reply speaks as the address that is bound.
    EXPECT_EQ(harness.SendForOne(ClientDatagram(1, 1, MAC_A)).Option(54),
              AddressBytes(EngineHarness::OTHER_LOCAL_ADDRESS));
    harness.Server().Stop();

    // Gone from the machine: the next start keeps the address in use and
    // writes it back.
    harness.GetSettings().SetPreferredListeningAddress(IPv4Address(10, 0, 2, 1));
    EXPECT_FALSE(harness.Server().IsPreferredAddressAvailable());
    harness.Server().Start();
    EXPECT_EQ(harness.network.GetOpenedAddress(), EngineHarness::OTHER_LOCAL_ADDRESS);
    EXPECT_EQ(harness.GetSettings().GetPreferredListeningAddress(), EngineHarness::OTHER_LOCAL_ADDRESS);
}

TEST(DHCPServerTest, ReceiveErrorEndsListeningButTheServerRunsUntilStopped)
{
    EngineHarness harness;
    harness.Start();
    harness.network.FailNextReceive();
    ASSERT_TRUE(harness.network.WaitUntilClosed());
    EXPECT_TRUE(harness.Server().IsRunning());

    harness.Server().Stop();
    EXPECT_FALSE(harness.Server().IsRunning());
    EXPECT_EQ(EventsOf(harness.Server().GetLogManager()->GetLogItems(0)),
              (std::vector<EventType>{ServerStart, ServerStop}));

    // A new start has a new socket and a new thread.
    harness.Start();
    EXPECT_EQ(harness.network.GetOpenCount(), 2);
    EXPECT_EQ(harness.SendForOne(ClientDatagram(1, 1, MAC_A)).MessageType(), 2);
}

TEST(DHCPServerTest, StopWhileIdleReturnsAndStartStopCanAlternate)
{
    EngineHarness harness;
    for (int round = 0; round < 5; ++round) {
        harness.Server().Start();
        harness.Server().Stop();
    }
    EXPECT_EQ(harness.network.GetOpenCount(), 5);
    EXPECT_FALSE(harness.network.IsOpen());
}
