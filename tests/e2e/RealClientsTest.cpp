// Real clients (busybox udhcpc, ISC dhclient, dhcpcd) against the engine on
// real sockets, each side in its own network namespace.

#include "E2EFixture.h"

#include "foundation/Tools.h"

namespace {

const std::string MAC_1 = "02:54:76:00:00:01";
const std::string MAC_2 = "02:54:76:00:00:02";
const std::string MAC_3 = "02:54:76:00:00:03";

} // namespace

class RealClientsTest : public E2EFixture {
protected:
    // The clients are test peers that scripts/install-deps.sh installs; a
    // missing one fails the test with its package name.
    static void RequireProgram(const std::string& program, const std::string& package)
    {
        ASSERT_EQ(NetworkNamespaces::RunCommand("command -v " + program).exitStatus, 0)
            << program << " is missing (Debian package " << package << ")";
    }

    // udhcpc once for the client `mac`; the address it was given.
    std::string ObtainWithUdhcpc(const std::string& mac)
    {
        ResetInterface(mac);
        const size_t before = Events().size();
        EXPECT_EQ(StartInClient(Udhcpc({"-q", "-n"}), "udhcpc.out")->Wait(), 0) << ReadFile("udhcpc.out");
        const auto bound = WaitForEvent("bound", before, std::chrono::seconds(1));
        return bound ? bound->Get("ip") : std::string();
    }
};

TEST_F(RealClientsTest, EachClientObtainsTheConfiguredLeaseWithTheRawOption)
{
    RequireProgram("dhclient", "isc-dhcp-client");
    RequireProgram("dhcpcd", "dhcpcd5");
    StartServer();
    // udhcpc reports "bound" and names the values itself; dhclient and
    // dhcpcd report "BOUND" with the ISC names.
    const struct {
        std::string mac;
        std::vector<std::string> command;
        bool isc;
    } clients[] = {{MAC_1, Udhcpc(), false}, {MAC_2, Dhclient(), true}, {MAC_3, DhcpcdOnce(), true}};
    for (const auto& client : clients) {
        SCOPED_TRACE(client.command[0]);
        ResetInterface(client.mac);
        const size_t before = Events().size();
        const auto process = StartInClient(client.command, "client.out");
        const auto bound = WaitForEvent(client.isc ? "BOUND" : "bound", before);
        process->Terminate();
        ASSERT_TRUE(bound.has_value()) << ReadFile("client.out");
        const auto get = [&](const char* udhcpcName, const char* iscName) {
            return bound->Get(client.isc ? iscName : udhcpcName);
        };
        const std::string address = get("ip", "new_ip_address");
        EXPECT_TRUE(InPool(address)) << address;
        EXPECT_EQ(get("subnet", "new_subnet_mask"), "255.255.255.0");
        EXPECT_EQ(get("router", "new_routers"), pair->ServerAddress().ToString());
        EXPECT_EQ(get("dns", "new_domain_name_servers"), Host(53).ToString() + " " + Host(54).ToString());
        EXPECT_EQ(get("lease", "new_dhcp_lease_time"), "600");
        EXPECT_EQ(get("serverid", "new_dhcp_server_identifier"), pair->ServerAddress().ToString());
        // Option 15, entered as code and bytes, reaches the client.
        EXPECT_EQ(get("domain", "new_domain_name"), "tarn");
        EXPECT_EQ(LeasedTo(client.mac).ToString(), address);
        EXPECT_NE(pair->RunInClient("ip -4 addr show dev " + pair->ClientInterface()).find(address + "/24"),
                  std::string::npos);
    }
}

