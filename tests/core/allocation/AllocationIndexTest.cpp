// The structures behind the address choice, each held against a plain model
// over random runs (fixed seeds). A fault in them need not change any answer
// of the manager, which confirms every candidate with the exact test, but it
// would make the choice slow again; here it shows.
#include "AllocationTestWorld.h"

#include "allocation/AddressRangeSet.h"
#include "allocation/FenwickTree.h"
#include "allocation/FreeAddressIndex.h"
#include "allocation/LeaseTable.h"
#include "allocation/ReservationTable.h"

#include <gtest/gtest.h>

#include <limits>
#include <random>
#include <set>

namespace {

constexpr uint32_t LAST_ADDRESS = std::numeric_limits<uint32_t>::max();
constexpr int64_t WRAP = int64_t{1} << 31;

int Pick(std::mt19937& random, int count)
{
    return std::uniform_int_distribution<int>(0, count - 1)(random);
}

// Addresses near both ends of the number range and in a small middle band.
uint32_t SomeValue(std::mt19937& random)
{
    const uint32_t offset = static_cast<uint32_t>(Pick(random, 40));
    switch (Pick(random, 3)) {
    case 0:
        return offset;
    case 1:
        return LAST_ADDRESS - offset;
    default:
        return 0x0A000000u + offset;
    }
}

std::optional<uint32_t> LowestMissing(const std::set<uint32_t>& set, uint32_t first, uint32_t last)
{
    for (uint64_t value = first; value <= last; ++value) {
        if (!set.contains(static_cast<uint32_t>(value))) {
            return static_cast<uint32_t>(value);
        }
    }
    return std::nullopt;
}

} // namespace

TEST(AllocationIndexTest, AddressRangeSetAgreesWithAPlainSet)
{
    std::mt19937 random(7);
    AddressRangeSet ranges;
    std::set<uint32_t> plain;
    for (int step = 0; step < 20'000; ++step) {
        const uint32_t value = SomeValue(random);
        const int kind = Pick(random, 10);
        if (kind < 5) {
            ranges.Insert(value);
            plain.insert(value);
        } else if (kind < 9) {
            ranges.Erase(value);
            plain.erase(value);
        } else {
            ranges.Assign(std::vector<uint32_t>(plain.begin(), plain.end()));
        }
        ASSERT_EQ(ranges.Contains(value), plain.contains(value)) << step;
        uint32_t first = SomeValue(random);
        uint32_t last = SomeValue(random);
        if (first > last && Pick(random, 10) > 0) {
            std::swap(first, last);
        }
        // The plain walk ends within the size of the set, however wide the range.
        ASSERT_EQ(ranges.LowestMissing(first, last), LowestMissing(plain, first, last)) << step;
    }
    // Runs that reach the very ends of the range.
    ranges.Clear();
    ranges.Insert(LAST_ADDRESS);
    ranges.Insert(LAST_ADDRESS - 1);
    ranges.Insert(0);
    EXPECT_EQ(ranges.RunCount(), 2u);
    EXPECT_EQ(ranges.LowestMissing(LAST_ADDRESS - 1, LAST_ADDRESS), std::nullopt);
    EXPECT_EQ(ranges.LowestMissing(LAST_ADDRESS - 2, LAST_ADDRESS), LAST_ADDRESS - 2);
    EXPECT_EQ(ranges.LowestMissing(0, 5), 1u);
    ranges.Erase(LAST_ADDRESS);
    EXPECT_EQ(ranges.LowestMissing(LAST_ADDRESS - 1, LAST_ADDRESS), LAST_ADDRESS);
}

TEST(AllocationIndexTest, FenwickTreeAgreesWithPlainCounts)
{
    std::mt19937 random(11);
    FenwickTree tree;
    std::vector<uint32_t> plain;
    for (int step = 0; step < 5'000; ++step) {
        const int kind = Pick(random, 20);
        if (kind < 8 || plain.empty()) {
            const auto value = static_cast<uint32_t>(Pick(random, 2));
            tree.PushBack(value);
            plain.push_back(value);
        } else if (kind < 19) {
            const size_t slot = static_cast<size_t>(Pick(random, static_cast<int>(plain.size())));
            const int32_t delta = plain[slot] == 0 ? 1 : -1;
            tree.Add(slot, delta);
            plain[slot] = static_cast<uint32_t>(static_cast<int32_t>(plain[slot]) + delta);
        } else {
            tree.Assign(plain);
        }
        ASSERT_EQ(tree.Size(), plain.size());
        const size_t count = static_cast<size_t>(Pick(random, static_cast<int>(plain.size()) + 1));
        uint32_t sum = 0;
        for (size_t i = 0; i < count; ++i) {
            sum += plain[i];
        }
        ASSERT_EQ(tree.PrefixSum(count), sum) << step;
        if (tree.Total() > 0) {
            const auto rank = static_cast<uint32_t>(Pick(random, static_cast<int>(tree.Total())));
            size_t slot = 0;
            for (uint32_t seen = 0;; ++slot) {
                if (plain[slot] > 0 && seen + plain[slot] > rank) {
                    break;
                }
                seen += plain[slot];
            }
            ASSERT_EQ(tree.FindRank(rank), slot) << step;
        }
    }
}

