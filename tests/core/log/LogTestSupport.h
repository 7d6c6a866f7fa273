#pragma once

#include "foundation/Clock.h"

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <optional>
#include <string>

// Time stamps are local time; a test that compares texts runs under UTC and
// gives the process its own zone back afterwards.
class UtcTimeZone {
public:
    UtcTimeZone()
    {
        if (const char* zone = std::getenv("TZ")) {
            previous = zone;
        }
        ::setenv("TZ", "UTC", 1);
        ::tzset();
    }
    ~UtcTimeZone()
    {
        if (previous) {
            ::setenv("TZ", previous->c_str(), 1);
        } else {
            ::unsetenv("TZ");
        }
        ::tzset();
    }
    UtcTimeZone(const UtcTimeZone&) = delete;
    UtcTimeZone& operator=(const UtcTimeZone&) = delete;

private:
    std::optional<std::string> previous;
};

// A clock that stands still unless the test moves it.
class FixedClock : public Clock {
public:
    explicit FixedClock(int64_t now) : now(now) {}
    int64_t Now() const override { return now.load(); }
    void Set(int64_t value) { now.store(value); }

private:
    std::atomic<int64_t> now;
};

// 2024-05-01 12:34:56 UTC.
constexpr int64_t MAY_FIRST_2024_123456 = 1714566896;