TEST_F(RealClientsTest, RenewalIsAnsweredByUnicastToTheClient)
{
    RequireProgram("tcpdump", "tcpdump");
    StartServer();
    ResetInterface(MAC_1);
    // Watches the client's side of the link for replies to port 68.
    const auto capture = StartInClient({"tcpdump", "-n", "-l", "-i", pair->ClientInterface(), "udp dst port 68"},
                                       "tcpdump.out");
    for (int i = 0; i < 100 && ReadFile("tcpdump.out").find("listening on") == std::string::npos; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }

    const auto udhcpc = StartInClient(Udhcpc(), "udhcpc.out");
    const auto bound = WaitForEvent("bound");
    ASSERT_TRUE(bound.has_value()) << ReadFile("udhcpc.out");
    const std::string address = bound->Get("ip");
    udhcpc->Signal(SIGUSR1); // renew now
    const auto renewed = WaitForEvent("renew");
    udhcpc->Terminate();
    ASSERT_TRUE(renewed.has_value()) << ReadFile("udhcpc.out");
    EXPECT_EQ(renewed->Get("ip"), address);
    EXPECT_EQ(renewed->Get("lease"), "600");

    // The server saw a REQUEST with ciaddr and answered it with ciaddr.
    EXPECT_TRUE(WaitForLogItem(DHCPRequestReceived, "client IP address = " + address));
    EXPECT_TRUE(WaitForLogItem(DHCPAckSent, "client IP address = " + address));
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    capture->Terminate();
    const std::string packets = ReadFile("tcpdump.out");
    const std::string server67 = pair->ServerAddress().ToString() + ".67 > ";
    // The exchange at binding was broadcast, the renewal's ACK went to the client itself.
    EXPECT_NE(packets.find(server67 + "255.255.255.255.68"), std::string::npos) << packets;
    EXPECT_NE(packets.find(server67 + address + ".68"), std::string::npos) << packets;
}

TEST_F(RealClientsTest, ReleaseFreesTheAddressForTheNextClient)
{
    // A pool of one address: only a release lets a second client in.
    server->GetSettings()->SetPoolEndAddress(Host(100));
    StartServer();
    ResetInterface(MAC_1);
    auto releasing = StartInClient(Udhcpc({"-R"}), "udhcpc.out");
    const auto bound = WaitForEvent("bound");
    ASSERT_TRUE(bound.has_value()) << ReadFile("udhcpc.out");
    EXPECT_EQ(bound->Get("ip"), Host(100).ToString());
    releasing->Terminate(); // -R: a RELEASE on the way out
    ASSERT_TRUE(WaitForLogItem(DHCPReleaseReceived, "client IP address = " + Host(100).ToString()));
    EXPECT_EQ(ObtainWithUdhcpc(MAC_2), Host(100).ToString());

    // Without a release the address stays taken.
    ResetInterface(MAC_3);
    EXPECT_NE(StartInClient(Udhcpc({"-q", "-n"}), "udhcpc.out")->Wait(), 0);
    EXPECT_EQ(LeasedTo(MAC_3), IPv4Address());
}

TEST_F(RealClientsTest, ReservedClientGetsItsReservedAddress)
{
    // Outside the pool range, inside its subnet.
    server->GetAddressManager()->AddReservation(AddressReservation(HardwareAddress(MAC_2), Host(50)));
    StartServer();
    EXPECT_EQ(ObtainWithUdhcpc(MAC_2), Host(50).ToString());
    EXPECT_EQ(ObtainWithUdhcpc(MAC_1), Host(100).ToString());
}

TEST_F(RealClientsTest, LeasesSurviveAStopAndANewStart)
{
    StartServer();
    EXPECT_EQ(ObtainWithUdhcpc(MAC_1), Host(100).ToString());
    EXPECT_EQ(ObtainWithUdhcpc(MAC_2), Host(101).ToString());
    server->Stop();
    EXPECT_TRUE(Tools::FileExists(folder.FilePath("quorvy_leases_" + pair->ServerAddress().ToString() + ".dat")));

    // The same object started again, then a new run of the program.
    StartServer();
    EXPECT_EQ(ObtainWithUdhcpc(MAC_2), Host(101).ToString());
    NewServer();
    StartServer();
    EXPECT_EQ(ObtainWithUdhcpc(MAC_2), Host(101).ToString());
    EXPECT_EQ(ObtainWithUdhcpc(MAC_1), Host(100).ToString());
}
