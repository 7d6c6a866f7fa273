#pragma once

#include "foundation/HardwareAddress.h"

#include <cstdint>

// The Ethernet address of the benches' client `number`: 02:20: and the
// number's four bytes, most significant first. Locally administered, so it is
// nobody's real card.
inline HardwareAddress ClientNumber(uint32_t number)
{
    const uint8_t bytes[6] = {0x02, 0x20, static_cast<uint8_t>(number >> 24), static_cast<uint8_t>(number >> 16),
                              static_cast<uint8_t>(number >> 8), static_cast<uint8_t>(number)};
    return HardwareAddress(bytes, 6, HardwareAddress::Ethernet10Mb);
}
