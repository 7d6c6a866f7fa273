#pragma once

#include "foundation/HardwareAddress.h"

#include <cstdint>
#include <vector>

// A MAC address 02:00:xx:xx:xx:xx made from a number, for many clients. Tests
// that name clients by a letter use its code: client 'A' is 02:00:00:00:00:41.
inline std::vector<uint8_t> TestMac(uint32_t number)
{
    return {0x02, 0x00, static_cast<uint8_t>(number >> 24), static_cast<uint8_t>(number >> 16),
            static_cast<uint8_t>(number >> 8), static_cast<uint8_t>(number)};
}

inline HardwareAddress TestHardware(uint32_t number, uint32_t type = HardwareAddress::Ethernet10Mb)
{
    return HardwareAddress(TestMac(number).data(), 6, type);
}
