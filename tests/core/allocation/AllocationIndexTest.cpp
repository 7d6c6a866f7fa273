// The structures behind the address choice, held against plain models over
// random runs (fixed seeds). Some faults in them change no answer of the
// manager, which confirms every candidate with the exact test, but they make
// the choice slow again: an address wrongly named untaken, a recheck lost or
// due too late. The differential test cannot see those; these checks can.
#include "AllocationTestWorld.h"

#include "allocation/FreeAddressIndex.h"
#include "allocation/LeaseTable.h"
#include "allocation/ReservationTable.h"

#include <gtest/gtest.h>

#include <random>

namespace {

constexpr int64_t WRAP = int64_t{1} << 31;

} // namespace

// Every lease kind must name, as its next state change, exactly the first
// second at which it answers otherwise: earlier costs rechecks, later loses one.
TEST(AllocationIndexTest, NextStateChangeIsTheFirstSecondWithTheOtherAnswer)
{
    const int64_t now = 1'700'000'000;
    const struct {
        const char* name;
        Lease lease;
        int64_t next;
    } cases[] = {
        {"active", Lease(Client(1), Address("10.0.0.1"), 3600, now), now + 3601},
        {"duration 0", Lease(Client(1), Address("10.0.0.1"), 0, now), now + 1},
        {"expired", Lease(Client(1), Address("10.0.0.1"), 60, now - 61), now - 1 + WRAP + 1},
        {"future start", Lease(Client(1), Address("10.0.0.1"), 10, now + 500), now + 511},
        {"about to wrap", Lease(Client(1), Address("10.0.0.1"), 5, now - 5 - WRAP + 3), now + 4},
        {"longest", Lease(Client(1), Address("10.0.0.1"), 2'147'483'646, now), now + 2'147'483'647},
        {"negative", Lease(Client(1), Address("10.0.0.1"), -100, now), now - 100 + WRAP + 1},
    };
    for (const auto& [name, lease, next] : cases) {
        EXPECT_EQ(lease.GetNextStateChange(now), next) << name;
        EXPECT_EQ(lease.IsExpired(next - 1), lease.IsExpired(now)) << name;
        EXPECT_NE(lease.IsExpired(next), lease.IsExpired(now)) << name;
    }
}

// The index must name exactly the addresses that are reserved or hold a row
// not expired, whatever happened since it was built: not one more (the
// manager would skip a free address) and not one less (it would offer a taken
// one to the exact test, only slower). A second phase piles up renewals, whose
// stale queue entries get dropped, and wants every lease back in the very
// second it expires. The addresses are the last 80 of the number range, so
// that the runs of taken addresses reach its very end.
TEST(AllocationIndexTest, FreeAddressIndexKnowsExactlyWhatIsTakenAsTimeMoves)
{
    std::mt19937 random(3);
    const auto pick = [&](int count) { return std::uniform_int_distribution<int>(0, count - 1)(random); };
    LeaseTable leases;
    ReservationTable reservations;
    FreeAddressIndex index;
    int64_t now = 1'700'000'000;
    constexpr uint32_t FIRST = 0xFFFFFFFFu - 79;
    // From each address up to the end of the range, the lowest untaken one:
    // this pins down the whole set.
    const auto checkAll = [&](const std::string& where) {
        index.Update(leases, reservations, now);
        std::optional<uint32_t> lowest;
        for (uint32_t value = 0xFFFFFFFFu; value >= FIRST; --value) {
            const IPv4Address address = IPv4Address::FromUint32(value);
            if (reservations.FindByIPAddress(address) == ReservationTable::NONE && !leases.HasActiveLease(address, now)) {
                lowest = value;
            }
            ASSERT_EQ(index.LowestUntaken(value, 0xFFFFFFFFu), lowest) << where << ", address " << value - FIRST;
            int64_t next = LeaseTable::NEVER;
            for (const Lease& row : leases.Rows()) {
                next = row.GetIPAddress() == address ? std::min(next, row.GetNextStateChange(now)) : next;
            }
            ASSERT_EQ(leases.NextStateChange(address, now), next) << where << ", address " << value - FIRST;
        }
    };
    const auto grant = [&](uint32_t offset, int32_t duration, int64_t start, bool replace) {
        const IPv4Address address = IPv4Address::FromUint32(FIRST + offset);
        if (replace) {
            leases.EraseFirstByIPAddress(address); // otherwise a second row, as from a file
        }
        leases.Append(Lease(Client(static_cast<int>(offset)), address, duration, start));
        index.Refresh(address.ToUint32(), leases, reservations, now);
    };
    for (int step = 0; step < 20'000 && !HasFailure(); ++step) {
        const uint32_t offset = static_cast<uint32_t>(pick(80));
        const IPv4Address address = IPv4Address::FromUint32(FIRST + offset);
        const int kind = pick(100);
        if (kind < 18) {
            const int32_t duration = std::array<int32_t, 8>{0, 1, 2, 5, 30, 600, 2'147'483'646, -3}[pick(8)];
            // Sometimes a row about to wrap round to active.
            grant(offset, duration, pick(10) == 0 ? now - duration - WRAP + pick(5) : now - pick(60), pick(2) == 0);
        } else if (kind < 26) {
            leases.EraseFirstByIPAddress(address);
        } else if (kind < 32) {
            leases.ExpireFirstByIPAddress(address, now);
        } else if (kind < 36) {
            const HardwareAddress owner = Client(500 + static_cast<int>(offset));
            if (const size_t row = reservations.FindByIPAddress(address); row != ReservationTable::NONE) {
                reservations.Remove(row);
            } else if (reservations.FindByHardwareAddress(owner) == ReservationTable::NONE) {
                reservations.Append(AddressReservation(owner, address));
            }
        } else if (kind < 66) {
            now += std::array<int64_t, 14>{0, 1, 1, 2, 3, 7, 30, 600, -1, -2, -5, -30, WRAP - 1, WRAP}[pick(14)];
        } else if (kind < 68) {
            index.Invalidate();
        } else if (kind < 72) {
            checkAll("step " + std::to_string(step));
        }
        if (kind >= 18 && kind < 36) {
            index.Refresh(address.ToUint32(), leases, reservations, now);
        }
    }

    leases.Assign({});
    reservations = ReservationTable();
    index.Invalidate();
    index.Update(leases, reservations, now);
    for (uint32_t offset = 40; offset < 80; ++offset) {
        grant(offset, 1000 + pick(100), now, true); // granted once, before all the renewals
    }
    for (int renewal = 0; renewal < 5'000; ++renewal) {
        grant(static_cast<uint32_t>(pick(40)), 600 + pick(100), now, true);
        now += pick(10) == 0 ? 1 : 0;
    }
    for (int second = 0; second < 1'200 && !HasFailure(); ++second, ++now) {
        checkAll("second " + std::to_string(second));
    }
}
