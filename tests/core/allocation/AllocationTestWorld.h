#pragma once

#include "allocation/AddressManager.h"
#include "config/Settings.h"
#include "engine/TransactionManager.h"
#include "foundation/AppException.h"
#include "foundation/HardwareAddress.h"
#include "foundation/IPv4Address.h"
#include "support/ManualClock.h"
#include "support/RaisedCode.h"

#include <algorithm>
#include <string>
#include <vector>

// The objects around one AddressManager, wired as the server wires them, on a
// clock that the test moves. The default pool is 192.168.1.240-254 /24.
struct AllocationWorld {
    ManualClock clock;
    Settings settings;
    TransactionManager transactions{&clock};
    AddressManager addresses{&settings, &transactions, &clock};

    AllocationWorld() { settings.SetAddressManager(&addresses); }
};

// An Ethernet address 02:00:00:00:hi:lo for client `number`.
inline HardwareAddress Client(int number, uint32_t type = HardwareAddress::Ethernet10Mb)
{
    const uint8_t bytes[6] = {2, 0, 0, 0, static_cast<uint8_t>(number >> 8), static_cast<uint8_t>(number)};
    return HardwareAddress(bytes, 6, type);
}

inline IPv4Address Address(const char* text)
{
    return IPv4Address(std::string(text));
}

// Rows compare by every field, start time included.
inline bool SameRows(const std::vector<Lease>& a, const std::vector<Lease>& b)
{
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](const Lease& x, const Lease& y) {
        return x.GetHardwareAddress() == y.GetHardwareAddress() && x.GetIPAddress() == y.GetIPAddress() &&
               x.GetDuration() == y.GetDuration() && x.GetStartTime() == y.GetStartTime();
    });
}
