#pragma once

#include <cstdint>
#include <ctime>

// Whole seconds since 1970-01-01 UTC, as time() gives them. The engine asks a
// Clock instead of calling time() so that tests can move time without sleeping.
class Clock {
public:
    virtual ~Clock() = default;
    virtual int64_t Now() const { return static_cast<int64_t>(std::time(nullptr)); }
};
