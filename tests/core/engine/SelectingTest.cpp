#include "EngineHarness.h"

#include <functional>
#include <map>

// A client in SELECTING: DISCOVER, OFFER, REQUEST naming our server and the
// offered address, ACK; and the DISCOVERs and REQUESTs that do not fit.

TEST(SelectingTest, FullExchangeGivesTheLowestAddressWithEveryConfiguredOption)
{
    EngineHarness harness;
    harness.Start();
    const IPv4Address relay(10, 9, 9, 9);
    const auto offer = harness.SendForOne(
        Discover(0x8badf00d, MAC_A).BroadcastFlag(true).GatewayAddress(relay).ClientAddress(IPv4Address(10, 0, 0, 7)));
    // ciaddr is never copied into an OFFER.
    EXPECT_EQ(offer.Summary(), "OFFER to 255.255.255.255:68, ciaddr 0.0.0.0, yiaddr 10.0.0.100");
    EXPECT_EQ(offer.message.GetOperation(), 2);
    EXPECT_EQ(offer.sent.data[4], 0x8b); // xid in the client's byte order
    EXPECT_EQ(offer.message.GetTransactionID(), 0x8badf00du);
    EXPECT_TRUE(offer.message.GetBroadcastFlag());
    EXPECT_EQ(offer.message.GetGatewayIPAddress(), relay);
    EXPECT_EQ(offer.message.GetHardwareAddress(), HARDWARE_A);
    // No parameter request list: ascending codes, then End.
    EXPECT_EQ(offer.OptionCodes(), (Codes{1, 3, 6, 28, 51, 53, 54, 255}));
    EXPECT_EQ(offer.Option(1), (ByteString{255, 255, 255, 0}));
    EXPECT_EQ(offer.Option(3), (ByteString{10, 0, 0, 254}));
    EXPECT_EQ(offer.Option(6), (ByteString{10, 0, 0, 53, 10, 0, 0, 54}));
    EXPECT_EQ(offer.Option(28), (ByteString{10, 0, 0, 255}));
    EXPECT_EQ(offer.Option(51), (ByteString{0, 0, 0x0e, 0x10}));
    EXPECT_EQ(offer.Option(54), AddressBytes(SERVER));

    const auto ack =
        harness.SendForOne(Selecting(0x8badf00d, MAC_A, POOL_START).BroadcastFlag(true).GatewayAddress(relay));
    EXPECT_EQ(ack.Summary(), "ACK to 255.255.255.255:68, ciaddr 0.0.0.0, yiaddr 10.0.0.100");
    EXPECT_EQ(ack.message.GetTransactionID(), 0x8badf00du);
    EXPECT_EQ(ack.message.GetGatewayIPAddress(), relay);
    EXPECT_EQ(ack.OptionCodes(), offer.OptionCodes());
    const auto lease = harness.LiveLeaseOn(POOL_START);
    ASSERT_TRUE(lease.has_value());
    EXPECT_EQ(lease->GetHardwareAddress(), HARDWARE_A);
    EXPECT_EQ(lease->GetDuration(), LEASE_DURATION);

    const auto items = harness.NewLogItems();
    ASSERT_EQ(EventsOf(items), (Events{DHCPDiscoverReceived, DHCPOfferSent, DHCPRequestReceived, DHCPAckSent}));
    const std::string client = "client hardware address = 00:11:22:33:44:55";
    EXPECT_EQ(items[1].GetDetails(), client + ", offered IP address = 10.0.0.100");
    // The others show ciaddr only when it is set, and it is 0.0.0.0 in SELECTING.
    for (size_t i : {0, 2, 3}) {
        EXPECT_EQ(items[i].GetDetails(), client) << i;
    }

    // The exchange is over, so the client may start again at once. Without
    // the broadcast flag the OFFER is broadcast all the same, flags clear.
    const auto again = harness.SendForOne(Discover(0x1234, MAC_A));
    EXPECT_EQ(again.Summary(), "OFFER to 255.255.255.255:68, ciaddr 0.0.0.0, yiaddr 10.0.0.100");
    EXPECT_EQ(again.sent.data[10], 0);
}

TEST(SelectingTest, OfferAndAckOptionsFollowTheRequestListAndTheSettings)
{
    struct Row {
        const char* name;
        std::function<void(Settings&)> configure;
        ByteString requestList;
        Codes expected;
        std::map<uint8_t, ByteString> values;
    };
    const std::vector<Row> rows = {
        {"option 55 order first, the rest ascending", [](Settings&) {}, {6, 3, 1, 15, 51},
         {6, 3, 1, 51, 28, 53, 54, 255}, {}},
        {"additional options",
         [](Settings& settings) {
             settings.GetAdditionalOptions().push_back(RawOption("15", "116 97 114 110"));
             settings.GetAdditionalOptions().push_back(RawOption("58", "0 0 7 8"));
         },
         {}, {1, 3, 6, 15, 28, 51, 53, 54, 58, 255}, {{15, {116, 97, 114, 110}}, {58, {0, 0, 7, 8}}}},
        {"gateway and DNS left empty",
         [](Settings& settings) {
             settings.SetDefaultGateway(IPv4Address());
             settings.SetDNSAddress1(IPv4Address());
             settings.SetDNSAddress2(IPv4Address());
         },
         {}, {1, 28, 51, 53, 54, 255}, {}},
        {"second DNS server alone", [](Settings& settings) { settings.SetDNSAddress1(IPv4Address()); }, {},
         {1, 3, 6, 28, 51, 53, 54, 255}, {{6, {10, 0, 0, 54}}}},
    };
    for (const Row& row : rows) {
        EngineHarness harness;
        row.configure(harness.GetSettings());
        harness.Start();
        ClientDatagram discover = Discover(7, MAC_A);
        ClientDatagram request = Selecting(7, MAC_A, POOL_START);
        if (!row.requestList.empty()) {
            discover.ParameterRequestList(row.requestList);
            request.ParameterRequestList(row.requestList);
        }
        for (const auto& reply : {harness.SendForOne(discover), harness.SendForOne(request)}) {
            EXPECT_EQ(reply.OptionCodes(), row.expected) << row.name << ", type " << reply.Type();
            for (const auto& [code, value] : row.values) {
                EXPECT_EQ(reply.Option(code), value) << row.name << ", option " << int(code);
            }
        }
    }
}

