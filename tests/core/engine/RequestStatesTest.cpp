#include "EngineHarness.h"

// REQUESTs without an open exchange: INIT-REBOOT (option 50, no option 54,
// no ciaddr) and RENEWING/REBINDING (ciaddr, neither option), and the NAKs
// that only these states can get.

namespace {

const std::vector<uint8_t> MAC_A = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55};
const std::vector<uint8_t> MAC_B = {0x00, 0x11, 0x22, 0x33, 0x44, 0x66};

ClientDatagram InitReboot(uint32_t xid, const std::vector<uint8_t>& mac, const IPv4Address& requested)
{
    return ClientDatagram(3, xid, mac).RequestedAddress(requested);
}

ClientDatagram Renewal(uint32_t xid, const std::vector<uint8_t>& mac, const IPv4Address& held)
{
    return ClientDatagram(3, xid, mac).ClientAddress(held);
}

void ExpectNak(const EngineHarness::Reply& nak)
{
    EXPECT_EQ(nak.MessageType(), 6);
    EXPECT_EQ(nak.message.GetClientIPAddress(), IPv4Address());
    EXPECT_EQ(nak.message.GetYourIPAddress(), IPv4Address());
    EXPECT_EQ(nak.Option(54), AddressBytes(EngineHarness::SERVER_ADDRESS));
}

} // namespace

TEST(InitRebootTest, ClientConfirmsItsOwnAddressAndGetsABroadcastAck)
{
    EngineHarness harness;
    harness.Start();
    const IPv4Address held = harness.Obtain(MAC_A, 1);
    harness.clock.Advance(600);

    const auto ack = harness.SendForOne(InitReboot(2, MAC_A, held));
    EXPECT_EQ(ack.MessageType(), 5);
    EXPECT_EQ(ack.sent.destination, EngineHarness::LIMITED_BROADCAST);
    EXPECT_EQ(ack.message.GetClientIPAddress(), IPv4Address());
    EXPECT_EQ(ack.message.GetYourIPAddress(), held);
    EXPECT_EQ(ack.Option(51), (ByteString{0, 0, 0x0e, 0x10}));
    // The lease was granted anew: it starts now.
    const auto lease = harness.LiveLeaseOn(held);
    ASSERT_TRUE(lease.has_value());
    EXPECT_EQ(lease->GetStartTime(), static_cast<int32_t>(harness.clock.Now()));
    EXPECT_EQ(harness.Addresses().GetLeaseCount(), 1u);
    EXPECT_EQ(EventsOf(harness.NewLogItems()), (std::vector<EventType>{DHCPRequestReceived, DHCPAckSent}));
}

TEST(InitRebootTest, AddressWithoutRecordForThisClientIsMetWithSilence)
{
    EngineHarness harness;
    harness.Start();
    const IPv4Address held = harness.Obtain(MAC_A, 1);

    // Another address than the one held, a client without any lease, and a
    // request that carries ciaddr besides option 50.
    EXPECT_TRUE(harness.Send(InitReboot(2, MAC_A, held + 1)).empty());
    EXPECT_TRUE(harness.Send(InitReboot(3, MAC_B, held + 2)).empty());
    EXPECT_TRUE(harness.Send(InitReboot(4, MAC_A, held).ClientAddress(held)).empty());
    const auto items = harness.NewLogItems();
    EXPECT_EQ(EventsOf(items),
              (std::vector<EventType>{DHCPRequestReceived, DHCPRequestReceived, DHCPRequestReceived}));
    EXPECT_EQ(items[2].GetDetails(), "client hardware address = 00:11:22:33:44:55, client IP address = 10.0.0.100");
    EXPECT_TRUE(harness.LiveLeaseOn(held).has_value());
    EXPECT_EQ(harness.Addresses().GetLeaseCount(), 1u);
}

TEST(InitRebootTest, RequestNamingAServerWithoutOpenExchangeIsNotAnswered)
{
    EngineHarness harness;
    harness.Start();
    const IPv4Address held = harness.Obtain(MAC_A, 1);
    for (const IPv4Address& server : {EngineHarness::SERVER_ADDRESS, IPv4Address(10, 0, 0, 2)}) {
        EXPECT_TRUE(harness.Send(InitReboot(9, MAC_A, held).ServerIdentifier(server)).empty());
        EXPECT_EQ(EventsOf(harness.NewLogItems()), (std::vector<EventType>{DHCPRequestReceived}));
    }
}

