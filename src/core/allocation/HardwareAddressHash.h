#pragma once

#include "foundation/HardwareAddress.h"

#include <cstddef>
#include <cstdint>

// Hashes exactly what HardwareAddress::operator== compares: type, length and
// the address bytes (FNV-1a).
struct HardwareAddressHash {
    size_t operator()(const HardwareAddress& address) const
    {
        uint64_t hash = 14695981039346656037ull;
        const auto mix = [&hash](uint8_t byte) {
            hash ^= byte;
            hash *= 1099511628211ull;
        };
        const uint32_t type = address.GetType();
        for (int i = 0; i < 4; ++i) {
            mix(static_cast<uint8_t>(type >> (8 * i)));
        }
        mix(address.GetLength());
        for (size_t i = 0; i < address.GetLength(); ++i) {
            mix(address.GetBytes()[i]);
        }
        return static_cast<size_t>(hash);
    }
};
