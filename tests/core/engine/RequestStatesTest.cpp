#include "EngineHarness.h"

// REQUESTs without an open exchange: INIT-REBOOT (option 50, no option 54,
// no ciaddr) and RENEWING/REBINDING (ciaddr, neither option); reservations,
// INFORM and RELEASE.

namespace {

std::string NakTo(const IPv4Address& destination)
{
    return "NAK to " + destination.ToString() + ":68, ciaddr 0.0.0.0, yiaddr 0.0.0.0";
}

} // namespace

TEST(InitRebootTest, OwnAddressIsConfirmedByABroadcastAckAndAnythingElseMetWithSilence)
{
    EngineHarness harness;
    harness.Start();
    const IPv4Address held = harness.Obtain(MAC_A, 1);
    harness.clock.Advance(600);
    const auto ack = harness.SendForOne(InitReboot(2, MAC_A, held));
    EXPECT_EQ(ack.Summary(), "ACK to 255.255.255.255:68, ciaddr 0.0.0.0, yiaddr 10.0.0.100");
    EXPECT_EQ(ack.Option(51), (ByteString{0, 0, 0x0e, 0x10}));
    // The lease was granted anew: it starts now.
    const auto lease = harness.LiveLeaseOn(held);
    ASSERT_TRUE(lease.has_value());
    EXPECT_EQ(lease->GetStartTime(), static_cast<int32_t>(harness.clock.Now()));
    EXPECT_EQ(harness.NewEvents(), (Events{DHCPRequestReceived, DHCPAckSent}));

    const std::vector<std::pair<const char*, ClientDatagram>> unanswered = {
        {"another address than the one held", InitReboot(3, MAC_A, held + 1)},
        {"a client without any lease", InitReboot(4, MAC_B, held + 2)},
        {"ciaddr besides option 50", InitReboot(5, MAC_A, held).ClientAddress(held)},
        {"our server named without an open exchange", Selecting(6, MAC_A, held)},
        {"another server named", Selecting(7, MAC_A, held, IPv4Address(10, 0, 0, 2))},
        {"neither ciaddr nor options", ClientDatagram(3, 8, MAC_A)},
    };
    for (const auto& [name, request] : unanswered) {
        EXPECT_EQ(harness.Unanswered(request), Events{DHCPRequestReceived}) << name;
    }
    EXPECT_TRUE(harness.IsLeased(held));
    EXPECT_EQ(harness.Addresses().GetLeaseCount(), 1u);
}

TEST(InitRebootTest, AddressUnderOfferToAnotherClientGetsABroadcastNakWithoutOption55Order)
{
    EngineHarness harness;
    harness.Start();
    const ByteString identifier = {1, 0x00, 0x11, 0x22, 0x33, 0x44, 0x55};
    const IPv4Address held = harness.SendForOne(Discover(1, MAC_A).ClientIdentifier(identifier)).Yiaddr();
    ASSERT_EQ(harness.SendForOne(Selecting(1, MAC_A, held).ClientIdentifier(identifier)).Type(), 5);
    // The lease runs out, and the address goes under offer to another client.
    harness.clock.Advance(LEASE_DURATION + 10);
    ASSERT_EQ(harness.SendForOne(Discover(2, MAC_B)).Yiaddr(), held);
    harness.NewLogItems();

    const auto nak = harness.SendForOne(
        InitReboot(3, MAC_A, held).ClientIdentifier(identifier).ParameterRequestList({54, 6, 3, 1, 51}));
    EXPECT_EQ(nak.Summary(), NakTo(BROADCAST));
    EXPECT_EQ(nak.Option(54), AddressBytes(SERVER));
    // Nothing of the configuration and no order from option 55; the client
    // identifier is echoed.
    EXPECT_EQ(nak.OptionCodes(), (Codes{53, 54, 61, 255}));
    EXPECT_EQ(nak.Option(61), identifier);
    EXPECT_EQ(nak.sent.data.size(), 240u + 3 + 6 + 9 + 1);
    EXPECT_EQ(harness.NewEvents(), (Events{DHCPRequestReceived, DHCPNakSent}));
}