TEST(InitRebootTest, AddressUnderOfferToAnotherClientIsRefusedByABroadcastNak)
{
    EngineHarness harness;
    harness.Start();
    const IPv4Address held = harness.Obtain(MAC_A, 1);
    // The lease runs out, and the address goes under offer to another client.
    harness.clock.Advance(EngineHarness::LEASE_DURATION + 10);
    ASSERT_EQ(harness.SendForOne(ClientDatagram(1, 2, MAC_B)).message.GetYourIPAddress(), held);
    harness.NewLogItems();

    const auto nak = harness.SendForOne(InitReboot(3, MAC_A, held).ParameterRequestList({54, 6, 3, 1, 51}));
    ExpectNak(nak);
    EXPECT_EQ(nak.sent.destination, EngineHarness::LIMITED_BROADCAST);
    EXPECT_EQ(nak.sent.port, 68);
    // A NAK never honours option 55 and carries nothing of the configuration.
    EXPECT_EQ(nak.OptionCodes(), Codes({53, 54, 255}));
    EXPECT_EQ(nak.sent.data.size(), 250u);
    EXPECT_EQ(EventsOf(harness.NewLogItems()), (std::vector<EventType>{DHCPRequestReceived, DHCPNakSent}));
}

TEST(InitRebootTest, NakEchoesTheClientIdentifier)
{
    EngineHarness harness;
    harness.Start();
    const ByteString identifier = {1, 0x00, 0x11, 0x22, 0x33, 0x44, 0x55};
    const auto offer = harness.SendForOne(ClientDatagram(1, 1, MAC_A).ClientIdentifier(identifier));
    const IPv4Address held = offer.message.GetYourIPAddress();
    harness.SendForOne(ClientDatagram(3, 1, MAC_A)
                           .ClientIdentifier(identifier)
                           .RequestedAddress(held)
                           .ServerIdentifier(EngineHarness::SERVER_ADDRESS));
    harness.clock.Advance(EngineHarness::LEASE_DURATION + 10);
    harness.SendForOne(ClientDatagram(1, 2, MAC_B)); // puts `held` under offer

    const auto nak = harness.SendForOne(InitReboot(3, MAC_A, held).ClientIdentifier(identifier));
    ExpectNak(nak);
    EXPECT_EQ(nak.OptionCodes(), Codes({53, 54, 61, 255}));
    EXPECT_EQ(nak.Option(61), identifier);
}

TEST(InitRebootTest, ReservedClientConfirmsItsReservationEvenThoughReservedAddressesAreNeverAvailable)
{
    EngineHarness harness;
    const IPv4Address reserved = EngineHarness::POOL_START + 4;
    harness.Addresses().AddReservation(AddressReservation(HardwareAddress("00:11:22:33:44:55"), reserved));
    harness.Start();
    ASSERT_EQ(harness.Obtain(MAC_A, 1), reserved);
    const auto ack = harness.SendForOne(InitReboot(2, MAC_A, reserved));
    EXPECT_EQ(ack.MessageType(), 5);
    EXPECT_EQ(ack.message.GetYourIPAddress(), reserved);
}

