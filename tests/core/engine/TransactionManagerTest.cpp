#include "engine/TransactionManager.h"

#include "foundation/ClientIdentifier.h"
#include "foundation/HardwareAddress.h"
#include "support/ManualClock.h"

#include <gtest/gtest.h>

namespace {

constexpr int64_t START = 1'000'000;

ClientIdentifier ClientID(uint8_t number)
{
    const uint8_t bytes[6] = {0x02, 0, 0, 0, 0, number};
    return ClientIdentifier(HardwareAddress(bytes, 6, HardwareAddress::Ethernet10Mb));
}

IPv4Address Offered(int last)
{
    return IPv4Address(192, 168, 1, last);
}

} // namespace

TEST(TransactionManagerTest, TransactionsAreFoundByIdAddressAndClient)
{
    ManualClock clock(START);
    TransactionManager manager(&clock);
    const uint32_t highBit = 0x80000001u;
    manager.AddTransaction(highBit, Offered(240), ClientID(1));
    manager.AddTransaction(0xFFFFFFFFu, Offered(241), ClientID(2));
    manager.AddTransaction(7, Offered(241), ClientID(1)); // shares an address and a client

    EXPECT_TRUE(manager.TransactionExists(highBit));
    EXPECT_FALSE(manager.TransactionExists(1));
    Transaction& transaction = manager.Transactions(highBit);
    EXPECT_EQ(transaction.GetID(), highBit);
    EXPECT_EQ(transaction.GetOfferedAddress(), Offered(240));
    EXPECT_EQ(transaction.GetClientIdentifier(), ClientID(1));
    EXPECT_EQ(transaction.GetLastMessageType(), DHCPDISCOVER);
    EXPECT_EQ(transaction.GetLastMessageTime(), START);

    clock.Advance(2);
    transaction.SetLastMessageType(DHCPOFFER, clock.Now());
    EXPECT_EQ(manager.Transactions(highBit).GetLastMessageType(), DHCPOFFER);
    EXPECT_EQ(manager.Transactions(highBit).GetLastMessageTime(), START + 2);

    EXPECT_TRUE(manager.TransactionExistsForAddress(Offered(240)));
    EXPECT_FALSE(manager.TransactionExistsForAddress(Offered(242)));
    EXPECT_TRUE(manager.TransactionExistsForClient(ClientID(2)));
    EXPECT_FALSE(manager.TransactionExistsForClient(ClientID(3)));

    // A shared address or client stays known until its last transaction goes.
    manager.RemoveTransaction(0xFFFFFFFFu);
    EXPECT_FALSE(manager.TransactionExistsForClient(ClientID(2)));
    EXPECT_TRUE(manager.TransactionExistsForAddress(Offered(241)));
    manager.RemoveTransaction(7);
    EXPECT_FALSE(manager.TransactionExistsForAddress(Offered(241)));
    EXPECT_TRUE(manager.TransactionExistsForClient(ClientID(1)));
    manager.RemoveTransaction(highBit);
    EXPECT_FALSE(manager.TransactionExistsForClient(ClientID(1)));
    EXPECT_EQ(manager.GetTransactionCount(), 0u);

    // An identifier can be used again once its transaction is gone.
    manager.AddTransaction(highBit, Offered(250), ClientID(5));
    EXPECT_EQ(manager.Transactions(highBit).GetOfferedAddress(), Offered(250));
}

TEST(TransactionManagerTest, PurgeRemovesOnlyAfterMoreThanThreeSecondsAndAtMostEveryTwo)
{
    ManualClock clock(START);
    TransactionManager manager(&clock);
    manager.AddTransaction(1, Offered(240), ClientID(1));

    // 3 s old: the purge runs (3 s since construction) and keeps it.
    clock.Set(START + 3);
    manager.RemoveExpiredTransactions();
    EXPECT_TRUE(manager.TransactionExists(1));
    // 4 s old, but only 1 s since the last purge: no purge yet.
    clock.Set(START + 4);
    manager.RemoveExpiredTransactions();
    EXPECT_TRUE(manager.TransactionExists(1));
    // 5 s old and 2 s since the last purge: gone.
    clock.Set(START + 5);
    manager.RemoveExpiredTransactions();
    EXPECT_FALSE(manager.TransactionExists(1));
    EXPECT_FALSE(manager.TransactionExistsForAddress(Offered(240)));

    // 4 s old with the last purge long ago: removed at once.
    manager.AddTransaction(2, Offered(241), ClientID(2));
    clock.Set(START + 9);
    manager.RemoveExpiredTransactions();
    EXPECT_FALSE(manager.TransactionExists(2));

    // The age counts from the last change of the message type.
    manager.AddTransaction(3, Offered(242), ClientID(3));
    clock.Set(START + 11);
    manager.Transactions(3).SetLastMessageType(DHCPOFFER, clock.Now());
    clock.Set(START + 14);
    manager.RemoveExpiredTransactions();
    EXPECT_TRUE(manager.TransactionExists(3));
    clock.Set(START + 16);
    manager.RemoveExpiredTransactions();
    EXPECT_FALSE(manager.TransactionExists(3));
}

TEST(TransactionManagerTest, NothingIsPurgedWithoutAMessage)
{
    ManualClock clock(START);
    TransactionManager manager(&clock);
    manager.AddTransaction(0x80000000u, Offered(240), ClientID(1));
    manager.AddTransaction(5, Offered(241), ClientID(2));
    clock.Advance(100'000);
    // Old as they are, they stay until a message sets off the purge.
    EXPECT_EQ(manager.GetTransactionCount(), 2u);
    EXPECT_TRUE(manager.TransactionExistsForAddress(Offered(240)));
    manager.RemoveExpiredTransactions();
    EXPECT_EQ(manager.GetTransactionCount(), 0u);
    EXPECT_FALSE(manager.TransactionExistsForClient(ClientID(1)));
}

TEST(TransactionManagerTest, PurgeThatFindsNothingStillSetsTheLastPurgeTime)
{
    ManualClock clock(START);
    TransactionManager manager(&clock);
    clock.Set(START + 2);
    manager.RemoveExpiredTransactions(); // runs on an empty table

    // A transaction that is already old (its time lies in the past).
    clock.Set(START - 10);
    manager.AddTransaction(9, Offered(243), ClientID(9));
    // Only 1 s after the empty purge: no purge, though the transaction is 13 s old.
    clock.Set(START + 3);
    manager.RemoveExpiredTransactions();
    EXPECT_TRUE(manager.TransactionExists(9));
    clock.Set(START + 4);
    manager.RemoveExpiredTransactions();
    EXPECT_FALSE(manager.TransactionExists(9));
}
