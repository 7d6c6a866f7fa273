#include "engine/TransactionManager.h"

#include "foundation/ClientIdentifier.h"
#include "support/ManualClock.h"
#include "support/TestHardware.h"

#include <gtest/gtest.h>

namespace {

constexpr int64_t START = 1'000'000;

ClientIdentifier ClientID(uint8_t number)
{
    return ClientIdentifier(TestHardware(number));
}

IPv4Address Offered(int last)
{
    return IPv4Address(192, 168, 1, static_cast<uint8_t>(last));
}

uint32_t At(int last)
{
    return Offered(last).ToUint32();
}

} // namespace

// An address or client shared by two transactions stays known until the
// last of them goes; the lowest address not under offer steps over them.
TEST(TransactionManagerTest, SharedAddressesAndClientsStayUntilTheirLastTransactionGoes)
{
    ManualClock clock(START);
    TransactionManager manager(&clock);
    for (uint8_t id = 1; id <= 4; ++id) {
        manager.AddTransaction(id, Offered(239 + id), ClientID(id));
    }
    manager.AddTransaction(0xFFFFFFFFu, Offered(242), ClientID(1)); // 240-243 under offer
    EXPECT_EQ(manager.Transactions(0xFFFFFFFFu).GetOfferedAddress(), Offered(242));
    EXPECT_EQ(manager.LowestNotOffered(At(240), At(250)), At(244));
    EXPECT_EQ(manager.LowestNotOffered(At(238), At(250)), At(238));
    EXPECT_EQ(manager.LowestNotOffered(At(241), At(243)), std::nullopt);

    manager.RemoveTransaction(3);
    EXPECT_TRUE(manager.TransactionExistsForAddress(Offered(242)));
    EXPECT_EQ(manager.LowestNotOffered(At(240), At(250)), At(244));
    manager.RemoveTransaction(1);
    EXPECT_TRUE(manager.TransactionExistsForClient(ClientID(1)));
    manager.RemoveTransaction(0xFFFFFFFFu);
    EXPECT_FALSE(manager.TransactionExistsForClient(ClientID(1)));
    EXPECT_FALSE(manager.TransactionExists(1));
    EXPECT_EQ(manager.LowestNotOffered(At(240), At(250)), At(240));
    EXPECT_EQ(manager.LowestNotOffered(At(241), At(250)), At(242));
}

// A purge removes transactions more than 3 s past their last stamp (the
// last change of the message type, or their entry), and runs only when a
// message arrives (RemoveExpiredTransactions) more than 1 s after the last
// purge, even one that found nothing. The age counts from the stamp wherever
// the clock has been.
TEST(TransactionManagerTest, PurgeTimingAndAge)
{
    ManualClock clock(START);
    TransactionManager manager(&clock);
    const auto purgeAt = [&](int64_t seconds) {
        clock.Set(START + seconds);
        manager.RemoveExpiredTransactions();
    };
    const auto stampAt = [&](uint32_t id, int64_t seconds) {
        clock.Set(START + seconds);
        manager.Transactions(id).SetLastMessageType(DHCPOFFER, manager.Now());
    };
    manager.AddTransaction(1, Offered(240), ClientID(1));
    manager.AddTransaction(2, Offered(241), ClientID(2));
    stampAt(2, 2);
    purgeAt(3); // 1 is 3 s old: the purge runs and keeps it
    EXPECT_TRUE(manager.TransactionExists(1));
    purgeAt(4); // 1 s since the last purge: no purge
    EXPECT_TRUE(manager.TransactionExists(1));
    purgeAt(5); // 2 is 3 s past its stamp
    EXPECT_FALSE(manager.TransactionExists(1));
    EXPECT_FALSE(manager.TransactionExistsForAddress(Offered(240)));
    EXPECT_TRUE(manager.TransactionExists(2));
    purgeAt(7);
    EXPECT_FALSE(manager.TransactionExists(2));

    // The clock went back: 4 is stamped before its entry and goes on time;
    // 3, entered "later", is younger than nothing and stays.
    clock.Set(START + 20);
    manager.AddTransaction(3, Offered(242), ClientID(3));
    manager.AddTransaction(4, Offered(243), ClientID(4));
    stampAt(4, 12);
    purgeAt(16);
    EXPECT_FALSE(manager.TransactionExistsForAddress(Offered(243)));
    EXPECT_TRUE(manager.TransactionExists(3));
    // A purge that finds nothing still counts as the last one: a transaction
    // already 15 s old stays 1 s after it.
    purgeAt(18);
    clock.Set(START + 4);
    manager.AddTransaction(5, Offered(244), ClientID(5));
    purgeAt(19);
    EXPECT_TRUE(manager.TransactionExists(5));
    // Without a message nothing goes, however old.
    clock.Advance(100'000);
    EXPECT_TRUE(manager.TransactionExists(3) && manager.TransactionExists(5));
    manager.RemoveExpiredTransactions();
    EXPECT_EQ(manager.GetTransactionCount(), 0u);
}
