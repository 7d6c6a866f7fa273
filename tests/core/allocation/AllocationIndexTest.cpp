#include "support/AllocationWorld.h"
#include "support/RaisedCode.h"
#include "support/TestHardware.h"

#include "allocation/FreeAddressIndex.h"
#include "allocation/LeaseTable.h"
#include "allocation/ReservationTable.h"

#include <gtest/gtest.h>

#include <array>
#include <optional>
#include <random>

// The index must name exactly the reserved addresses and those with a row not
// expired. One too many makes the manager skip a free address, which the
// differential test sees; one too few only costs the exact test some work and
// changes no answer, so the index itself is held against the tables here. The
// addresses are the last 80 of the number range, so that runs reach its end.
TEST(AllocationIndexTest, FreeAddressIndexKnowsExactlyWhatIsTakenAsTimeMoves)
{
    constexpr int64_t WRAP = int64_t{1} << 31;
    constexpr uint32_t FIRST = 0xFFFFFFFFu - 79;
    std::mt19937 random(3);
    const auto pick = [&](int count) { return std::uniform_int_distribution<int>(0, count - 1)(random); };
    LeaseTable leases;
    ReservationTable reservations;
    FreeAddressIndex index;
    int64_t now = 1'700'000'000;
    // From each address up to the end of the range, the lowest untaken one:
    // that pins down the whole set.
    const auto check = [&](int step) {
        index.Update(leases, reservations, now);
        std::optional<uint32_t> lowest;
        for (uint32_t value = 0xFFFFFFFFu; value >= FIRST; --value) {
            const IPv4Address address = IPv4Address::FromUint32(value);
            if (reservations.FindByIPAddress(address) == ReservationTable::NONE && !leases.HasActiveLease(address, now)) {
                lowest = value;
            }
            ASSERT_EQ(index.LowestUntaken(value, 0xFFFFFFFFu), lowest) << "step " << step << ", address " << value - FIRST;
        }
    };
    const auto grant = [&](const IPv4Address& address, int32_t duration, int64_t start) {
        leases.Append(Lease(TestHardware(pick(80)), address, duration, start));
        index.Refresh(address.ToUint32(), leases, reservations, now);
    };
    for (int step = 0; step < 10'000 && !HasFailure(); ++step) {
        const uint32_t value = FIRST + static_cast<uint32_t>(pick(80));
        const IPv4Address address = IPv4Address::FromUint32(value);
        const int kind = pick(100);
        if (kind < 40) { // sometimes a second row on the address, or one about to wrap round to active
            const int32_t duration = std::array<int32_t, 8>{0, 1, 2, 5, 30, 600, 2'147'483'646, -3}[pick(8)];
            if (pick(2) == 0) {
                leases.EraseFirstByIPAddress(address);
            }
            grant(address, duration, pick(10) == 0 ? now - duration - WRAP + pick(5) : now - pick(60));
        } else if (kind < 48) {
            leases.EraseFirstByIPAddress(address);
        } else if (kind < 54) {
            leases.ExpireFirstByIPAddress(address, now);
        } else if (kind < 58) {
            const size_t row = reservations.FindByIPAddress(address);
            row != ReservationTable::NONE ? reservations.Remove(row)
                                          : reservations.Append(AddressReservation(TestHardware(static_cast<int>(value)), address));
        } else if (kind < 88) {
            now += std::array<int64_t, 14>{0, 1, 1, 2, 3, 7, 30, 600, -1, -2, -5, -30, WRAP - 1, WRAP}[pick(14)];
        } else if (kind < 90) {
            index.Invalidate();
        } else if (kind < 99) {
            check(step);
        } else { // renewals by the thousand leave stale recheck times; then every second until all have expired
            index.Update(leases, reservations, now);
            for (int renewal = 0; renewal < 1500; ++renewal, now += pick(10) == 0 ? 1 : 0) {
                const IPv4Address renewed = IPv4Address::FromUint32(FIRST + static_cast<uint32_t>(pick(80)));
                leases.EraseFirstByIPAddress(renewed);
                grant(renewed, pick(30), now);
            }
            for (int second = 0; second < 32; ++second, ++now) {
                check(step);
            }
        }
        if (kind < 58) {
            index.Refresh(value, leases, reservations, now);
        }
    }
}