TEST(SelectingTest, RepeatedDiscoverWithinTheHoldIsIgnoredUntilThePurge)
{
    EngineHarness harness;
    harness.Start();
    ASSERT_EQ(harness.SendForOne(Discover(100, MAC_A)).Yiaddr(), POOL_START);
    // The offered address is held against the next client.
    ASSERT_EQ(harness.SendForOne(Discover(200, MAC_B)).Yiaddr(), POOL_START + 1);
    harness.NewLogItems();

    // 2 s later: the same client with a new xid, and a third client reusing
    // the open xid. Logged as ignored, not answered.
    harness.clock.Advance(2);
    EXPECT_TRUE(harness.Send(Discover(101, MAC_A)).empty());
    EXPECT_TRUE(harness.Send(Discover(100, TestMac(3))).empty());
    auto items = harness.NewLogItems();
    ASSERT_EQ(EventsOf(items), (Events{DHCPDiscoverReceived, DHCPDiscoverReceived}));
    EXPECT_TRUE(items[0].IsMessageIgnored());
    EXPECT_TRUE(items[1].IsMessageIgnored());
    EXPECT_NE(items[1].GetLogLine().find(
                  "DHCP Discover received, message ignored, client hardware address = 02:00:00:00:00:03"),
              std::string::npos);
    // Not even logged when ignored messages are not to be logged.
    harness.GetSettings().SetLogIgnoredDHCPMessages(false);
    EXPECT_EQ(harness.Unanswered(Discover(102, MAC_A)), Events{});

    // 4 s after the OFFERs both transactions are purged at the head of the
    // next message: both addresses are free again.
    harness.clock.Advance(2);
    EXPECT_EQ(harness.SendForOne(Discover(103, MAC_A)).Yiaddr(), POOL_START);
    items = harness.NewLogItems();
    ASSERT_EQ(EventsOf(items), (Events{DHCPDiscoverReceived, DHCPOfferSent}));
    EXPECT_FALSE(items[0].IsMessageIgnored());
    EXPECT_EQ(harness.SendForOne(Discover(104, TestMac(3))).Yiaddr(), POOL_START + 1);
}

TEST(SelectingTest, RequestsOutsideTheOpenOfferAreLoggedButNotAnswered)
{
    EngineHarness harness;
    harness.Start();
    const IPv4Address offered = POOL_START;
    ASSERT_EQ(harness.SendForOne(Discover(5, MAC_A)).Yiaddr(), offered);
    harness.NewLogItems();
    const std::vector<std::pair<const char*, ClientDatagram>> notForUs = {
        {"another server chosen", Selecting(5, MAC_A, offered, IPv4Address(10, 0, 0, 2))},
        {"no server identifier", InitReboot(5, MAC_A, offered)},
        {"ciaddr set", Selecting(5, MAC_A, offered).ClientAddress(offered)},
        {"no requested address", ClientDatagram(3, 5, MAC_A).ServerIdentifier(SERVER)},
        {"another address than offered, not even a NAK", Selecting(5, MAC_A, offered + 3)},
    };
    for (const auto& [name, request] : notForUs) {
        EXPECT_TRUE(harness.Send(request).empty()) << name;
        const auto items = harness.NewLogItems();
        ASSERT_EQ(EventsOf(items), Events{DHCPRequestReceived}) << name;
        EXPECT_FALSE(items[0].IsMessageIgnored()) << name;
    }
    EXPECT_EQ(harness.Addresses().GetLeaseCount(), 0u);

    // The transaction stayed: its address is still held, and the right
    // REQUEST is answered, but only once.
    EXPECT_EQ(harness.SendForOne(Discover(6, MAC_B)).Yiaddr(), offered + 1);
    EXPECT_EQ(harness.SendForOne(Selecting(5, MAC_A, offered)).Type(), 5);
    harness.NewLogItems();
    EXPECT_EQ(harness.Unanswered(Selecting(5, MAC_A, offered)), Events{DHCPRequestReceived});
    EXPECT_TRUE(harness.IsLeased(offered));

    // A REQUEST that comes after its transaction was purged: no lease.
    harness.clock.Advance(4);
    EXPECT_EQ(harness.Unanswered(Selecting(6, MAC_B, offered + 1)), Events{DHCPRequestReceived});
    EXPECT_EQ(harness.Addresses().GetLeaseCount(), 1u);
}

TEST(SelectingTest, ExhaustedPoolLogsTheDiscoverAndOpensNoTransaction)
{
    EngineHarness harness;
    harness.GetSettings().SetPoolEndAddress(POOL_START);
    harness.Start();
    harness.Obtain(MAC_A, 1);
    EXPECT_EQ(harness.Unanswered(Discover(2, MAC_B)), Events{DHCPDiscoverReceived});
    // The same client is therefore not ignored next time.
    EXPECT_TRUE(harness.Send(Discover(3, MAC_B)).empty());
    const auto items = harness.NewLogItems();
    ASSERT_EQ(items.size(), 1u);
    EXPECT_FALSE(items[0].IsMessageIgnored());
}
