#pragma once

#include "foundation/Clock.h"

#include <atomic>
#include <cstdint>

// A clock that moves only when a test moves it. Safe to read from another
// thread while the test sets it.
class ManualClock : public Clock {
public:
    explicit ManualClock(int64_t start = 1'700'000'000) : now(start) {}

    int64_t Now() const override { return now.load(); }
    void Set(int64_t value) { now.store(value); }
    void Advance(int64_t seconds) { now.fetch_add(seconds); }

private:
    std::atomic<int64_t> now;
};
