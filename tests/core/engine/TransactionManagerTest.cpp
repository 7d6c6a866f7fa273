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

TEST(TransactionManagerTest, SharedAddressOrClientStaysKnownUntilItsLastTransactionGoes)
{
    ManualClock clock(START);
    TransactionManager manager(&clock);
    manager.AddTransaction(0x80000001u, Offered(240), ClientID(1));
    manager.AddTransaction(0xFFFFFFFFu, Offered(241), ClientID(2));
    manager.AddTransaction(7, Offered(241), ClientID(1)); // shares an address and a client
    EXPECT_EQ(manager.Transactions(0x80000001u).GetOfferedAddress(), Offered(240));
    EXPECT_FALSE(manager.TransactionExists(1));

    manager.RemoveTransaction(0xFFFFFFFFu);
    EXPECT_FALSE(manager.TransactionExistsForClient(ClientID(2)));
    EXPECT_TRUE(manager.TransactionExistsForAddress(Offered(241)));
    manager.RemoveTransaction(7);
    EXPECT_FALSE(manager.TransactionExistsForAddress(Offered(241)));
    EXPECT_TRUE(manager.TransactionExistsForClient(ClientID(1)));
    manager.RemoveTransaction(0x80000001u);
    EXPECT_FALSE(manager.TransactionExistsForClient(ClientID(1)));
    EXPECT_FALSE(manager.TransactionExistsForAddress(Offered(240)));
    EXPECT_EQ(manager.GetTransactionCount(), 0u);
}

// A purge removes transactions older than 3 s, and runs only when a message
// arrives (RemoveExpiredTransactions) more than 1 s after the last purge,
// even one that found nothing.
TEST(TransactionManagerTest, PurgeTiming)
{
    ManualClock clock(START);
    TransactionManager manager(&clock);
    manager.AddTransaction(1, Offered(240), ClientID(1));
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

    // A purge that finds nothing still counts as the last one: a transaction
    // 15 s old stays 1 s after it.
    clock.Set(START + 18);
    manager.RemoveExpiredTransactions();
    clock.Set(START + 4);
    manager.AddTransaction(9, Offered(243), ClientID(9));
    clock.Set(START + 19);
    manager.RemoveExpiredTransactions();
    EXPECT_TRUE(manager.TransactionExists(9));

    // Without a message nothing is purged, however old.
    clock.Advance(100'000);
    EXPECT_TRUE(manager.TransactionExistsForAddress(Offered(243)));
    manager.RemoveExpiredTransactions();
    EXPECT_EQ(manager.GetTransactionCount(), 0u);
}

// Offered addresses as runs: the lowest address not under offer, with an
// address shared by two transactions kept until the last of them goes.
TEST(TransactionManagerTest, LowestNotOfferedPassesOverTheAddressesUnderOffer)
{
    ManualClock clock(START);
    TransactionManager manager(&clock);
    const auto at = [](int last) { return Offered(last).ToUint32(); };
    for (int id = 1; id <= 4; ++id) {
        manager.AddTransaction(static_cast<uint32_t>(id), Offered(239 + id), ClientID(static_cast<uint8_t>(id)));
    }
    manager.AddTransaction(5, Offered(242), ClientID(5)); // 240-243 under offer, 242 twice
    EXPECT_EQ(manager.LowestNotOffered(at(240), at(250)), at(244));
    EXPECT_EQ(manager.LowestNotOffered(at(238), at(250)), at(238));
    EXPECT_EQ(manager.LowestNotOffered(at(241), at(243)), std::nullopt);

    manager.RemoveTransaction(3);
    EXPECT_EQ(manager.LowestNotOffered(at(240), at(250)), at(244));
    manager.RemoveTransaction(5);
    EXPECT_EQ(manager.LowestNotOffered(at(240), at(250)), at(242));
    clock.Set(START + 4);
    manager.RemoveExpiredTransactions();
    EXPECT_EQ(manager.LowestNotOffered(at(240), at(250)), at(240));
}

// A purge finds expired transactions by the second they were filed under;
// one stamped earlier than that, because the clock went back in between,
// must still go on time.
TEST(TransactionManagerTest, PurgeIsExactWhenTheClockGoesBack)
{
    ManualClock clock(START);
    TransactionManager manager(&clock);
    clock.Set(START + 10);
    manager.AddTransaction(1, Offered(240), ClientID(1));
    manager.AddTransaction(2, Offered(241), ClientID(2));
    clock.Set(START + 2);
    manager.Transactions(1).SetLastMessageType(DHCPOFFER, manager.Now());
    clock.Set(START + 6);
    manager.RemoveExpiredTransactions(); // 1 is 4 s old; 2 was stamped in the future
    EXPECT_FALSE(manager.TransactionExists(1));
    EXPECT_FALSE(manager.TransactionExistsForAddress(Offered(240)));
    EXPECT_TRUE(manager.TransactionExists(2));

    // Later purges run by age again and still see 2, filed anew.
    clock.Set(START + 14);
    manager.RemoveExpiredTransactions();
    EXPECT_FALSE(manager.TransactionExists(2));
    EXPECT_EQ(manager.GetTransactionCount(), 0u);
}
