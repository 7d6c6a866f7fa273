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

// A purge removes transactions older than 3 s, and runs only when a message
// arrives (RemoveExpiredTransactions) more than 1 s after the last purge,
// even one that found nothing.
TEST(TransactionManagerTest, PurgeTiming)
{
    ManualClock clock(START);
    TransactionManager manager(&clock);
    manager.AddTransaction(1, Offered(240), ClientID(1));
    manager.AddTransaction(2, Offered(241), ClientID(2));
    const struct {
        const char* name;
        int64_t at;
        bool stays;
    } steps[] = {
        {"3 s old: the purge runs and keeps it", START + 3, true},
        {"4 s old, 1 s since the last purge: no purge", START + 4, true},
        {"5 s old, 2 s since the last purge: gone", START + 5, false},
    };
    for (const auto& [name, at, stays] : steps) {
        clock.Set(at);
        manager.RemoveExpiredTransactions();
        EXPECT_EQ(manager.TransactionExists(1), stays) << name;
    }
    EXPECT_FALSE(manager.TransactionExistsForAddress(Offered(241)));

    // A purge that finds nothing still counts as the last one: a transaction
    // already 15 s old stays 1 s after it.
    clock.Set(START + 18);
    manager.RemoveExpiredTransactions();
    clock.Set(START + 4);
    manager.AddTransaction(3, Offered(242), ClientID(3));
    clock.Set(START + 19);
    manager.RemoveExpiredTransactions();
    EXPECT_TRUE(manager.TransactionExists(3));
    // Without a message nothing goes, however old.
    clock.Advance(100'000);
    EXPECT_TRUE(manager.TransactionExists(3));
    manager.RemoveExpiredTransactions();
    EXPECT_EQ(manager.GetTransactionCount(), 0u);
}

// The age counts from the last change of the message type, wherever the
// clock has been: a transaction stamped later than it was entered outlives
// the purge of its first second, and one stamped earlier (the clock went back
// in between) still goes on time.
TEST(TransactionManagerTest, AgeCountsFromTheLastStampEvenWhenTheClockWentBack)
{
    ManualClock clock(START);
    TransactionManager manager(&clock);
    manager.AddTransaction(1, Offered(240), ClientID(1));
    clock.Set(START + 2);
    manager.Transactions(1).SetLastMessageType(DHCPOFFER, manager.Now());
    clock.Set(START + 4);
    manager.RemoveExpiredTransactions(); // entered 4 s ago, stamped 2 s ago
    EXPECT_TRUE(manager.TransactionExists(1));
    clock.Set(START + 6);
    manager.RemoveExpiredTransactions();
    EXPECT_FALSE(manager.TransactionExists(1));

    clock.Set(START + 20);
    manager.AddTransaction(2, Offered(241), ClientID(2));
    manager.AddTransaction(3, Offered(242), ClientID(3));
    clock.Set(START + 12);
    manager.Transactions(2).SetLastMessageType(DHCPOFFER, manager.Now());
    clock.Set(START + 16);
    manager.RemoveExpiredTransactions(); // 2 is 4 s old; 3 was entered "later"
    EXPECT_FALSE(manager.TransactionExists(2));
    EXPECT_FALSE(manager.TransactionExistsForAddress(Offered(241)));
    EXPECT_TRUE(manager.TransactionExists(3));
    clock.Set(START + 24);
    manager.RemoveExpiredTransactions();
    EXPECT_FALSE(manager.TransactionExists(3));
}
