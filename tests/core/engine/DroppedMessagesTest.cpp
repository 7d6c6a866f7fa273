#include "EngineHarness.h"

// What the engine drops without a trace, and what a failed send leaves.

namespace {

const std::vector<uint8_t> MAC_A = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55};
const std::vector<uint8_t> MAC_B = {0x00, 0x11, 0x22, 0x33, 0x44, 0x66};

ClientDatagram Selecting(uint32_t xid, const std::vector<uint8_t>& mac, const IPv4Address& offered)
{
    return ClientDatagram(3, xid, mac).RequestedAddress(offered).ServerIdentifier(EngineHarness::SERVER_ADDRESS);
}

} // namespace

TEST(DroppedMessagesTest, DeclineAndServerMessageTypesChangeNothing)
{
    EngineHarness harness;
    harness.Start();
    const IPv4Address held = harness.Obtain(MAC_A, 1);
    for (uint8_t type : {2, 4, 5, 6}) {
        EXPECT_TRUE(harness.Send(ClientDatagram(type, 2, MAC_A).RequestedAddress(held).ClientAddress(held)).empty());
    }
    EXPECT_TRUE(harness.NewLogItems().empty());
    // DECLINE marks nothing bad: the address stays leased to the client.
    EXPECT_TRUE(harness.LiveLeaseOn(held).has_value());
}

TEST(DroppedMessagesTest, MessageWithoutOption53IsDropped)
{
    EngineHarness harness;
    harness.Start();
    EXPECT_TRUE(harness.Send(ClientDatagram(1, 1, MAC_A).WithoutMessageType()).empty());
    EXPECT_TRUE(harness.NewLogItems().empty());
}

TEST(DroppedMessagesTest, ClientWithoutAnyIdentityIsDroppedBeforeTransactionsAreAsked)
{
    EngineHarness harness;
    harness.Start();
    // An open transaction, so that a lookup by client would have something to compare with.
    ASSERT_EQ(harness.Send(ClientDatagram(1, 1, MAC_A)).size(), 1u);
    harness.NewLogItems();
    for (uint8_t type : {1, 3, 7, 8}) {
        EXPECT_TRUE(harness.Send(ClientDatagram(type, 1, {}).RequestedAddress(EngineHarness::POOL_START)).empty());
    }
    EXPECT_TRUE(harness.NewLogItems().empty());
    // The open exchange is unharmed.
    EXPECT_EQ(harness.SendForOne(Selecting(1, MAC_A, EngineHarness::POOL_START)).MessageType(), 5);
}

TEST(DroppedMessagesTest, ClientWithoutHardwareAddressIsServedByItsClientIdentifier)
{
    EngineHarness harness;
    harness.Start();
    const ByteString identifier = {0, 'h', 'o', 's', 't'};
    const auto offer = harness.SendForOne(ClientDatagram(1, 1, {}).ClientIdentifier(identifier));
    EXPECT_EQ(offer.message.GetHardwareAddress().GetLength(), 0);
    // The same identifier with a new xid is the same client: ignored.
    EXPECT_TRUE(harness.Send(ClientDatagram(1, 2, {}).ClientIdentifier(identifier)).empty());
}

TEST(DroppedMessagesTest, OperationFieldIsNotLookedAt)
{
    EngineHarness harness;
    harness.Start();
    const auto offer = harness.SendForOne(ClientDatagram(1, 1, MAC_A).Operation(2));
    EXPECT_EQ(offer.MessageType(), 2);
    EXPECT_EQ(offer.message.GetOperation(), 2);
}

