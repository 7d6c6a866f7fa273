#include "AllocationTestWorld.h"

#include <gtest/gtest.h>

namespace {

AddressReservation Row(int client, const char* address, uint32_t type = HardwareAddress::Ethernet10Mb)
{
    return AddressReservation(Client(client, type), Address(address));
}

std::vector<std::pair<HardwareAddress, IPv4Address>> Table(const AddressManager& addresses)
{
    std::vector<std::pair<HardwareAddress, IPv4Address>> rows;
    for (size_t i = 0; i < addresses.GetReservationCount(); ++i) {
        const AddressReservation row = addresses.GetReservation(i);
        rows.emplace_back(row.GetHardwareAddress(), row.GetIPAddress());
    }
    return rows;
}

int32_t CodeOfAdding(AllocationWorld& world, const AddressReservation& row)
{
    return CodeRaisedBy([&] { world.addresses.AddReservation(row); });
}

} // namespace

TEST(ReservationTest, SubnetIsCheckedFirstAndPoolRangeNotAtAll)
{
    AllocationWorld world;
    world.addresses.AddReservation(Row(1, "192.168.1.5")); // outside the range, inside the subnet
    world.addresses.AddReservation(Row(2, "192.168.1.0"));
    world.addresses.AddReservation(Row(3, "192.168.1.255"));
    EXPECT_EQ(world.addresses.GetReservationCount(), 3u);

    const auto before = Table(world.addresses);
    EXPECT_EQ(CodeOfAdding(world, Row(4, "192.168.2.5")), AppException::ReservationOutsidePoolSubnet);
    // Also when the hardware or IP address already has a row: 23 comes first.
    EXPECT_EQ(CodeOfAdding(world, Row(1, "192.168.2.5")), AppException::ReservationOutsidePoolSubnet);
    EXPECT_EQ(CodeRaisedBy([&] { world.addresses.ReplaceReservation(0, Row(2, "10.0.0.1")); }),
              AppException::ReservationOutsidePoolSubnet);
    EXPECT_EQ(Table(world.addresses), before);

    // The subnet follows the pool's mask.
    world.settings.SetSubnetMask(16);
    world.addresses.AddReservation(Row(4, "192.168.2.5"));
    EXPECT_EQ(world.addresses.GetReservationCount(), 4u);
}

TEST(ReservationTest, ClashesAreReportedByTheEarliestRowHardwareFirst)
{
    AllocationWorld world;
    world.addresses.AddReservation(Row(1, "192.168.1.10")); // row A: x, address 1
    world.addresses.AddReservation(Row(2, "192.168.1.20")); // row B: y, address 2
    const auto before = Table(world.addresses);

    EXPECT_EQ(CodeOfAdding(world, Row(1, "192.168.1.30")), AppException::HardwareAddressAlreadyReserved);
    EXPECT_EQ(CodeOfAdding(world, Row(3, "192.168.1.20")), AppException::IPAddressAlreadyReserved);
    // y with address 1 clashes with A by IP and with B by hardware: A is first.
    EXPECT_EQ(CodeOfAdding(world, Row(2, "192.168.1.10")), AppException::IPAddressAlreadyReserved);
    // x with address 2: A by hardware comes before B by IP.
    EXPECT_EQ(CodeOfAdding(world, Row(1, "192.168.1.20")), AppException::HardwareAddressAlreadyReserved);
    // Both clashes in one row: hardware is tested first.
    EXPECT_EQ(CodeOfAdding(world, Row(2, "192.168.1.20")), AppException::HardwareAddressAlreadyReserved);
    EXPECT_EQ(Table(world.addresses), before);

    // Equal bytes of another hardware type are another client.
    world.addresses.AddReservation(Row(1, "192.168.1.30", 6));
    EXPECT_EQ(world.addresses.GetReservationCount(), 3u);
    EXPECT_EQ(world.addresses.GetReservedAddress(Client(1, 6)), Address("192.168.1.30"));
    EXPECT_EQ(world.addresses.GetReservedAddress(Client(1)), Address("192.168.1.10"));
    EXPECT_EQ(world.addresses.GetReservedAddress(Client(9)), IPv4Address());
}

