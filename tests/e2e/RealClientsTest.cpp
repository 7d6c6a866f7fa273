#include "E2EFixture.h"

#include "foundation/Tools.h"

#include <csignal>
#include <fstream>
#include <sstream>

// Real clients (busybox udhcpc, ISC dhclient, dhcpcd) against the engine on
// real sockets, each side in its own network namespace.

namespace {

const std::string MAC_1 = "02:54:76:00:00:01";
const std::string MAC_2 = "02:54:76:00:00:02";
const std::string MAC_3 = "02:54:76:00:00:03";

std::string ReadFile(const std::string& path)
{
    std::ifstream file(path);
    std::stringstream contents;
    contents << file.rdbuf();
    return contents.str();
}

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
        clients->ResetInterface(mac);
        const size_t before = clients->Events().size();
        const auto result = clients->RunUdhcpcOnce();
        EXPECT_EQ(result.exitStatus, 0) << result.output;
        const auto bound = clients->WaitForEvent("bound", before, std::chrono::seconds(1));
        return bound ? bound->Get("ip") : std::string();
    }

    IPv4Address LeasedTo(const std::string& mac) { return server->Addresses().GetLeasedAddress(HardwareAddress(mac)); }
};

TEST_F(RealClientsTest, BusyboxUdhcpcObtainsTheConfiguredLease)
{
    server->Start();
    clients->ResetInterface(MAC_1);
    const auto result = clients->RunUdhcpcOnce();
    ASSERT_EQ(result.exitStatus, 0) << result.output;
    const auto bound = clients->WaitForEvent("bound");
    ASSERT_TRUE(bound.has_value());
    EXPECT_TRUE(InPool(bound->Get("ip"))) << bound->Get("ip");
    EXPECT_EQ(bound->Get("subnet"), "255.255.255.0");
    EXPECT_EQ(bound->Get("mask"), "24");
    EXPECT_EQ(bound->Get("router"), pair->ServerAddress().ToString());
    EXPECT_EQ(bound->Get("dns"), Host(53).ToString() + " " + Host(54).ToString());
    EXPECT_EQ(bound->Get("lease"), "600");
    EXPECT_EQ(bound->Get("domain"), "tarn");
    EXPECT_EQ(bound->Get("serverid"), pair->ServerAddress().ToString());
    EXPECT_EQ(bound->Get("broadcast"), Host(255).ToString());
    EXPECT_EQ(LeasedTo(MAC_1).ToString(), bound->Get("ip"));
}

TEST_F(RealClientsTest, IscDhclientObtainsTheConfiguredLease)
{
    RequireProgram("dhclient", "isc-dhcp-client");
    server->Start();
    clients->ResetInterface(MAC_1);
    auto dhclient = clients->StartDhclient();
    const auto bound = clients->WaitForEvent("BOUND");
    dhclient->Terminate();
    ASSERT_TRUE(bound.has_value()) << ReadFile(clients->FilePath("dhclient.out"));
    EXPECT_TRUE(InPool(bound->Get("new_ip_address"))) << bound->Get("new_ip_address");
    EXPECT_EQ(bound->Get("new_subnet_mask"), "255.255.255.0");
    EXPECT_EQ(bound->Get("new_routers"), pair->ServerAddress().ToString());
    EXPECT_EQ(bound->Get("new_domain_name_servers"), Host(53).ToString() + " " + Host(54).ToString());
    EXPECT_EQ(bound->Get("new_dhcp_lease_time"), "600");
    EXPECT_EQ(bound->Get("new_domain_name"), "tarn");
    EXPECT_EQ(bound->Get("new_dhcp_server_identifier"), pair->ServerAddress().ToString());
    EXPECT_EQ(LeasedTo(MAC_1).ToString(), bound->Get("new_ip_address"));
}

TEST_F(RealClientsTest, DhcpcdObtainsTheConfiguredLease)
{
    RequireProgram("dhcpcd", "dhcpcd5");
    server->Start();
    clients->ResetInterface(MAC_1);
    const auto result = clients->RunDhcpcdOnce();
    ASSERT_EQ(result.exitStatus, 0) << result.output;
    const auto bound = clients->WaitForEvent("BOUND", 0, std::chrono::seconds(1));
    ASSERT_TRUE(bound.has_value()) << result.output;
    EXPECT_TRUE(InPool(bound->Get("new_ip_address"))) << bound->Get("new_ip_address");
    EXPECT_EQ(bound->Get("new_subnet_mask"), "255.255.255.0");
    EXPECT_EQ(bound->Get("new_subnet_cidr"), "24");
    EXPECT_EQ(bound->Get("new_routers"), pair->ServerAddress().ToString());
    EXPECT_EQ(bound->Get("new_domain_name_servers"), Host(53).ToString() + " " + Host(54).ToString());
    EXPECT_EQ(bound->Get("new_dhcp_lease_time"), "600");
    EXPECT_EQ(bound->Get("new_domain_name"), "tarn");
    EXPECT_EQ(LeasedTo(MAC_1).ToString(), bound->Get("new_ip_address"));
    // dhcpcd configured the address itself, inside the client namespace.
    EXPECT_NE(pair->RunInClient("ip -4 addr show dev " + pair->ClientInterface()).find(bound->Get("new_ip_address")),
              std::string::npos);
}

