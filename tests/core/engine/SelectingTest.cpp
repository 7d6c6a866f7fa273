#include "EngineHarness.h"

// A client in SELECTING: DISCOVER, OFFER, REQUEST with our server identifier
// and the offered address, ACK.

namespace {

const std::vector<uint8_t> MAC_A = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55};
const std::vector<uint8_t> MAC_B = {0x00, 0x11, 0x22, 0x33, 0x44, 0x66};

ByteString Address(const IPv4Address& address)
{
    return AddressBytes(address);
}

} // namespace

TEST(SelectingTest, FullExchangeGivesTheLowestAddressWithEveryConfiguredOption)
{
    EngineHarness harness;
    harness.Start();
    const IPv4Address relay(10, 9, 9, 9);

    const auto offer = harness.SendForOne(
        ClientDatagram(1, 0x8badf00d, MAC_A).BroadcastFlag(true).GatewayAddress(relay).ClientAddress(
            IPv4Address(10, 0, 0, 77)));
    EXPECT_EQ(offer.sent.destination, EngineHarness::LIMITED_BROADCAST);
    EXPECT_EQ(offer.sent.port, 68);
    EXPECT_EQ(offer.message.GetOperation(), 2);
    EXPECT_EQ(offer.message.GetTransactionID(), 0x8badf00du);
    EXPECT_EQ(offer.sent.data[4], 0x8b); // xid in its own byte order
    EXPECT_EQ(offer.sent.data[7], 0x0d);
    EXPECT_EQ(offer.message.GetClientIPAddress(), IPv4Address()); // never copied into an OFFER
    EXPECT_EQ(offer.message.GetYourIPAddress(), EngineHarness::POOL_START);
    EXPECT_TRUE(offer.message.GetBroadcastFlag());
    EXPECT_EQ(offer.message.GetGatewayIPAddress(), relay);
    EXPECT_EQ(offer.message.GetHardwareAddress(), HardwareAddress("00:11:22:33:44:55"));
    EXPECT_EQ(offer.message.GetServerIPAddress(), IPv4Address());
    EXPECT_EQ(offer.message.GetHops(), 0);
    // No parameter request list: ascending codes, then End.
    EXPECT_EQ(offer.OptionCodes(), Codes({1, 3, 6, 28, 51, 53, 54, 255}));
    EXPECT_EQ(offer.Option(1), (ByteString{255, 255, 255, 0}));
    EXPECT_EQ(offer.Option(3), Address(EngineHarness::GATEWAY));
    EXPECT_EQ(offer.Option(6), (ByteString{10, 0, 0, 53, 10, 0, 0, 54}));
    EXPECT_EQ(offer.Option(28), Address(EngineHarness::BROADCAST));
    EXPECT_EQ(offer.Option(51), (ByteString{0, 0, 0x0e, 0x10}));
    EXPECT_EQ(offer.MessageType(), 2);
    EXPECT_EQ(offer.Option(54), Address(EngineHarness::SERVER_ADDRESS));
    EXPECT_EQ(offer.sent.data.size(), 240u + 6 + 6 + 10 + 6 + 6 + 3 + 6 + 1);

    const auto ack = harness.SendForOne(ClientDatagram(3, 0x8badf00d, MAC_A)
                                            .BroadcastFlag(true)
                                            .GatewayAddress(relay)
                                            .RequestedAddress(EngineHarness::POOL_START)
                                            .ServerIdentifier(EngineHarness::SERVER_ADDRESS));
    EXPECT_EQ(ack.sent.destination, EngineHarness::LIMITED_BROADCAST);
    EXPECT_EQ(ack.sent.port, 68);
    EXPECT_EQ(ack.MessageType(), 5);
    EXPECT_EQ(ack.message.GetTransactionID(), 0x8badf00du);
    EXPECT_EQ(ack.message.GetClientIPAddress(), IPv4Address());
    EXPECT_EQ(ack.message.GetYourIPAddress(), EngineHarness::POOL_START);
    EXPECT_EQ(ack.message.GetGatewayIPAddress(), relay);
    EXPECT_EQ(ack.OptionCodes(), Codes({1, 3, 6, 28, 51, 53, 54, 255}));

    const auto lease = harness.LiveLeaseOn(EngineHarness::POOL_START);
    ASSERT_TRUE(lease.has_value());
    EXPECT_EQ(lease->GetHardwareAddress(), HardwareAddress("00:11:22:33:44:55"));
    EXPECT_EQ(lease->GetDuration(), EngineHarness::LEASE_DURATION);

    const auto items = harness.NewLogItems();
    ASSERT_EQ(EventsOf(items),
              (std::vector<EventType>{DHCPDiscoverReceived, DHCPOfferSent, DHCPRequestReceived, DHCPAckSent}));
    EXPECT_EQ(items[0].GetDetails(), "client hardware address = 00:11:22:33:44:55");
    EXPECT_FALSE(items[0].IsMessageIgnored());
    EXPECT_EQ(items[1].GetDetails(), "client hardware address = 00:11:22:33:44:55, offered IP address = 10.0.0.100");
    // Both logged with ciaddr, which is 0.0.0.0 in SELECTING.
    EXPECT_EQ(items[2].GetDetails(), "client hardware address = 00:11:22:33:44:55");
    EXPECT_EQ(items[3].GetDetails(), "client hardware address = 00:11:22:33:44:55");

    // The transaction is gone: the same client may start again at once.
    const auto nextOffer = harness.SendForOne(ClientDatagram(1, 0x1234, MAC_A));
    EXPECT_EQ(nextOffer.message.GetYourIPAddress(), EngineHarness::POOL_START);
}