TEST(AllocationIndexTest, NextStateChangeIsTheFirstSecondWithTheOtherAnswer)
{
    const int64_t now = 1'700'000'000;
    const std::vector<Lease> leases = {
        Lease(Client(1), Address("10.0.0.1"), 3600, now),            // active, 3600 s to go
        Lease(Client(1), Address("10.0.0.1"), 0, now),               // active in its own second only
        Lease(Client(1), Address("10.0.0.1"), 60, now - 61),         // expired a second ago
        Lease(Client(1), Address("10.0.0.1"), 10, now + 500),        // starts in the future
        Lease(Client(1), Address("10.0.0.1"), 5, now - 5 - WRAP + 3), // about to wrap round to active
        Lease(Client(1), Address("10.0.0.1"), 2'147'483'646, now),  // the longest duration
        Lease(Client(1), Address("10.0.0.1"), -100, now),            // negative, from a file
    };
    for (size_t i = 0; i < leases.size(); ++i) {
        const Lease& lease = leases[i];
        const int64_t next = lease.GetNextStateChange(now);
        ASSERT_GT(next, now) << i;
        EXPECT_EQ(lease.IsExpired(next - 1), lease.IsExpired(now)) << i;
        EXPECT_NE(lease.IsExpired(next), lease.IsExpired(now)) << i;
        // No change in between, sampled.
        for (int64_t t = now; t < next; t += std::max<int64_t>(1, (next - now) / 997)) {
            ASSERT_EQ(lease.IsExpired(t), lease.IsExpired(now)) << i << " at " << t;
        }
    }
    EXPECT_EQ(leases[0].GetNextStateChange(now), now + 3601);
    EXPECT_EQ(leases[1].GetNextStateChange(now), now + 1);
    EXPECT_EQ(leases[4].GetNextStateChange(now), now + 4);
}

// The lease table's positions, lookups and its compaction of erased rows,
// against a plain list walked from the front.
TEST(AllocationIndexTest, LeaseTableAgreesWithAPlainList)
{
    std::mt19937 random(5);
    LeaseTable table;
    std::vector<Lease> plain;
    int64_t now = 1'700'000'000;
    const auto firstWith = [&](auto matches) {
        for (size_t i = 0; i < plain.size(); ++i) {
            if (matches(plain[i])) {
                return static_cast<int>(i);
            }
        }
        return LeaseTable::NOT_FOUND;
    };
    for (int step = 0; step < 20'000; ++step) {
        const IPv4Address address(10, 0, 0, Pick(random, 60));
        const int kind = Pick(random, 100);
        if (kind < 45) {
            const Lease lease(Client(Pick(random, 30)), address, Pick(random, 50), now - Pick(random, 40));
            table.Append(lease);
            plain.push_back(lease);
        } else if (kind < 85) {
            // Often more erasures than appends, so the table shrinks and the
            // marked slots pile up until they are compacted away.
            table.EraseFirstByIPAddress(address);
            const int row = firstWith([&](const Lease& lease) { return lease.GetIPAddress() == address; });
            if (row != LeaseTable::NOT_FOUND) {
                plain.erase(plain.begin() + row);
            }
        } else if (kind < 95) {
            table.ExpireFirstByIPAddress(address, now);
            const int row = firstWith([&](const Lease& lease) { return lease.GetIPAddress() == address; });
            if (row != LeaseTable::NOT_FOUND) {
                plain[static_cast<size_t>(row)].Expire(now);
            }
        } else if (kind < 99) {
            now += Pick(random, 20);
        } else {
            table.Assign(plain);
        }

        ASSERT_EQ(table.Size(), plain.size()) << step;
        ASSERT_TRUE(SameRows(table.Rows(), plain)) << step;
        if (!plain.empty()) {
            const size_t index = static_cast<size_t>(Pick(random, static_cast<int>(plain.size())));
            ASSERT_TRUE(SameRow(table.At(index), plain[index])) << step;
        }
        const HardwareAddress client = Client(Pick(random, 30));
        ASSERT_EQ(table.FindFirstByHardwareAddress(client),
                  firstWith([&](const Lease& lease) { return lease.GetHardwareAddress() == client; }))
            << step;
        const IPv4Address probe(10, 0, 0, Pick(random, 60));
        ASSERT_EQ(table.FindFirstByIPAddress(probe),
                  firstWith([&](const Lease& lease) { return lease.GetIPAddress() == probe; }))
            << step;
        bool active = false;
        int64_t next = LeaseTable::NEVER;
        for (const Lease& lease : plain) {
            if (lease.GetIPAddress() == probe) {
                active = active || !lease.IsExpired(now);
                next = std::min(next, lease.GetNextStateChange(now));
            }
        }
        ASSERT_EQ(table.HasActiveLease(probe, now), active) << step;
        ASSERT_EQ(table.NextStateChange(probe, now), next) << step;
    }
}

// The index must name exactly the addresses that are reserved or hold a row
// not expired, whatever happened since it was built: not one more (it would
// offer a taken address to the exact test, only slower) and not one less
// (the manager would skip a free address).
TEST(AllocationIndexTest, FreeAddressIndexKnowsExactlyWhatIsTakenAsTimeMoves)
{
    std::mt19937 random(3);
    LeaseTable leases;
    ReservationTable reservations;
    FreeAddressIndex index;
    int64_t now = 1'700'000'000;
    const auto addressOf = [](int offset) {
        return IPv4Address::FromUint32(0x0A000000u + static_cast<uint32_t>(offset));
    };
    for (int step = 0; step < 20'000; ++step) {
        const int offset = Pick(random, 80);
        const IPv4Address address = addressOf(offset);
        const int kind = Pick(random, 100);
        if (kind < 18) {
            static constexpr int32_t DURATIONS[] = {0, 1, 2, 5, 30, 600, 2'147'483'646, -3};
            int64_t start = now - Pick(random, 60);
            const int32_t duration = DURATIONS[Pick(random, std::size(DURATIONS))];
            if (Pick(random, 10) == 0) {
                start = now - duration - WRAP + Pick(random, 5); // wraps round to active in seconds
            }
            if (Pick(random, 2) == 0) {
                leases.EraseFirstByIPAddress(address); // a grant; otherwise a second row, as from a file
            }
            leases.Append(Lease(Client(offset), address, duration, start));
            index.Refresh(address.ToUint32(), leases, reservations, now);
        } else if (kind < 26) {
            leases.EraseFirstByIPAddress(address);
            index.Refresh(address.ToUint32(), leases, reservations, now);
        } else if (kind < 32) {
            leases.ExpireFirstByIPAddress(address, now);
            index.Refresh(address.ToUint32(), leases, reservations, now);
        } else if (kind < 36) {
            const size_t row = reservations.FindByIPAddress(address);
            if (row != ReservationTable::NONE) {
                reservations.Remove(row);
            } else if (reservations.FindByHardwareAddress(Client(500 + offset)) == ReservationTable::NONE) {
                reservations.Append(AddressReservation(Client(500 + offset), address));
            }
            index.Refresh(address.ToUint32(), leases, reservations, now);
        } else if (kind < 66) {
            static constexpr int64_t MOVES[] = {0, 1, 1, 2, 3, 7, 30, 600, -1, -2, -5, -30, WRAP - 1, WRAP};
            now += MOVES[Pick(random, std::size(MOVES))];
        } else if (kind < 68) {
            index.Invalidate();
        } else {
            index.Update(leases, reservations, now);
            for (int probe = 0; probe < 5; ++probe) {
                const auto first = static_cast<uint32_t>(0x0A000000u + static_cast<uint32_t>(Pick(random, 80)));
                const auto last = static_cast<uint32_t>(first + static_cast<uint32_t>(Pick(random, 20)));
                std::optional<uint32_t> expected;
                for (uint32_t value = first; value <= last && !expected; ++value) {
                    const IPv4Address candidate = IPv4Address::FromUint32(value);
                    if (reservations.FindByIPAddress(candidate) == ReservationTable::NONE &&
                        !leases.HasActiveLease(candidate, now)) {
                        expected = value;
                    }
                }
                ASSERT_EQ(index.LowestUntaken(first, last), expected) << "step " << step;
            }
        }
    }
}

// Renewals leave stale entries in the index's queue of due rechecks; once
// they pile up the queue is rebuilt, and every lease must still be handed
// back in the very second it expires: those renewed again and again, and
// those granted once before all the renewals.
TEST(AllocationIndexTest, FreeAddressIndexHandsBackEveryAddressOnTimeAfterManyRenewals)
{
    std::mt19937 random(9);
    LeaseTable leases;
    const ReservationTable reservations;
    FreeAddressIndex index;
    int64_t now = 1'700'000'000;
    constexpr uint32_t FIRST = 0x0A000000u;
    constexpr uint32_t COUNT = 64;
    const auto grant = [&](uint32_t offset, int32_t duration) {
        const IPv4Address address = IPv4Address::FromUint32(FIRST + offset);
        leases.EraseFirstByIPAddress(address);
        leases.Append(Lease(Client(1), address, duration, now));
        index.Refresh(address.ToUint32(), leases, reservations, now);
    };
    index.Update(leases, reservations, now);
    for (uint32_t offset = COUNT / 2; offset < COUNT; ++offset) {
        grant(offset, 1000 + Pick(random, 100));
    }
    for (int renewal = 0; renewal < 5'000; ++renewal) {
        grant(static_cast<uint32_t>(Pick(random, COUNT / 2)), 600 + Pick(random, 100));
        now += Pick(random, 10) == 0 ? 1 : 0;
    }
    for (int second = 0; second < 1'200; ++second, ++now) {
        index.Update(leases, reservations, now);
        for (uint32_t value = FIRST; value < FIRST + COUNT; ++value) {
            const bool taken = leases.HasActiveLease(IPv4Address::FromUint32(value), now);
            ASSERT_EQ(index.LowestUntaken(value, value).has_value(), !taken)
                << "second " << second << ", address " << value - FIRST;
        }
    }
}
