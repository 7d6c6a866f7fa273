#include "AllocationTestWorld.h"

#include <gtest/gtest.h>

#include <atomic>
#include <set>
#include <thread>

namespace {

constexpr int ADDRESS_COUNT = 200;
constexpr int WRITER_ROUNDS = 500;

// Every row the writer makes is derived from its address, so a row mixed
// from two leases (hardware of one, address or duration of another) shows.
HardwareAddress ClientOf(int index)
{
    return Client(1000 + index);
}

IPv4Address AddressOf(int index)
{
    return IPv4Address(10, 0, static_cast<uint8_t>(index >> 8), static_cast<uint8_t>(index));
}

int32_t DurationOf(int index)
{
    return 100'000 + index;
}

// Empty when the snapshot is consistent, else what is wrong with it.
std::string ProblemOf(const std::vector<Lease>& rows)
{
    std::set<uint32_t> seen;
    for (const Lease& row : rows) {
        const uint32_t address = row.GetIPAddress().ToUint32();
        const int index = static_cast<int>(address & 0xFFFF);
        if (row.GetIPAddress() != AddressOf(index) || !(row.GetHardwareAddress() == ClientOf(index)) ||
            row.GetDuration() != DurationOf(index)) {
            return "torn row for " + row.GetIPAddress().ToString();
        }
        if (!seen.insert(address).second) {
            return "two rows for " + row.GetIPAddress().ToString();
        }
    }
    return {};
}

} // namespace

TEST(LeaseConcurrencyTest, ReaderSeesOnlyConsistentSnapshotsWhileTheWriterWorks)
{
    AllocationWorld world;
    std::atomic<bool> writing = true;
    std::atomic<int> writes = 0;

    std::thread writer([&] {
        for (int round = 0; round < WRITER_ROUNDS; ++round) {
            for (int i = 0; i < ADDRESS_COUNT; ++i) {
                const int index = (i * 7 + round) % ADDRESS_COUNT;
                world.addresses.AddLease(ClientOf(index), AddressOf(index), DurationOf(index));
                if (i % 3 == 0) {
                    world.addresses.RemoveLease(AddressOf((index + 11) % ADDRESS_COUNT));
                }
                if (i % 5 == 0) {
                    world.addresses.ReleaseLease(AddressOf((index + 17) % ADDRESS_COUNT));
                }
                writes.fetch_add(1);
            }
        }
        writing = false;
    });

    int snapshots = 0;
    std::string firstProblem;
    do {
        const size_t count = world.addresses.GetLeaseCount();
        const std::vector<Lease> rows = world.addresses.GetLeases();
        if (count > ADDRESS_COUNT || rows.size() > ADDRESS_COUNT) {
            firstProblem = "more rows than addresses";
        }
        if (firstProblem.empty()) {
            firstProblem = ProblemOf(rows);
        }
        ++snapshots;
    } while (writing.load() && firstProblem.empty());
    writer.join();

    EXPECT_EQ(firstProblem, "");
    EXPECT_EQ(writes.load(), WRITER_ROUNDS * ADDRESS_COUNT);
    EXPECT_GT(snapshots, 1);
    EXPECT_EQ(ProblemOf(world.addresses.GetLeases()), "");
}
