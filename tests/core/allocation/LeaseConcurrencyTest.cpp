#include "AllocationTestWorld.h"

#include <gtest/gtest.h>

#include <atomic>
#include <set>
#include <thread>

namespace {

constexpr int ADDRESS_COUNT = 200;

// Every row the writer makes follows from its address, so a row mixed from
// two leases (hardware of one, address or duration of another) shows.
Lease RowOf(int index)
{
    return Lease(Client(1000 + index), IPv4Address(10, 0, static_cast<uint8_t>(index >> 8), static_cast<uint8_t>(index)),
                 100'000 + index, 0);
}

// Empty when the copy is consistent, else what is wrong with it.
std::string ProblemOf(const std::vector<Lease>& rows)
{
    std::set<uint32_t> seen;
    for (const Lease& row : rows) {
        const Lease expected = RowOf(static_cast<int>(row.GetIPAddress().ToUint32() & 0xFFFF));
        if (row.GetIPAddress() != expected.GetIPAddress() || !(row.GetHardwareAddress() == expected.GetHardwareAddress()) ||
            row.GetDuration() != expected.GetDuration()) {
            return "torn row for " + row.GetIPAddress().ToString();
        }
        if (!seen.insert(row.GetIPAddress().ToUint32()).second || rows.size() > ADDRESS_COUNT) {
            return "two rows for " + row.GetIPAddress().ToString();
        }
    }
    return {};
}

} // namespace

// The receive thread writes the lease table while the live view copies it.
TEST(LeaseConcurrencyTest, ReaderSeesOnlyConsistentCopiesWhileTheWriterWorks)
{
    AllocationWorld world;
    std::atomic<bool> writing = true;
    std::thread writer([&] {
        for (int round = 0; round < 500; ++round) {
            for (int i = 0; i < ADDRESS_COUNT; ++i) {
                const int index = (i * 7 + round) % ADDRESS_COUNT;
                world.addresses.AddLease(RowOf(index).GetHardwareAddress(), RowOf(index).GetIPAddress(),
                                         RowOf(index).GetDuration());
                if (i % 3 == 0) {
                    world.addresses.RemoveLease(RowOf((index + 11) % ADDRESS_COUNT).GetIPAddress());
                }
                if (i % 5 == 0) {
                    world.addresses.ReleaseLease(RowOf((index + 17) % ADDRESS_COUNT).GetIPAddress());
                }
            }
        }
        writing = false;
    });
    int copies = 0;
    std::string firstProblem;
    for (; writing.load() && firstProblem.empty(); ++copies) {
        EXPECT_LE(world.addresses.GetLeaseCount(), size_t{ADDRESS_COUNT});
        firstProblem = ProblemOf(world.addresses.GetLeases());
    }
    writer.join();
    EXPECT_EQ(firstProblem, "");
    EXPECT_GT(copies, 1);
    EXPECT_EQ(ProblemOf(world.addresses.GetLeases()), "");
}
