#include "support/AllocationWorld.h"
#include "support/RaisedCode.h"
#include "support/TestHardware.h"

#include <gtest/gtest.h>

#include <atomic>
#include <set>
#include <thread>

// The receive thread writes the lease table while the live view copies it.
// Every row the writer makes follows from its address, so a row mixed from
// two leases, or a second row for one address, shows in a copy.
TEST(LeaseConcurrencyTest, ReaderSeesOnlyConsistentCopiesWhileTheWriterWorks)
{
    constexpr int ADDRESS_COUNT = 200;
    const auto rowOf = [](int index) {
        const IPv4Address address = IPv4Address::FromUint32((10u << 24) + static_cast<uint32_t>(index));
        return Lease(TestHardware(1000 + index), address, 100'000 + index, 0);
    };
    AllocationWorld world;
    std::atomic<bool> writing = true;
    std::thread writer([&] {
        for (int round = 0; round < 500; ++round) {
            for (int i = 0; i < ADDRESS_COUNT; ++i) {
                const int index = (i * 7 + round) % ADDRESS_COUNT;
                world.addresses.AddLease(rowOf(index).GetHardwareAddress(), rowOf(index).GetIPAddress(),
                                         rowOf(index).GetDuration());
                if (i % 3 == 0) {
                    world.addresses.RemoveLease(rowOf((index + 11) % ADDRESS_COUNT).GetIPAddress());
                }
                if (i % 5 == 0) {
                    world.addresses.ReleaseLease(rowOf((index + 17) % ADDRESS_COUNT).GetIPAddress());
                }
            }
        }
        writing = false;
    });
    int copies = 0;
    bool consistent = true;
    for (; writing.load() && consistent; ++copies) {
        std::set<uint32_t> seen;
        for (const Lease& row : world.addresses.GetLeases()) {
            const Lease expected = rowOf(static_cast<int>(row.GetIPAddress().ToUint32() & 0xFFFF));
            consistent = consistent && row.GetHardwareAddress() == expected.GetHardwareAddress() &&
                         row.GetDuration() == expected.GetDuration() && seen.insert(row.GetIPAddress().ToUint32()).second;
        }
        EXPECT_LE(world.addresses.GetLeaseCount(), size_t{ADDRESS_COUNT});
    }
    writer.join();
    EXPECT_TRUE(consistent) << "after " << copies << " copies";
    EXPECT_GT(copies, 1);
}
