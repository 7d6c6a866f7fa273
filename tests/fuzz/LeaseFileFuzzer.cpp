// Arbitrary bytes as a lease file: UnserializeLeases must either refuse them
// whole, with the table untouched, or build a table that is written and read
// back unchanged and stays usable. (Which rows the bytes hold is pinned by the
// lease file tests; an oracle here would decode with the reader under test.)
#include "allocation/Lease.h"
#include "foundation/AppException.h"

#include "support/AllocationWorld.h"

#include <cstdio>
#include <cstdlib>
#include <vector>

namespace {

void Require(bool condition, const char* what)
{
    if (!condition) {
        std::fprintf(stderr, "LeaseFileFuzzer: %s\n", what);
        std::abort();
    }
}

struct World : AllocationWorld {
    ByteString reference;

    World()
    {
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

    try {
        addresses.UnserializeLeases(ByteString(data, data + size));
    } catch (const AppException&) {
        Require(SameRows(addresses.GetLeases(), before), "a refused file changed the table");
        return 0;
    }
    const std::vector<Lease> expected = addresses.GetLeases();
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
