#include "EngineHarness.h"

#include "allocation/Lease.h"
#include "allocation/LeaseJournalRecovery.h"
#include "foundation/Serializable.h"
#include "foundation/Tools.h"
#include "support/FileText.h"
#include "support/RaisedCode.h"

#include <thread>

// Building, starting and stopping the server as a whole, and the listener's
// choice of address.

TEST(DHCPServerTest, ConstructionChoosesTheFirstAddressBesides127OrFailsWithItsCode)
{
    EngineHarness harness({IPv4Address(127, 0, 0, 1), SERVER, IPv4Address(127, 1, 2, 3), OTHER_LOCAL});
    EXPECT_EQ(*harness.Server().GetAvailableListeningAddresses(), (std::vector<IPv4Address>{SERVER, OTHER_LOCAL}));
    EXPECT_EQ(harness.Server().GetListeningAddress(), SERVER);
    EXPECT_EQ(harness.GetSettings().GetPreferredListeningAddress(), SERVER);
    EXPECT_EQ(harness.Addresses().GetLeasesFilePath(), harness.LeaseFilePath());
    EXPECT_EQ(harness.network.GetOpenCount(), 0);

    const auto codeWith = [&](std::vector<IPv4Address> addresses, bool privileged = true) {
        harness.localAddresses = std::move(addresses);
        return CodeRaisedBy([&] { DHCPServer server(harness.Platform(privileged)); });
    };
    EXPECT_EQ(codeWith({IPv4Address(127, 0, 0, 1)}), AppException::NoAddressToListenOn);
    EXPECT_EQ(codeWith({}), AppException::NoAddressToListenOn);
    EXPECT_EQ(codeWith({IPv4Address(), SERVER}), AppException::InvalidListeningAddresses);
    EXPECT_EQ(codeWith({SERVER}, false), AppException::NotAdministrator);
}

TEST(DHCPServerTest, FailedStartOpensNothingAndALaterStartWorks)
{
    EngineHarness harness;
    harness.GetSettings().SetPoolEndAddress(IPv4Address(10, 0, 0, 255)); // the broadcast address
    EXPECT_EQ(CodeRaisedBy([&] { harness.Server().Start(); }), AppException::ServerSettingsNotValid);
    EXPECT_EQ(harness.network.GetOpenCount(), 0);
    EXPECT_EQ(harness.Log().GetLogItemCount(), 0u);
    harness.GetSettings().SetPoolEndAddress(POOL_END);
    // A reservation that the pool's subnet no longer holds, once the mask has
    // narrowed or the pool has moved to another subnet.
    harness.Addresses().AddReservation(AddressReservation(TestHardware('R'), IPv4Address(10, 0, 0, 20)));
    harness.GetSettings().SetSubnetMask(26); // the pool's subnet: .64-.127
    EXPECT_EQ(CodeRaisedBy([&] { harness.Server().Start(); }), AppException::ServerSettingsNotValid);
    harness.GetSettings().SetSubnetMask(24);
    harness.GetSettings().SetPoolStartAddress(IPv4Address(10, 0, 1, 100));
    harness.GetSettings().SetPoolEndAddress(IPv4Address(10, 0, 1, 110));
    EXPECT_EQ(CodeRaisedBy([&] { harness.Server().Start(); }), AppException::ServerSettingsNotValid);
    EXPECT_EQ(harness.network.GetOpenCount(), 0);
    harness.Addresses().RemoveReservation(0);
    harness.GetSettings().SetPoolStartAddress(POOL_START);
    harness.GetSettings().SetPoolEndAddress(POOL_END);

    for (const int32_t failure : {AppException::CannotBindSocket, AppException::CannotDetermineInterfaceName}) {
        harness.network.SetOpenFailure(failure);
        EXPECT_EQ(CodeRaisedBy([&] { harness.Server().Start(); }), failure);
        EXPECT_FALSE(harness.network.IsOpen()) << failure;
        EXPECT_FALSE(harness.Server().IsRunning()) << failure;
    }
    EXPECT_FALSE(harness.Log().IsSavingThreadRunning());
    harness.Start();
    EXPECT_EQ(harness.SendForOne(Discover(1, 'A')).Yiaddr(), POOL_START);
}

TEST(DHCPServerTest, RunsFromStartToStopThroughAReceiveErrorAndKeepsTheLeasesForTheNextRun)
{
    EngineHarness harness;
    harness.Start();
    EXPECT_TRUE(harness.Server().IsRunning());
    EXPECT_EQ(harness.network.GetOpenedAddress(), SERVER);
    EXPECT_EQ(harness.network.GetOpenedPort(), 67);
    EXPECT_TRUE(harness.Log().IsSavingThreadRunning());
    harness.Obtain('A', 1);

    // A receive error ends listening, but the server runs until stopped.
    harness.network.FailNextReceive();
    ASSERT_TRUE(harness.network.WaitUntilClosed());
    EXPECT_TRUE(harness.Server().IsRunning());
    harness.Server().Stop();
    EXPECT_FALSE(harness.Server().IsRunning());
    EXPECT_FALSE(harness.Log().IsSavingThreadRunning());
    const auto items = harness.Log().GetLogItems(0);
    EXPECT_EQ(EventsText(items), "start DISCOVER OFFER REQUEST ACK stop");
    EXPECT_EQ(items.front().GetDetails(), "listening IP address = 10.0.0.1");
    // The last save at the stop has written every line.
    EXPECT_NE(ReadText(harness.folder.FilePath("log.txt")).find(": Server start, listening IP address = 10.0.0.1\n"),
              std::string::npos);

    // The stop saved the leases; lost in memory meanwhile, the next start
    // reads them again, with a new socket.
    harness.Addresses().RemoveLease(POOL_START);
    harness.Start();
    EXPECT_EQ(harness.network.GetOpenCount(), 2);
    EXPECT_EQ(harness.Leases(), "A.100");
    // Deleting a running server stops it and saves the leases; the next
    // run's choice of the listening address loads them.
    harness.Obtain('B', 2);
    harness.ReplaceServer();
    EXPECT_FALSE(harness.network.IsOpen());
    EXPECT_TRUE(ReadText(harness.folder.FilePath("log.txt")).ends_with(": Server stop\n"));
    EXPECT_EQ(harness.Leases(), "A.100 B.101");
    harness.Start();
    EXPECT_EQ(harness.SendForOne(Discover(3, 'B')).Yiaddr(), POOL_START + 1);
}

