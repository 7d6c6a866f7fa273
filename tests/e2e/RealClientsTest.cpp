// Real clients against the engine on real sockets, each side in a network
// namespace of its own.

#include "E2EFixture.h"

using RealClientsTest = E2EFixture;

TEST_F(RealClientsTest, EachClientObtainsTheConfiguredLeaseWithTheRawOption)
{
    StartServer();
    const struct {
        std::string mac;
        std::vector<std::string> command;
    } clients[] = {{"02:54:76:00:00:01", Udhcpc()}, {"02:54:76:00:00:02", Dhclient()}, {"02:54:76:00:00:03", Dhcpcd()}};
    uint8_t expected = 100;
    for (const auto& client : clients) {
        SCOPED_TRACE(client.command[0]);
        SetClientInterface(client.mac);
        EXPECT_EQ(RunClient(client.command), Bound(expected));
        EXPECT_EQ(server->GetAddressManager()->GetLeasedAddress(HardwareAddress(client.mac)), Host(expected++));
    }
}

TEST_F(RealClientsTest, ReleaseFreesTheOnlyAddressForTheNextClient)
{
    server->GetSettings()->SetPoolEndAddress(Host(100));
    StartServer();
    SetClientInterface("02:54:76:00:00:01");
    // Ended, it sends a RELEASE, which reaches the server before the next client's DISCOVER.
    EXPECT_EQ(RunClient(Udhcpc(true)), Bound(100));
    SetClientInterface("02:54:76:00:00:02");
    EXPECT_EQ(RunClient(Udhcpc()), Bound(100));
}