TEST(RenewalTest, HeldAddressIsRenewedByUnicastToCiaddr)
{
    EngineHarness harness;
    harness.Start();
    const IPv4Address held = harness.Obtain(MAC_A, 1);
    harness.clock.Advance(1800);

    const auto ack = harness.SendForOne(Renewal(2, MAC_A, held).ParameterRequestList({1, 3, 6, 51}));
    EXPECT_EQ(ack.MessageType(), 5);
    EXPECT_EQ(ack.sent.destination, held);
    EXPECT_EQ(ack.sent.port, 68);
    EXPECT_EQ(ack.message.GetClientIPAddress(), held);
    EXPECT_EQ(ack.message.GetYourIPAddress(), held);
    EXPECT_EQ(ack.OptionCodes(), Codes({1, 3, 6, 51, 28, 53, 54, 255}));
    const auto lease = harness.LiveLeaseOn(held);
    ASSERT_TRUE(lease.has_value());
    EXPECT_EQ(lease->GetStartTime(), static_cast<int32_t>(harness.clock.Now()));
    EXPECT_EQ(harness.Addresses().GetLeaseCount(), 1u);

    const auto items = harness.NewLogItems();
    ASSERT_EQ(EventsOf(items), (std::vector<EventType>{DHCPRequestReceived, DHCPAckSent}));
    EXPECT_EQ(items[0].GetDetails(), "client hardware address = 00:11:22:33:44:55, client IP address = 10.0.0.100");
    EXPECT_EQ(items[1].GetDetails(), "client hardware address = 00:11:22:33:44:55, client IP address = 10.0.0.100");
}

TEST(RenewalTest, RenewingAnotherClientsAddressGetsANakAndLosesTheOwnLease)
{
    EngineHarness harness;
    harness.Start();
    const IPv4Address heldByA = harness.Obtain(MAC_A, 1);
    const IPv4Address heldByB = harness.Obtain(MAC_B, 2);

    const auto nak = harness.SendForOne(Renewal(3, MAC_A, heldByB));
    ExpectNak(nak);
    EXPECT_EQ(nak.sent.destination, heldByB); // to ciaddr, whoever holds it
    EXPECT_EQ(nak.OptionCodes(), Codes({53, 54, 255}));
    EXPECT_EQ(harness.Addresses().GetLeasedAddress(HardwareAddress("00:11:22:33:44:55")), IPv4Address());
    EXPECT_FALSE(harness.LiveLeaseOn(heldByA).has_value());
    EXPECT_TRUE(harness.LiveLeaseOn(heldByB).has_value());
    const auto items = harness.NewLogItems();
    ASSERT_EQ(EventsOf(items), (std::vector<EventType>{DHCPRequestReceived, DHCPNakSent}));
    EXPECT_EQ(items[1].GetDetails(), "client hardware address = 00:11:22:33:44:55, client IP address = 10.0.0.101");
}

TEST(RenewalTest, RenewingAFreePoolAddressMovesTheLeaseThere)
{
    EngineHarness harness;
    harness.Start();
    const IPv4Address held = harness.Obtain(MAC_A, 1);
    const auto ack = harness.SendForOne(Renewal(2, MAC_A, held + 5));
    EXPECT_EQ(ack.MessageType(), 5);
    EXPECT_EQ(ack.message.GetYourIPAddress(), held + 5);
    EXPECT_FALSE(harness.LiveLeaseOn(held).has_value());
    EXPECT_TRUE(harness.LiveLeaseOn(held + 5).has_value());
}

TEST(RenewalTest, AddressOutsideThePoolIsRefusedAndTheLeaseStays)
{
    EngineHarness harness;
    const IPv4Address reservedOutside(10, 0, 0, 50);
    harness.Addresses().AddReservation(AddressReservation(HardwareAddress("00:11:22:33:44:55"), reservedOutside));
    harness.Start();
    ASSERT_EQ(harness.Obtain(MAC_A, 1), reservedOutside);

    // Below the pool start (the client's own reservation) and above its end.
    for (const IPv4Address& address : {reservedOutside, EngineHarness::POOL_END + 1}) {
        const auto nak = harness.SendForOne(Renewal(2, MAC_A, address));
        ExpectNak(nak);
        EXPECT_EQ(nak.sent.destination, address);
    }
    // Refused before the old lease is looked at.
    EXPECT_TRUE(harness.LiveLeaseOn(reservedOutside).has_value());
}

TEST(RenewalTest, ReservedClientRenewsItsReservationButNothingElse)
{
    EngineHarness harness;
    const IPv4Address reserved = EngineHarness::POOL_START + 4;
    harness.Addresses().AddReservation(AddressReservation(HardwareAddress("00:11:22:33:44:55"), reserved));
    harness.Start();
    ASSERT_EQ(harness.Obtain(MAC_A, 1), reserved);
    EXPECT_EQ(harness.SendForOne(Renewal(2, MAC_A, reserved)).MessageType(), 5);
    const auto nak = harness.SendForOne(Renewal(3, MAC_A, EngineHarness::POOL_START));
    ExpectNak(nak);
    // Refused at the reservation test, before the old lease is touched.
    EXPECT_TRUE(harness.LiveLeaseOn(reserved).has_value());
}