// Stop lets the receive thread finish the datagram it has taken before the
// leases are saved: the lease that datagram grants is in the file.
TEST(DHCPServerTest, StopHandlesTheMessageInHandBeforeSavingTheLeases)
{
    EngineHarness harness;
    harness.Start();
    const IPv4Address offered = harness.SendForOne(Discover(1, 'A')).Yiaddr();
    harness.network.HoldTakenDatagrams(true);
    harness.network.Deliver(Selecting(1, 'A', offered));
    ASSERT_TRUE(harness.network.WaitUntilHeld());
    std::thread stopping([&] { harness.Server().Stop(); });
    const bool interrupted = harness.network.WaitUntilInterrupted();
    harness.network.HoldTakenDatagrams(false);
    stopping.join();
    EXPECT_TRUE(interrupted);
    EXPECT_EQ(harness.network.TakeSent().size(), 1u); // the ACK
    const ByteString lease = Lease(TestHardware('A'), offered, LEASE_DURATION, harness.clock.Now()).Serialize();
    const ByteString file = Serializable::SerializeGroup({lease});
    EXPECT_EQ(ReadText(harness.LeaseFilePath()), std::string(file.begin(), file.end()));
}

TEST(DHCPServerTest, WithLoggingOffThereAreNoStartOrStopItemsAndNoSavingThread)
{
    EngineHarness harness;
    harness.GetSettings().SetLoggingEnabled(false);
    harness.Server().Start();
    EXPECT_FALSE(harness.Log().IsSavingThreadRunning());
    harness.Server().Stop();
    EXPECT_EQ(harness.Log().GetLogItemCount(), 0u);
    // Switched off while running: the thread stops, without a stop item.
    harness.GetSettings().SetLoggingEnabled(true);
    harness.Server().Start();
    harness.GetSettings().SetLoggingEnabled(false);
    harness.Server().Stop();
    EXPECT_FALSE(harness.Log().IsSavingThreadRunning());
    EXPECT_EQ(EventsText(harness.Log().GetLogItems(0)), "start");
}

TEST(DHCPServerTest, PreferredAddressDecidesTheBindingAndAnUnavailableOneIsReplaced)
{
    EngineHarness harness;
    harness.GetSettings().SetPreferredListeningAddress(OTHER_LOCAL);
    EXPECT_TRUE(harness.Server().IsPreferredAddressAvailable());
    harness.Server().Start();
    EXPECT_EQ(harness.network.GetOpenedAddress(), OTHER_LOCAL);
    EXPECT_EQ(harness.Server().GetListeningAddress(), OTHER_LOCAL);
    // The reply speaks as the address that is bound.
    EXPECT_EQ(harness.SendForOne(Discover(1, 'A')).Option(54), AddressBytes(OTHER_LOCAL));
    harness.Server().Stop();

    // Gone from the machine: the next start keeps the address in use and
    // writes it back.
    harness.GetSettings().SetPreferredListeningAddress(IPv4Address(10, 0, 2, 1));
    EXPECT_FALSE(harness.Server().IsPreferredAddressAvailable());
    harness.Server().Start();
    EXPECT_EQ(harness.network.GetOpenedAddress(), OTHER_LOCAL);
    EXPECT_EQ(harness.GetSettings().GetPreferredListeningAddress(), OTHER_LOCAL);
}

TEST(DHCPServerTest, TheJournalHoldsEachGrantBeforeItsReplyAndGoesAtACleanStop)
{
    EngineHarness harness;
    const std::string journal = harness.LeaseFilePath() + ".journal";
    harness.Start();
    harness.Obtain('A', 1);
    // The ACK came back: its lease is in the journal, over the lease file.
    const auto replayed = LeaseJournalRecovery::Replay(ReadText(harness.LeaseFilePath()), ReadText(journal));
    ASSERT_TRUE(replayed);
    ASSERT_EQ(replayed->size(), 1u);
    EXPECT_EQ(replayed->at(0).GetHardwareAddress(), TestHardware('A'));

    // A clean stop writes the lease file as before and removes the journal.
    harness.Server().Stop();
    EXPECT_FALSE(Tools::FileExists(journal));
    const ByteString table = harness.Addresses().SerializeLeases();
    EXPECT_EQ(ReadText(harness.LeaseFilePath()), std::string(table.begin(), table.end()));
    EXPECT_TRUE(harness.Server().TakeStorageWarnings().empty());
}