TEST(SelectingTest, OfferIsBroadcastWithClearFlagsWhenTheClientSetNoBroadcastFlag)
{
    EngineHarness harness;
    harness.Start();
    const auto offer = harness.SendForOne(ClientDatagram(1, 1, MAC_A).BroadcastFlag(false));
    EXPECT_EQ(offer.sent.destination, EngineHarness::LIMITED_BROADCAST);
    EXPECT_FALSE(offer.message.GetBroadcastFlag());
    EXPECT_EQ(offer.sent.data[10], 0);
    EXPECT_EQ(offer.sent.data[11], 0);
}

TEST(SelectingTest, ParameterRequestListOrdersTheOptionsOfOfferAndAck)
{
    EngineHarness harness;
    harness.Start();
    const ByteString requested = {6, 3, 1, 15, 51};
    const auto offer = harness.SendForOne(ClientDatagram(1, 7, MAC_A).ParameterRequestList(requested));
    EXPECT_EQ(offer.OptionCodes(), Codes({6, 3, 1, 51, 28, 53, 54, 255}));
    const auto ack = harness.SendForOne(ClientDatagram(3, 7, MAC_A)
                                            .ParameterRequestList(requested)
                                            .RequestedAddress(EngineHarness::POOL_START)
                                            .ServerIdentifier(EngineHarness::SERVER_ADDRESS));
    EXPECT_EQ(ack.OptionCodes(), Codes({6, 3, 1, 51, 28, 53, 54, 255}));
}

TEST(SelectingTest, AdditionalOptionsTravelInOfferAndAck)
{
    EngineHarness harness;
    harness.GetSettings().GetAdditionalOptions().push_back(RawOption("15", "116 97 114 110"));
    harness.GetSettings().GetAdditionalOptions().push_back(RawOption("58", "0 0 7 8"));
    harness.Start();
    const auto offer = harness.SendForOne(ClientDatagram(1, 7, MAC_A));
    EXPECT_EQ(offer.Option(15), (ByteString{116, 97, 114, 110}));
    EXPECT_EQ(offer.Option(58), (ByteString{0, 0, 7, 8}));
    EXPECT_EQ(offer.OptionCodes(), Codes({1, 3, 6, 15, 28, 51, 53, 54, 58, 255}));
    const auto ack = harness.SendForOne(ClientDatagram(3, 7, MAC_A)
                                            .RequestedAddress(EngineHarness::POOL_START)
                                            .ServerIdentifier(EngineHarness::SERVER_ADDRESS));
    EXPECT_EQ(ack.Option(15), (ByteString{116, 97, 114, 110}));
    EXPECT_EQ(ack.Option(58), (ByteString{0, 0, 7, 8}));
}

TEST(SelectingTest, BlankGatewayAndDnsLeaveOptions3And6Out)
{
    EngineHarness harness;
    harness.GetSettings().SetDefaultGateway(IPv4Address());
    harness.GetSettings().SetDNSAddress1(IPv4Address());
    harness.GetSettings().SetDNSAddress2(IPv4Address());
    harness.Start();
    const auto offer = harness.SendForOne(ClientDatagram(1, 7, MAC_A));
    EXPECT_EQ(offer.OptionCodes(), Codes({1, 28, 51, 53, 54, 255}));
    const auto ack = harness.SendForOne(ClientDatagram(3, 7, MAC_A)
                                            .RequestedAddress(EngineHarness::POOL_START)
                                            .ServerIdentifier(EngineHarness::SERVER_ADDRESS));
    EXPECT_EQ(ack.OptionCodes(), Codes({1, 28, 51, 53, 54, 255}));
}

TEST(SelectingTest, SecondDnsServerAloneIsSentAsTheOnlyOne)
{
    EngineHarness harness;
    harness.GetSettings().SetDNSAddress1(IPv4Address());
    harness.Start();
    const auto offer = harness.SendForOne(ClientDatagram(1, 7, MAC_A));
    EXPECT_EQ(offer.Option(6), Address(EngineHarness::DNS2));
}

