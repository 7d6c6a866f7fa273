#pragma once

#include "allocation/AddressManager.h"
#include "config/Settings.h"
#include "engine/TransactionManager.h"
#include "foundation/IPv4Address.h"
#include "support/ManualClock.h"

#include <algorithm>
#include <string>
#include <vector>

// Settings, transactions and one AddressManager wired as the server wires
// them, on a clock that the test moves; for tests and fuzzers alike. The
// manager reads "leases.dat" of the working directory when it is made.
struct AllocationWorld {
    ManualClock clock;
    Settings settings;
    TransactionManager transactions{&clock};
    AddressManager addresses{&settings, &transactions, &clock};

    AllocationWorld() { settings.SetAddressManager(&addresses); }
};

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
