#include "support/AllocationWorld.h"
#include "support/RaisedCode.h"
#include "support/TestHardware.h"

#include <gtest/gtest.h>

#include <climits>

// The remaining time is startTime + duration - now in wrapping 32-bit
// arithmetic, and a lease expires only below 0. The next state change is the
// first second with the other answer: the index of free addresses rechecks
// the address then, so earlier costs work and later loses a change.
TEST(LeaseTest, RemainingTimeExpiresOnlyBelowZeroAndNamesItsNextChange)
{
    constexpr int64_t NOW = 1'700'000'000;
    constexpr int64_t LATE = INT32_MAX - 10; // start + duration passes 2^31
    constexpr int64_t WRAP = int64_t{1} << 31;
    const struct {
        const char* name;
        int32_t duration;
        int64_t start;
        int64_t now;
        int32_t remaining;
        int64_t next;
    } cases[] = {
        {"fresh", 3600, NOW, NOW, 3600, NOW + 3601},
        {"last second", 3600, NOW, NOW + 3600, 0, NOW + 3601},
        {"just expired", 3600, NOW, NOW + 3601, -1, NOW + 3601 - 1 + WRAP + 1},
        {"clock turned back", 3600, NOW, NOW - 100, 3700, NOW + 3601},
        {"duration 0, same second", 0, NOW, NOW, 0, NOW + 1},
        {"duration 0, a second on", 0, NOW, NOW + 1, -1, NOW + WRAP + 1},
        {"past 2^31", 2'000'000'000, LATE, LATE + 1000, 1'999'999'000, LATE + 2'000'000'001},
        {"past 2^31, last second", 2'000'000'000, LATE, LATE + 2'000'000'000, 0, LATE + 2'000'000'001},
        {"negative duration", -100, NOW, NOW, -100, NOW - 100 + WRAP + 1},
        {"about to wrap round to active", 5, NOW - 5 - WRAP + 3, NOW, INT32_MIN + 3, NOW + 4},
    };
    for (const auto& [name, duration, start, now, remaining, next] : cases) {
        const Lease lease(TestHardware(1), Address("192.168.1.240"), duration, start);
        EXPECT_EQ(lease.GetRemainingTime(now), remaining) << name;
        EXPECT_EQ(lease.IsExpired(now), remaining < 0) << name;
        EXPECT_EQ(lease.GetNextStateChange(now), next) << name;
        EXPECT_EQ(lease.IsExpired(next - 1), lease.IsExpired(now)) << name;
        EXPECT_NE(lease.IsExpired(next), lease.IsExpired(now)) << name;
    }

    // Expire leaves -1 at once and keeps the duration.
    for (const int32_t duration : {0, 1, 3600, INT32_MAX - 1}) {
        Lease lease(TestHardware(7), Address("192.168.1.241"), duration, NOW);
        lease.Expire(NOW + 5);
        EXPECT_EQ(lease.GetRemainingTime(NOW + 5), -1) << duration;
        EXPECT_EQ(lease.GetDuration(), duration);
    }
}