TEST(SelectingTest, RepeatedDiscoverWithinTheHoldIsIgnoredAndAnsweredAfterThePurge)
{
    EngineHarness harness;
    harness.Start();
    ASSERT_EQ(harness.Send(ClientDatagram(1, 100, MAC_A)).size(), 1u);
    harness.NewLogItems();

    // Same client, new xid, 2 s later: logged as ignored, no OFFER.
    harness.clock.Advance(2);
    EXPECT_TRUE(harness.Send(ClientDatagram(1, 101, MAC_A)).empty());
    // Another client reusing the open xid: ignored as well.
    EXPECT_TRUE(harness.Send(ClientDatagram(1, 100, MAC_B)).empty());
    auto items = harness.NewLogItems();
    ASSERT_EQ(EventsOf(items), (std::vector<EventType>{DHCPDiscoverReceived, DHCPDiscoverReceived}));
    EXPECT_TRUE(items[0].IsMessageIgnored());
    EXPECT_TRUE(items[1].IsMessageIgnored());
    EXPECT_EQ(items[1].GetDetails(), "client hardware address = 00:11:22:33:44:66");
    EXPECT_NE(items[1].GetLogLine().find("DHCP Discover received, message ignored, client hardware address"),
              std::string::npos);

    // 4 s after the OFFER the transaction is purged at the head of the message.
    harness.clock.Advance(2);
    const auto offer = harness.SendForOne(ClientDatagram(1, 102, MAC_A));
    EXPECT_EQ(offer.message.GetYourIPAddress(), EngineHarness::POOL_START);
    items = harness.NewLogItems();
    ASSERT_EQ(EventsOf(items), (std::vector<EventType>{DHCPDiscoverReceived, DHCPOfferSent}));
    EXPECT_FALSE(items[0].IsMessageIgnored());
}

TEST(SelectingTest, IgnoredDiscoverIsNotKeptWhenIgnoredMessagesAreNotLogged)
{
    EngineHarness harness;
    harness.GetSettings().SetLogIgnoredDHCPMessages(false);
    harness.Start();
    harness.Send(ClientDatagram(1, 100, MAC_A));
    harness.NewLogItems();
    EXPECT_TRUE(harness.Send(ClientDatagram(1, 101, MAC_A)).empty());
    EXPECT_TRUE(harness.NewLogItems().empty());
}

TEST(SelectingTest, OfferedAddressIsHeldAgainstOtherClientsUntilItAgesOut)
{
    EngineHarness harness;
    harness.Start();
    EXPECT_EQ(harness.SendForOne(ClientDatagram(1, 1, MAC_A)).message.GetYourIPAddress(), EngineHarness::POOL_START);
    EXPECT_EQ(harness.SendForOne(ClientDatagram(1, 2, MAC_B)).message.GetYourIPAddress(),
              EngineHarness::POOL_START + 1);
    // Both transactions age out; no lease was made, so the lowest comes back.
    harness.clock.Advance(4);
    const auto offer = harness.SendForOne(ClientDatagram(1, 3, TestMac(3)));
    EXPECT_EQ(offer.message.GetYourIPAddress(), EngineHarness::POOL_START);
}

TEST(SelectingTest, RequestThatDoesNotSelectOurOfferIsLoggedAndUnanswered)
{
    EngineHarness harness;
    harness.Start();
    const IPv4Address offered = EngineHarness::POOL_START;
    ASSERT_EQ(harness.Send(ClientDatagram(1, 5, MAC_A)).size(), 1u);
    harness.NewLogItems();

    const std::vector<ClientDatagram> notSelectingUs = {
        // Another server chosen.
        ClientDatagram(3, 5, MAC_A).RequestedAddress(offered).ServerIdentifier(IPv4Address(10, 0, 0, 2)),
        // No server identifier.
        ClientDatagram(3, 5, MAC_A).RequestedAddress(offered),
        // ciaddr set.
        ClientDatagram(3, 5, MAC_A)
            .ClientAddress(offered)
            .RequestedAddress(offered)
            .ServerIdentifier(EngineHarness::SERVER_ADDRESS),
        // No requested address.
        ClientDatagram(3, 5, MAC_A).ServerIdentifier(EngineHarness::SERVER_ADDRESS),
        // Another address than the one offered: no NAK either.
        ClientDatagram(3, 5, MAC_A)
            .RequestedAddress(offered + 3)
            .ServerIdentifier(EngineHarness::SERVER_ADDRESS),
    };
    for (const ClientDatagram& request : notSelectingUs) {
        EXPECT_TRUE(harness.Send(request).empty());
        const auto items = harness.NewLogItems();
        ASSERT_EQ(EventsOf(items), (std::vector<EventType>{DHCPRequestReceived}));
        EXPECT_FALSE(items[0].IsMessageIgnored());
    }
    EXPECT_EQ(harness.Addresses().GetLeaseCount(), 0u);

    // The transaction stayed: the address is still held, and the right
    // REQUEST is still answered.
    EXPECT_EQ(harness.SendForOne(ClientDatagram(1, 6, MAC_B)).message.GetYourIPAddress(), offered + 1);
    const auto ack = harness.SendForOne(
        ClientDatagram(3, 5, MAC_A).RequestedAddress(offered).ServerIdentifier(EngineHarness::SERVER_ADDRESS));
    EXPECT_EQ(ack.MessageType(), 5);
}