TEST(ReservationTest, ReplaceSkipsItsOwnRowAndKeepsItsPlace)
{
    AllocationWorld world;
    world.addresses.AddReservation(Row(1, "192.168.1.10"));
    world.addresses.AddReservation(Row(2, "192.168.1.20"));
    world.addresses.AddReservation(Row(3, "192.168.1.30"));

    world.addresses.ReplaceReservation(0, Row(1, "192.168.1.10")); // its own values
    world.addresses.ReplaceReservation(1, Row(2, "192.168.1.21")); // a new address for the same client
    world.addresses.ReplaceReservation(2, Row(4, "192.168.1.30")); // a new client on the same address
    const auto before = Table(world.addresses);
    EXPECT_EQ(before[1].second, Address("192.168.1.21"));
    EXPECT_EQ(before[2].first, Client(4));

    EXPECT_EQ(CodeRaisedBy([&] { world.addresses.ReplaceReservation(0, Row(1, "192.168.1.21")); }),
              AppException::IPAddressAlreadyReserved);
    EXPECT_EQ(CodeRaisedBy([&] { world.addresses.ReplaceReservation(0, Row(4, "192.168.1.10")); }),
              AppException::HardwareAddressAlreadyReserved);
    // Row 2 replaced by row 1's client on row 0's address: row 0 is first.
    EXPECT_EQ(CodeRaisedBy([&] { world.addresses.ReplaceReservation(2, Row(2, "192.168.1.10")); }),
              AppException::IPAddressAlreadyReserved);
    EXPECT_EQ(Table(world.addresses), before);

    // The old values of a replaced row are free for others afterwards.
    world.addresses.AddReservation(Row(3, "192.168.1.20"));
    EXPECT_EQ(world.addresses.GetReservedAddress(Client(2)), Address("192.168.1.21"));
    EXPECT_EQ(world.addresses.GetReservedAddress(Client(3)), Address("192.168.1.20"));
}

TEST(ReservationTest, RemoveClosesTheGapAndLeavesLeasesAlone)
{
    AllocationWorld world;
    world.addresses.AddReservation(Row(1, "192.168.1.241"));
    world.addresses.AddReservation(Row(2, "192.168.1.242"));
    world.addresses.AddReservation(Row(3, "192.168.1.243"));
    world.addresses.AddLease(Client(1), Address("192.168.1.241"), 60);

    world.addresses.RemoveReservation(0);
    const auto rows = Table(world.addresses);
    ASSERT_EQ(rows.size(), 2u);
    EXPECT_EQ(rows[0].first, Client(2));
    EXPECT_EQ(rows[1].first, Client(3));
    EXPECT_EQ(world.addresses.GetReservedAddress(Client(1)), IPv4Address());
    EXPECT_EQ(world.addresses.GetReservedAddress(Client(3)), Address("192.168.1.243"));
    EXPECT_TRUE(world.addresses.IsAddressLeasedTo(Client(1), Address("192.168.1.241")));

    // The removed row's keys can be used again; the index follows the shift.
    world.addresses.AddReservation(Row(1, "192.168.1.240"));
    EXPECT_EQ(CodeOfAdding(world, Row(5, "192.168.1.243")), AppException::IPAddressAlreadyReserved);
    world.addresses.RemoveReservation(1);
    world.addresses.AddReservation(Row(5, "192.168.1.243"));
    EXPECT_EQ(Table(world.addresses).back().first, Client(5));

    // The settings' defaults empty the table.
    world.settings.SetDefaults();
    EXPECT_EQ(world.addresses.GetReservationCount(), 0u);
    EXPECT_TRUE(world.addresses.IsAddressAvailable(Address("192.168.1.243")));
}