TEST(RenewalTest, AddressUnderOfferIsRefused)
{
    EngineHarness harness;
    harness.Start();
    const IPv4Address held = harness.Obtain(MAC_A, 1);
    const IPv4Address offeredToB = harness.SendForOne(ClientDatagram(1, 2, MAC_B)).message.GetYourIPAddress();
    ExpectNak(harness.SendForOne(Renewal(3, MAC_A, offeredToB)));
    // The transaction test comes before the removal of the old lease.
    EXPECT_TRUE(harness.LiveLeaseOn(held).has_value());
}

TEST(RenewalTest, RequestWithoutCiaddrOrOptionsIsLoggedOnly)
{
    EngineHarness harness;
    harness.Start();
    EXPECT_TRUE(harness.Send(ClientDatagram(3, 2, MAC_A)).empty());
    EXPECT_EQ(EventsOf(harness.NewLogItems()), (std::vector<EventType>{DHCPRequestReceived}));
}

TEST(InformTest, AckCarriesConfigurationButNoAddressAndNoLeaseTime)
{
    EngineHarness harness;
    harness.Start();
    const IPv4Address configuredByHand(10, 0, 0, 20);

    const auto unicast = harness.SendForOne(ClientDatagram(8, 1, MAC_A).ClientAddress(configuredByHand));
    EXPECT_EQ(unicast.MessageType(), 5);
    EXPECT_EQ(unicast.sent.destination, configuredByHand);
    EXPECT_EQ(unicast.sent.port, 68);
    EXPECT_EQ(unicast.message.GetClientIPAddress(), configuredByHand);
    EXPECT_EQ(unicast.message.GetYourIPAddress(), IPv4Address());
    EXPECT_EQ(unicast.OptionCodes(), Codes({1, 3, 6, 28, 53, 54, 255}));
    auto items = harness.NewLogItems();
    ASSERT_EQ(EventsOf(items), (std::vector<EventType>{DHCPInformReceived, DHCPAckSent}));
    EXPECT_EQ(items[0].GetDetails(), "");

    const auto broadcast = harness.SendForOne(ClientDatagram(8, 2, MAC_A));
    EXPECT_EQ(broadcast.sent.destination, EngineHarness::LIMITED_BROADCAST);
    EXPECT_EQ(broadcast.message.GetYourIPAddress(), IPv4Address());
    EXPECT_FALSE(broadcast.Option(51).has_value());
    EXPECT_EQ(harness.Addresses().GetLeaseCount(), 0u);
}

TEST(ReleaseTest, ReleaseEndsTheLeaseOfCiaddrWhoeverSendsIt)
{
    EngineHarness harness;
    harness.Start();
    const IPv4Address held = harness.Obtain(MAC_A, 1);

    // Unknown address: logged, nothing changes.
    EXPECT_TRUE(harness.Send(ClientDatagram(7, 2, MAC_A).ClientAddress(held + 7)).empty());
    auto items = harness.NewLogItems();
    ASSERT_EQ(EventsOf(items), (std::vector<EventType>{DHCPReleaseReceived}));
    EXPECT_EQ(items[0].GetDetails(), "client hardware address = 00:11:22:33:44:55, client IP address = 10.0.0.107");
    EXPECT_TRUE(harness.LiveLeaseOn(held).has_value());
    EXPECT_EQ(harness.Addresses().GetLeaseCount(), 1u);

    // Another client names the address: the lease ends, the row stays.
    EXPECT_TRUE(harness.Send(ClientDatagram(7, 3, MAC_B).ClientAddress(held)).empty());
    EXPECT_FALSE(harness.LiveLeaseOn(held).has_value());
    EXPECT_EQ(harness.Addresses().GetLeaseCount(), 1u);
    // So the next new client can have it.
    EXPECT_EQ(harness.Obtain(TestMac(5), 4), held);
}
