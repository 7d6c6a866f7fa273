#include "EngineHarness.h"

// What the engine drops without a trace, and what a failed send leaves.

TEST(DroppedMessagesTest, DroppedDatagramsLeaveNoTraceAndHarmNoExchange)
{
    EngineHarness harness;
    harness.Start();
    const IPv4Address held = harness.Obtain(MAC_A, 1);
    // An open exchange, so that a lookup by xid or client has something to find.
    ASSERT_EQ(harness.SendForOne(Discover(2, MAC_B)).Yiaddr(), held + 1);
    harness.NewLogItems();

    // What the parser refuses (its rules are tested with the parser), and
    // what the engine itself will not handle.
    ByteString badCookie = Discover(3, MAC_A).Bytes();
    badCookie[236] = 98;
    std::vector<std::pair<std::string, ByteString>> dropped = {
        {"empty", {}},
        {"wrong magic cookie", badCookie},
        {"header cut short", ByteString(badCookie.begin(), badCookie.begin() + 100)},
        {"no option 53", Discover(3, MAC_A).WithoutMessageType().Bytes()},
        {"option 53 of length 2", Discover(3, MAC_A).WithoutMessageType().Option(53, {1, 1}).Bytes()},
    };
    // DECLINE (which marks nothing bad) and the server's own types.
    for (uint8_t type : {2, 4, 5, 6}) {
        dropped.push_back({"type " + std::to_string(type),
                           ClientDatagram(type, 3, MAC_A).RequestedAddress(held).ClientAddress(held).Bytes()});
    }
    // Neither chaddr nor client identifier: no identity at all.
    for (uint8_t type : {1, 3, 7, 8}) {
        dropped.push_back({"no identity, type " + std::to_string(type),
                           ClientDatagram(type, 2, {}).RequestedAddress(held + 1).Bytes()});
    }
    for (const auto& [name, bytes] : dropped) {
        EXPECT_TRUE(harness.SendBytes(bytes).empty()) << name;
        EXPECT_TRUE(harness.NewLogItems().empty()) << name;
    }
    EXPECT_TRUE(harness.IsLeased(held));
    EXPECT_EQ(harness.SendForOne(Selecting(2, MAC_B, held + 1)).Type(), 5);

    // A request with op 2 is served all the same.
    EXPECT_EQ(harness.SendForOne(Discover(4, TestMac(4)).Operation(2)).Type(), 2);
    // Without chaddr the client identifier is identity enough: the same one
    // under a new xid is the same client, and ignored.
    const ByteString identifier = {0, 'h', 'o', 's', 't'};
    const auto offer = harness.SendForOne(ClientDatagram(1, 5, {}).ClientIdentifier(identifier));
    EXPECT_EQ(offer.message.GetHardwareAddress().GetLength(), 0);
    EXPECT_TRUE(harness.Send(ClientDatagram(1, 6, {}).ClientIdentifier(identifier)).empty());
}

TEST(SendFailureTest, FailedOfferLeavesTheTransactionAtDiscover)
{
    EngineHarness harness;
    harness.Start();
    harness.network.SetSendFailure(AppException::SendError);
    EXPECT_EQ(harness.Unanswered(Discover(1, MAC_A)), Events{DHCPDiscoverReceived});
    harness.network.SetSendFailure(std::nullopt);

    // The REQUEST finds the transaction short of an OFFER: nothing, not even a log item.
    EXPECT_EQ(harness.Unanswered(Selecting(1, MAC_A, POOL_START)), Events{});
    // The address is still held, and the client still known, until it ages out.
    EXPECT_EQ(harness.SendForOne(Discover(2, MAC_B)).Yiaddr(), POOL_START + 1);
    EXPECT_TRUE(harness.Send(Discover(3, MAC_A)).empty());
    harness.clock.Advance(4);
    EXPECT_EQ(harness.SendForOne(Discover(4, MAC_A)).Yiaddr(), POOL_START);
}

TEST(SendFailureTest, FailedAckKeepsTheLeaseAndEndsTheExchangeAndFailedRepliesAreNotLogged)
{
    for (const int32_t failure : {AppException::SendError, AppException::NotAllBytesSent}) {
        EngineHarness harness;
        harness.Start();
        ASSERT_EQ(harness.Send(Discover(1, MAC_A)).size(), 1u);
        harness.NewLogItems();
        harness.network.SetSendFailure(failure);
        EXPECT_EQ(harness.Unanswered(Selecting(1, MAC_A, POOL_START)), Events{DHCPRequestReceived}) << failure;
        EXPECT_TRUE(harness.IsLeased(POOL_START)) << failure;
        // Neither the NAK nor the ACK of an INFORM is logged either.
        EXPECT_EQ(harness.Unanswered(Renewal(2, MAC_A, POOL_END + 1)), Events{DHCPRequestReceived}) << failure;
        EXPECT_EQ(harness.Unanswered(ClientDatagram(8, 3, MAC_A).ClientAddress(POOL_START)), Events{DHCPInformReceived})
            << failure;
        EXPECT_TRUE(harness.IsLeased(POOL_START)) << failure;
        // The transaction went: the client's next DISCOVER is not ignored.
        harness.network.SetSendFailure(std::nullopt);
        EXPECT_EQ(harness.SendForOne(Discover(4, MAC_A)).Yiaddr(), POOL_START) << failure;
    }
}