TEST_F(RealClientsTest, RenewalIsAnsweredByUnicastToTheClient)
{
    RequireProgram("tcpdump", "tcpdump");
    server->Start();
    clients->ResetInterface(MAC_1);
    // Watches the client's side of the link for replies to port 68.
    ChildProcess capture({"ip", "netns", "exec", pair->ClientNamespace(), "tcpdump", "-n", "-l", "-i",
                          pair->ClientInterface(), "udp", "dst", "port", "68"},
                         clients->FilePath("tcpdump.out"));
    for (int i = 0; i < 100 && ReadFile(clients->FilePath("tcpdump.out")).find("listening on") == std::string::npos;
         ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }

    auto udhcpc = clients->StartUdhcpc();
    const auto bound = clients->WaitForEvent("bound");
    ASSERT_TRUE(bound.has_value()) << ReadFile(clients->FilePath("udhcpc.out"));
    const std::string address = bound->Get("ip");
    udhcpc->Signal(SIGUSR1); // renew now
    const auto renewed = clients->WaitForEvent("renew");
    udhcpc->Terminate();
    ASSERT_TRUE(renewed.has_value()) << ReadFile(clients->FilePath("udhcpc.out"));
    EXPECT_EQ(renewed->Get("ip"), address);
    EXPECT_EQ(renewed->Get("lease"), "600");

    // The server saw a REQUEST with ciaddr and answered it with ciaddr.
    EXPECT_TRUE(WaitForLogItem(DHCPRequestReceived, "client IP address = " + address));
    EXPECT_TRUE(WaitForLogItem(DHCPAckSent, "client IP address = " + address));
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    capture.Terminate();
    const std::string packets = ReadFile(clients->FilePath("tcpdump.out"));
    const std::string server67 = pair->ServerAddress().ToString() + ".67 > ";
    // The exchange at binding was broadcast, the renewal's ACK went to the client itself.
    EXPECT_NE(packets.find(server67 + "255.255.255.255.68"), std::string::npos) << packets;
    EXPECT_NE(packets.find(server67 + address + ".68"), std::string::npos) << packets;
}

TEST_F(RealClientsTest, ReleaseFreesTheAddressForTheNextClient)
{
    // A pool of one address: only a release lets a second client in.
    server->GetSettings().SetPoolEndAddress(Host(100));
    server->Start();
    clients->ResetInterface(MAC_1);
    auto releasing = clients->StartUdhcpc(true);
    const auto bound = clients->WaitForEvent("bound");
    ASSERT_TRUE(bound.has_value());
    EXPECT_EQ(bound->Get("ip"), Host(100).ToString());
    releasing->Terminate(); // -R: a RELEASE on the way out
    ASSERT_TRUE(WaitForLogItem(DHCPReleaseReceived, "client IP address = " + Host(100).ToString()));
    EXPECT_EQ(ObtainWithUdhcpc(MAC_2), Host(100).ToString());

    // Without a release the address stays taken.
    clients->ResetInterface(MAC_3);
    EXPECT_NE(clients->RunUdhcpcOnce().exitStatus, 0);
    EXPECT_EQ(LeasedTo(MAC_3), IPv4Address());
}

TEST_F(RealClientsTest, ReservedClientGetsItsReservedAddress)
{
    // Outside the pool range, inside its subnet.
    server->Addresses().AddReservation(AddressReservation(HardwareAddress(MAC_2), Host(50)));
    server->Start();
    EXPECT_EQ(ObtainWithUdhcpc(MAC_2), Host(50).ToString());
    EXPECT_EQ(ObtainWithUdhcpc(MAC_1), Host(100).ToString());
}

TEST_F(RealClientsTest, LeasesSurviveAStopAndANewStart)
{
    server->Start();
    EXPECT_EQ(ObtainWithUdhcpc(MAC_1), Host(100).ToString());
    EXPECT_EQ(ObtainWithUdhcpc(MAC_2), Host(101).ToString());
    server->Stop();
    const std::string leaseFile = folder.FilePath("quorvy_leases_" + pair->ServerAddress().ToString() + ".dat");
    EXPECT_TRUE(Tools::FileExists(leaseFile));

    // The same object started again, then a new run of the program.
    server->Start();
    EXPECT_EQ(ObtainWithUdhcpc(MAC_2), Host(101).ToString());
    RestartServerObject();
    server->Start();
    EXPECT_EQ(ObtainWithUdhcpc(MAC_2), Host(101).ToString());
    EXPECT_EQ(ObtainWithUdhcpc(MAC_1), Host(100).ToString());
}