TEST(DroppedMessagesTest, MalformedDatagramsLeaveNoTraceAndTheNextOneIsServed)
{
    EngineHarness harness;
    harness.Start();
    ByteString wrongCookie = ClientDatagram(1, 1, MAC_A).Bytes();
    wrongCookie[236] = 98;
    ByteString truncated = ClientDatagram(1, 1, MAC_A).Bytes();
    truncated.resize(100);
    ByteString longOption = ClientDatagram(1, 1, MAC_A).Bytes();
    longOption.back() = 12; // host name...
    longOption.push_back(200); // ...running far past the end
    ByteString badHardwareType = ClientDatagram(1, 1, MAC_A).HardwareType(22).Bytes();
    ByteString badOp = ClientDatagram(1, 1, MAC_A).Operation(3).Bytes();
    ByteString longHardwareAddress = ClientDatagram(1, 1, MAC_A).Bytes();
    longHardwareAddress[2] = 17;
    ByteString badTypeLength = ClientDatagram(1, 1, MAC_A).WithoutMessageType().Option(53, {1, 1}).Bytes();

    for (const ByteString& bad : {ByteString{}, wrongCookie, truncated, longOption, badHardwareType, badOp,
                                  longHardwareAddress, badTypeLength}) {
        EXPECT_TRUE(harness.SendBytes(bad).empty());
    }
    EXPECT_TRUE(harness.NewLogItems().empty());
    EXPECT_EQ(harness.SendForOne(ClientDatagram(1, 1, MAC_A)).MessageType(), 2);
}

TEST(SendFailureTest, FailedOfferLeavesTheTransactionAtDiscover)
{
    EngineHarness harness;
    harness.Start();
    harness.network.SetSendFailure(AppException::SendError);
    EXPECT_TRUE(harness.Send(ClientDatagram(1, 1, MAC_A)).empty());
    EXPECT_EQ(EventsOf(harness.NewLogItems()), (std::vector<EventType>{DHCPDiscoverReceived}));
    harness.network.SetSendFailure(std::nullopt);

    // The REQUEST finds the transaction short of an OFFER: nothing, not even a log item.
    EXPECT_TRUE(harness.Send(Selecting(1, MAC_A, EngineHarness::POOL_START)).empty());
    EXPECT_TRUE(harness.NewLogItems().empty());
    // The address is still held, and the client is still known.
    EXPECT_EQ(harness.SendForOne(ClientDatagram(1, 2, MAC_B)).message.GetYourIPAddress(),
              EngineHarness::POOL_START + 1);
    EXPECT_TRUE(harness.Send(ClientDatagram(1, 3, MAC_A)).empty());
    // Until it ages out.
    harness.clock.Advance(4);
    EXPECT_EQ(harness.SendForOne(ClientDatagram(1, 4, MAC_A)).message.GetYourIPAddress(), EngineHarness::POOL_START);
}

TEST(SendFailureTest, FailedAckKeepsTheLeaseAndEndsTheExchange)
{
    for (const int32_t failure : {AppException::SendError, AppException::NotAllBytesSent}) {
        EngineHarness harness;
        harness.Start();
        ASSERT_EQ(harness.Send(ClientDatagram(1, 1, MAC_A)).size(), 1u);
        harness.NewLogItems();
        harness.network.SetSendFailure(failure);
        EXPECT_TRUE(harness.Send(Selecting(1, MAC_A, EngineHarness::POOL_START)).empty());
        EXPECT_EQ(EventsOf(harness.NewLogItems()), (std::vector<EventType>{DHCPRequestReceived}));
        EXPECT_TRUE(harness.LiveLeaseOn(EngineHarness::POOL_START).has_value());
        harness.network.SetSendFailure(std::nullopt);
        // The transaction went: the client's next DISCOVER is not ignored.
        EXPECT_EQ(harness.SendForOne(ClientDatagram(1, 2, MAC_A)).message.GetYourIPAddress(),
                  EngineHarness::POOL_START);
    }
}

TEST(SendFailureTest, FailedNakAndInformAckAreNotLogged)
{
    EngineHarness harness;
    harness.Start();
    const IPv4Address held = harness.Obtain(MAC_A, 1);
    harness.network.SetSendFailure(AppException::SendError);
    EXPECT_TRUE(harness.Send(ClientDatagram(3, 2, MAC_A).ClientAddress(EngineHarness::POOL_END + 1)).empty());
    EXPECT_TRUE(harness.Send(ClientDatagram(8, 3, MAC_A).ClientAddress(held)).empty());
    EXPECT_EQ(EventsOf(harness.NewLogItems()), (std::vector<EventType>{DHCPRequestReceived, DHCPInformReceived}));
    EXPECT_TRUE(harness.LiveLeaseOn(held).has_value());
}
