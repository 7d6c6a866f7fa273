#pragma once

#include <cstddef>
#include <cstdint>

// CRC-32C (Castagnoli, reflected polynomial 0x82F63B78), the checksum of the
// lease journal's header and records. Extend continues a checksum over more
// bytes, so a file can be checked in pieces: Extend(Compute(a), b) equals the
// checksum of a followed by b.
class Crc32c {
public:
    static uint32_t Compute(const uint8_t* data, size_t size) { return Extend(0, data, size); }
    static uint32_t Extend(uint32_t crc, const uint8_t* data, size_t size);
};