TEST(RenewalTest, HeldOrFreeAddressIsRenewedByUnicastToCiaddr)
{
    EngineHarness harness;
    harness.Start();
    const IPv4Address held = harness.Obtain(MAC_A, 1);
    harness.clock.Advance(1800);
    const auto ack = harness.SendForOne(Renewal(2, MAC_A, held).ParameterRequestList({1, 3, 6, 51}));
    EXPECT_EQ(ack.Summary(), "ACK to 10.0.0.100:68, ciaddr 10.0.0.100, yiaddr 10.0.0.100");
    EXPECT_EQ(ack.OptionCodes(), (Codes{1, 3, 6, 51, 28, 53, 54, 255}));
    const auto lease = harness.LiveLeaseOn(held);
    ASSERT_TRUE(lease.has_value());
    EXPECT_EQ(lease->GetStartTime(), static_cast<int32_t>(harness.clock.Now()));
    EXPECT_EQ(harness.Addresses().GetLeaseCount(), 1u);
    const auto items = harness.NewLogItems();
    ASSERT_EQ(EventsOf(items), (Events{DHCPRequestReceived, DHCPAckSent}));
    for (const LogItem& item : items) {
        EXPECT_EQ(item.GetDetails(), "client hardware address = 00:11:22:33:44:55, client IP address = 10.0.0.100");
    }

    // A free pool address instead: the lease moves there.
    EXPECT_EQ(harness.SendForOne(Renewal(3, MAC_A, held + 5)).Summary(),
              "ACK to 10.0.0.105:68, ciaddr 10.0.0.105, yiaddr 10.0.0.105");
    EXPECT_FALSE(harness.IsLeased(held));
    EXPECT_TRUE(harness.IsLeased(held + 5));
}

TEST(RenewalTest, AddressTheClientDoesNotHoldGetsANakToCiaddr)
{
    EngineHarness harness;
    harness.Start();
    const IPv4Address heldByA = harness.Obtain(MAC_A, 1);
    const IPv4Address heldByB = harness.Obtain(MAC_B, 2);
    const IPv4Address offeredToC = harness.SendForOne(Discover(3, TestMac(3))).Yiaddr();

    // Outside the pool, or under offer: refused before A's own lease is
    // looked at, so that stays.
    for (const IPv4Address& refused : {POOL_END + 1, offeredToC}) {
        EXPECT_EQ(harness.SendForOne(Renewal(4, MAC_A, refused)).Summary(), NakTo(refused));
        EXPECT_TRUE(harness.IsLeased(heldByA)) << refused.ToString();
    }
    harness.NewLogItems();

    // Held by another client: NAK, and A's own lease is gone.
    const auto nak = harness.SendForOne(Renewal(5, MAC_A, heldByB));
    EXPECT_EQ(nak.Summary(), NakTo(heldByB));
    EXPECT_EQ(nak.OptionCodes(), (Codes{53, 54, 255}));
    EXPECT_EQ(harness.Addresses().GetLeasedAddress(HARDWARE_A), IPv4Address());
    EXPECT_FALSE(harness.IsLeased(heldByA));
    EXPECT_TRUE(harness.IsLeased(heldByB));
    const auto items = harness.NewLogItems();
    ASSERT_EQ(EventsOf(items), (Events{DHCPRequestReceived, DHCPNakSent}));
    EXPECT_EQ(items[1].GetDetails(), "client hardware address = 00:11:22:33:44:55, client IP address = 10.0.0.101");
}