TEST(SelectingTest, LateRequestAfterThePurgeEndsLogOnly)
{
    EngineHarness harness;
    harness.Start();
    ASSERT_EQ(harness.Send(ClientDatagram(1, 5, MAC_A)).size(), 1u);
    harness.NewLogItems();
    harness.clock.Advance(4);
    EXPECT_TRUE(harness
                    .Send(ClientDatagram(3, 5, MAC_A)
                              .RequestedAddress(EngineHarness::POOL_START)
                              .ServerIdentifier(EngineHarness::SERVER_ADDRESS))
                    .empty());
    EXPECT_EQ(EventsOf(harness.NewLogItems()), (std::vector<EventType>{DHCPRequestReceived}));
    EXPECT_EQ(harness.Addresses().GetLeaseCount(), 0u);
}

TEST(SelectingTest, RepeatedRequestAfterItsAckGetsNoSecondAck)
{
    EngineHarness harness;
    harness.Start();
    harness.Obtain(MAC_A, 5);
    const auto request =
        ClientDatagram(3, 5, MAC_A).RequestedAddress(EngineHarness::POOL_START).ServerIdentifier(
            EngineHarness::SERVER_ADDRESS);
    EXPECT_TRUE(harness.Send(request).empty());
    EXPECT_EQ(EventsOf(harness.NewLogItems()), (std::vector<EventType>{DHCPRequestReceived}));
    EXPECT_TRUE(harness.LiveLeaseOn(EngineHarness::POOL_START).has_value());
}

TEST(SelectingTest, ClientThatHoldsALeaseIsOfferedItAgain)
{
    EngineHarness harness;
    harness.Start();
    harness.Obtain(MAC_B, 1);
    const IPv4Address held = harness.Obtain(MAC_A, 2);
    EXPECT_EQ(held, EngineHarness::POOL_START + 1);
    // A RELEASE ends the lease but keeps the row with the client's address.
    EXPECT_TRUE(harness.Send(ClientDatagram(7, 3, MAC_A).ClientAddress(held)).empty());
    EXPECT_FALSE(harness.LiveLeaseOn(held).has_value());
    EXPECT_EQ(harness.SendForOne(ClientDatagram(1, 4, MAC_A)).message.GetYourIPAddress(), held);
}

TEST(SelectingTest, ReservedClientIsOfferedAndGivenItsAddressInsideAndOutsideThePool)
{
    EngineHarness harness;
    const IPv4Address insidePool = EngineHarness::POOL_START + 5;
    const IPv4Address outsidePool(10, 0, 0, 50);
    harness.Addresses().AddReservation(AddressReservation(HardwareAddress("00:11:22:33:44:55"), insidePool));
    harness.Addresses().AddReservation(AddressReservation(HardwareAddress("00:11:22:33:44:66"), outsidePool));
    harness.Start();
    EXPECT_EQ(harness.Obtain(MAC_A, 1), insidePool);
    EXPECT_EQ(harness.Obtain(MAC_B, 2), outsidePool);
    EXPECT_TRUE(harness.LiveLeaseOn(insidePool).has_value());
    EXPECT_TRUE(harness.LiveLeaseOn(outsidePool).has_value());
    // Nobody else gets a reserved address.
    EXPECT_EQ(harness.Obtain(TestMac(9), 3), EngineHarness::POOL_START);
}

TEST(SelectingTest, ExhaustedPoolLogsTheDiscoverAndNothingElse)
{
    EngineHarness harness;
    harness.GetSettings().SetPoolEndAddress(EngineHarness::POOL_START);
    harness.Start();
    harness.Obtain(MAC_A, 1);
    EXPECT_TRUE(harness.Send(ClientDatagram(1, 2, MAC_B)).empty());
    EXPECT_EQ(EventsOf(harness.NewLogItems()), (std::vector<EventType>{DHCPDiscoverReceived}));
    // No transaction was opened: the same client is not ignored next time.
    EXPECT_TRUE(harness.Send(ClientDatagram(1, 3, MAC_B)).empty());
    const auto items = harness.NewLogItems();
    ASSERT_EQ(items.size(), 1u);
    EXPECT_FALSE(items[0].IsMessageIgnored());
}
