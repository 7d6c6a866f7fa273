#pragma once

#include <cstddef>
#include <cstdint>

// Unsigned integers as the lease file and the lease journal store them: the
// least significant byte first, at any alignment. `size` is 1 to 8 bytes.
class LittleEndian {
public:
    // Writes the low `size` bytes of `value` at `out`; returns out + size.
    static uint8_t* Put(uint8_t* out, uint64_t value, size_t size)
    {
        for (size_t i = 0; i < size; ++i) {
            *out++ = static_cast<uint8_t>(value >> (8 * i));
        }
        return out;
    }

    static uint64_t Get(const uint8_t* data, size_t size)
    {
        uint64_t value = 0;
        for (size_t i = size; i-- > 0;) {
            value = value << 8 | data[i];
        }
        return value;
    }
    static uint32_t Get32(const uint8_t* data) { return static_cast<uint32_t>(Get(data, 4)); }
    static uint64_t Get64(const uint8_t* data) { return Get(data, 8); }
};
