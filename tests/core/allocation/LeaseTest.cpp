#include "AllocationTestWorld.h"

#include <gtest/gtest.h>

#include <climits>

// The remaining time is startTime + duration - now in wrapping 32-bit
// arithmetic, and a lease expires only below 0.
TEST(LeaseTest, RemainingTimeCountsDownAndExpiresOnlyBelowZero)
{
    constexpr int64_t NOW = 1'700'000'000;
    constexpr int64_t LATE = INT32_MAX - 10; // start + duration passes 2^31
    const struct {
        const char* name;
        int32_t duration;
        int64_t start;
        int64_t now;
        int32_t remaining;
    } cases[] = {
        {"fresh", 3600, NOW, NOW, 3600},
        {"last second", 3600, NOW, NOW + 3600, 0},
        {"just expired", 3600, NOW, NOW + 3601, -1},
        {"clock turned back", 3600, NOW, NOW - 100, 3700},
        {"duration 0, same second", 0, NOW, NOW, 0},
        {"duration 0, a second on", 0, NOW, NOW + 1, -1},
        {"past 2^31", 2'000'000'000, LATE, LATE + 1000, 1'999'999'000},
        {"past 2^31, last second", 2'000'000'000, LATE, LATE + 2'000'000'000, 0},
    };
    for (const auto& [name, duration, start, now, remaining] : cases) {
        const Lease lease(Client(1), Address("192.168.1.240"), duration, start);
        EXPECT_EQ(lease.GetRemainingTime(now), remaining) << name;
        EXPECT_EQ(lease.IsExpired(now), remaining < 0) << name;
    }

    // Expire leaves -1 at once and keeps the duration.
    for (const int32_t duration : {0, 1, 3600, INT32_MAX - 1}) {
        Lease lease(Client(7), Address("192.168.1.241"), duration, NOW);
        lease.Expire(NOW + 5);
        EXPECT_EQ(lease.GetRemainingTime(NOW + 5), -1) << duration;
        EXPECT_EQ(lease.GetDuration(), duration);
    }
}