TEST(ReservationTest, ReservedAddressesInsideAndOutsideThePoolGoToTheirClientsOnly)
{
    EngineHarness harness;
    const IPv4Address inside = POOL_START + 4;
    const IPv4Address outside(10, 0, 0, 50);
    harness.Addresses().AddReservation(AddressReservation(HARDWARE_A, inside));
    harness.Addresses().AddReservation(AddressReservation(HardwareAddress("00:11:22:33:44:66"), outside));
    harness.Start();
    EXPECT_EQ(harness.Obtain(MAC_A, 1), inside);
    EXPECT_EQ(harness.Obtain(MAC_B, 2), outside);
    EXPECT_TRUE(harness.IsLeased(inside));
    EXPECT_TRUE(harness.IsLeased(outside));
    EXPECT_EQ(harness.Obtain(TestMac(9), 3), POOL_START);

    // Reserved addresses are never available, yet their client confirms and
    // renews its own.
    EXPECT_EQ(harness.SendForOne(InitReboot(4, MAC_A, inside)).Summary(),
              "ACK to 255.255.255.255:68, ciaddr 0.0.0.0, yiaddr 10.0.0.104");
    EXPECT_EQ(harness.SendForOne(Renewal(5, MAC_A, inside)).Type(), 5);
    // Another address is refused at the reservation test, before the old
    // lease is touched.
    EXPECT_EQ(harness.SendForOne(Renewal(6, MAC_A, POOL_START + 1)).Summary(), NakTo(POOL_START + 1));
    EXPECT_TRUE(harness.IsLeased(inside));
    // Renewals stay inside the pool, even for a reservation outside it.
    EXPECT_EQ(harness.SendForOne(Renewal(7, MAC_B, outside)).Summary(), NakTo(outside));
    EXPECT_TRUE(harness.IsLeased(outside));
}

TEST(InformTest, AckCarriesConfigurationButNoAddressAndNoLeaseTime)
{
    EngineHarness harness;
    harness.Start();
    const IPv4Address configuredByHand(10, 0, 0, 20);
    const auto unicast = harness.SendForOne(ClientDatagram(8, 1, MAC_A).ClientAddress(configuredByHand));
    EXPECT_EQ(unicast.Summary(), "ACK to 10.0.0.20:68, ciaddr 10.0.0.20, yiaddr 0.0.0.0");
    EXPECT_EQ(unicast.OptionCodes(), (Codes{1, 3, 6, 28, 53, 54, 255}));
    const auto items = harness.NewLogItems();
    ASSERT_EQ(EventsOf(items), (Events{DHCPInformReceived, DHCPAckSent}));
    EXPECT_EQ(items[0].GetDetails(), "");

    const auto broadcast = harness.SendForOne(ClientDatagram(8, 2, MAC_A));
    EXPECT_EQ(broadcast.Summary(), "ACK to 255.255.255.255:68, ciaddr 0.0.0.0, yiaddr 0.0.0.0");
    EXPECT_EQ(broadcast.OptionCodes(), (Codes{1, 3, 6, 28, 53, 54, 255}));
    EXPECT_EQ(harness.Addresses().GetLeaseCount(), 0u);
}

TEST(ReleaseTest, ReleaseEndsTheLeaseOfCiaddrWhoeverSendsItAndKeepsTheRow)
{
    EngineHarness harness;
    harness.Start();
    const IPv4Address heldByB = harness.Obtain(MAC_B, 1);
    const IPv4Address heldByA = harness.Obtain(MAC_A, 2);

    // Unknown address: logged, nothing changes.
    EXPECT_TRUE(harness.Send(ClientDatagram(7, 3, MAC_A).ClientAddress(heldByA + 7)).empty());
    const auto items = harness.NewLogItems();
    ASSERT_EQ(EventsOf(items), Events{DHCPReleaseReceived});
    EXPECT_EQ(items[0].GetDetails(), "client hardware address = 00:11:22:33:44:55, client IP address = 10.0.0.108");
    EXPECT_TRUE(harness.IsLeased(heldByA));
    EXPECT_TRUE(harness.IsLeased(heldByB));

    // Each client releases the other's address.
    EXPECT_TRUE(harness.Send(ClientDatagram(7, 4, MAC_B).ClientAddress(heldByA)).empty());
    EXPECT_TRUE(harness.Send(ClientDatagram(7, 5, MAC_A).ClientAddress(heldByB)).empty());
    EXPECT_FALSE(harness.IsLeased(heldByA));
    EXPECT_FALSE(harness.IsLeased(heldByB));
    EXPECT_EQ(harness.Addresses().GetLeaseCount(), 2u);
    // The row still gives A its own address rather than the lowest free one,
    // and a new client takes the lowest.
    EXPECT_EQ(harness.SendForOne(Discover(6, MAC_A)).Yiaddr(), heldByA);
    EXPECT_EQ(harness.Obtain(TestMac(5), 7), heldByB);
}
