// Arbitrary bytes as a lease file: UnserializeLeases must either refuse them
// whole, with the table untouched, or replace the table with exactly the rows
// the bytes hold; and the table it builds must stay usable.
#include "allocation/AddressManager.h"
#include "allocation/Lease.h"
#include "config/Settings.h"
#include "engine/TransactionManager.h"
#include "foundation/AppException.h"
#include "foundation/Serializable.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace {

class FixedClock : public Clock {
public:
    int64_t Now() const override { return 1'700'000'000; }
};

void Require(bool condition, const char* what)
{
    if (!condition) {
        std::fprintf(stderr, "LeaseFileFuzzer: %s\n", what);
        std::abort();
    }
}

bool SameRows(const std::vector<Lease>& a, const std::vector<Lease>& b)
{
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](const Lease& x, const Lease& y) {
        return x.GetHardwareAddress() == y.GetHardwareAddress() && x.GetIPAddress() == y.GetIPAddress() &&
               x.GetDuration() == y.GetDuration() && x.GetStartTime() == y.GetStartTime();
    });
}

// What the bytes hold, decoded independently row by row; false when any part is refused.
bool DecodeRows(const ByteString& data, std::vector<Lease>& rows)
{
    try {
        for (const ByteString& item : Serializable::UnserializeGroup(data)) {
            rows.emplace_back(item);
        }
        return true;
    } catch (const AppException&) {
        return false;
    }
}

struct World {
    FixedClock clock;
    Settings settings;
    TransactionManager transactions{&clock};
    AddressManager addresses{&settings, &transactions, &clock};
    ByteString reference;

    World()
    {
        settings.SetAddressManager(&addresses);
        addresses.AddLease(HardwareAddress(std::string("00:11:22:33:44:55")), IPv4Address(192, 168, 1, 240), 3600);
        addresses.AddLease(HardwareAddress(std::string("00:11:22:33:44:66")), IPv4Address(192, 168, 1, 241), 60);
        reference = addresses.SerializeLeases();
    }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static World world;
    AddressManager& addresses = world.addresses;
    addresses.UnserializeLeases(world.reference);
    const std::vector<Lease> before = addresses.GetLeases();

    const ByteString input(data, data + size);
    std::vector<Lease> expected;
    const bool decodable = DecodeRows(input, expected);
    try {
        addresses.UnserializeLeases(input);
    } catch (const AppException&) {
        Require(!decodable, "refused bytes that decode");
        Require(SameRows(addresses.GetLeases(), before), "a refused file changed the table");
        return 0;
    }
    Require(decodable, "accepted bytes that do not decode");
    Require(SameRows(addresses.GetLeases(), expected), "the table is not the rows of the file");
    addresses.UnserializeLeases(addresses.SerializeLeases());
    Require(SameRows(addresses.GetLeases(), expected), "the table does not survive a round trip");

    // Every lookup must agree with the rows, also with several rows on one
    // address; then the rows are removed one address at a time.
    for (size_t i = 0; i < expected.size(); ++i) {
        const int first = addresses.FindLeaseIndex(expected[i].GetHardwareAddress());
        Require(first >= 0 && static_cast<size_t>(first) <= i &&
                    expected[static_cast<size_t>(first)].GetHardwareAddress() == expected[i].GetHardwareAddress(),
                "FindLeaseIndex disagrees with the rows");
        addresses.IsAddressAvailable(expected[i].GetIPAddress());
    }
    size_t remaining = expected.size();
    for (const Lease& row : expected) {
        addresses.ReleaseLease(row.GetIPAddress());
        addresses.RemoveLease(row.GetIPAddress());
        Require(addresses.GetLeaseCount() == --remaining, "RemoveLease did not remove exactly one row");
    }
    return 0;
}
