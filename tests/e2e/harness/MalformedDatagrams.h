#pragma once

#include "foundation/ByteString.h"

#include <cstdint>
#include <random>

// Datagrams that no client would send and that the server must drop without
// a trace: random bytes, cut headers, wrong cookies, option lengths past the
// end, impossible header values, and well-formed messages without anything
// to act on (no option 53, a type the server never handles, no identity).
class MalformedDatagrams {
public:
    static constexpr int KIND_COUNT = 10;

    explicit MalformedDatagrams(uint32_t seed) : random(seed) {}

    // Kind `index % KIND_COUNT`, with random details.
    ByteString Make(uint32_t index);

private:
    ByteString ValidDiscover();
    uint32_t Below(uint32_t limit) { return std::uniform_int_distribution<uint32_t>(0, limit - 1)(random); }

    std::mt19937 random;
};
