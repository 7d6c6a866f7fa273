#include "AllocationTestWorld.h"

#include <gtest/gtest.h>

namespace {

AddressReservation Row(int client, const char* address, uint32_t type = HardwareAddress::Ethernet10Mb)
{
    return AddressReservation(Client(client, type), Address(address));
}

std::string Text(const AddressReservation& row)
{
    return row.GetHardwareAddress().ToString() + "=" + row.GetIPAddress().ToString() + " ";
}

// The table as text, row by row, so that order and contents compare at once.
std::string Table(const AddressManager& addresses)
{
    std::string text;
    for (size_t i = 0; i < addresses.GetReservationCount(); ++i) {
        text += Text(addresses.GetReservation(i));
    }
    return text;
}

} // namespace

// Codes 21 (hardware address taken), 22 (IP address taken) and 23 (outside
// the subnet): the subnet first, then the earliest clashing row, and within
// one row hardware before IP. A refused row leaves the table as it was.
TEST(ReservationTest, RefusedRowsGiveTheFirstClashAndLeaveTheTable)
{
    AllocationWorld world;
    world.addresses.AddReservation(Row(1, "192.168.1.10")); // row A: outside the pool range, inside the subnet
    world.addresses.AddReservation(Row(2, "192.168.1.20")); // row B
    world.addresses.AddReservation(Row(3, "192.168.1.255"));
    const std::string before = Table(world.addresses);
    constexpr int32_t HARDWARE = 21, IP = 22, SUBNET = 23;
    static_assert(HARDWARE == AppException::HardwareAddressAlreadyReserved && IP == AppException::IPAddressAlreadyReserved &&
                  SUBNET == AppException::ReservationOutsidePoolSubnet);
    const struct {
        const char* name;
        std::function<void()> change;
        int32_t code;
    } cases[] = {
        {"other subnet", [&] { world.addresses.AddReservation(Row(4, "192.168.2.5")); }, SUBNET},
        {"other subnet before a clash", [&] { world.addresses.AddReservation(Row(1, "192.168.2.5")); }, SUBNET},
        {"replace into another subnet", [&] { world.addresses.ReplaceReservation(0, Row(2, "10.0.0.1")); }, SUBNET},
        {"hardware of A", [&] { world.addresses.AddReservation(Row(1, "192.168.1.30")); }, HARDWARE},
        {"IP of B", [&] { world.addresses.AddReservation(Row(5, "192.168.1.20")); }, IP},
        {"IP of A before hardware of B", [&] { world.addresses.AddReservation(Row(2, "192.168.1.10")); }, IP},
        {"hardware of A before IP of B", [&] { world.addresses.AddReservation(Row(1, "192.168.1.20")); }, HARDWARE},
        {"both of B: hardware first", [&] { world.addresses.AddReservation(Row(2, "192.168.1.20")); }, HARDWARE},
        {"replace A with B's IP", [&] { world.addresses.ReplaceReservation(0, Row(1, "192.168.1.20")); }, IP},
        {"replace A with B's hardware", [&] { world.addresses.ReplaceReservation(0, Row(2, "192.168.1.10")); }, HARDWARE},
        {"replace row 2 with B's hardware, A's IP",
         [&] { world.addresses.ReplaceReservation(2, Row(2, "192.168.1.10")); }, IP},
    };
    for (const auto& [name, change, code] : cases) {
        EXPECT_EQ(CodeRaisedBy(change), code) << name;
        EXPECT_EQ(Table(world.addresses), before) << name;
    }

    // Equal bytes of another hardware type are another client.
    world.addresses.AddReservation(Row(1, "192.168.1.30", 6));
    EXPECT_EQ(world.addresses.GetReservedAddress(Client(1, 6)), Address("192.168.1.30"));
    EXPECT_EQ(world.addresses.GetReservedAddress(Client(1)), Address("192.168.1.10"));
    EXPECT_EQ(world.addresses.GetReservedAddress(Client(9)), IPv4Address());
    // The subnet follows the pool's mask.
    world.settings.SetSubnetMask(16);
    EXPECT_EQ(CodeRaisedBy([&] { world.addresses.AddReservation(Row(4, "192.168.2.5")); }), -1);
}

TEST(ReservationTest, ReplaceKeepsItsPlaceAndRemoveClosesTheGap)
{
    AllocationWorld world;
    world.addresses.AddReservation(Row(1, "192.168.1.241"));
    world.addresses.AddReservation(Row(2, "192.168.1.242"));
    world.addresses.AddReservation(Row(3, "192.168.1.243"));
    world.addresses.AddLease(Client(1), Address("192.168.1.241"), 60);

    world.addresses.ReplaceReservation(0, Row(1, "192.168.1.241")); // its own values clash with nothing
    world.addresses.ReplaceReservation(1, Row(2, "192.168.1.244")); // a new address for the same client
    world.addresses.ReplaceReservation(2, Row(4, "192.168.1.243")); // a new client on the same address
    // The old values of a replaced row are free for others.
    world.addresses.AddReservation(Row(3, "192.168.1.242"));
    EXPECT_EQ(Table(world.addresses), Text(Row(1, "192.168.1.241")) + Text(Row(2, "192.168.1.244")) +
                                          Text(Row(4, "192.168.1.243")) + Text(Row(3, "192.168.1.242")));

    // Remove closes the gap, leaves the leases alone, and the index follows
    // the shift: the removed keys are free, the moved ones still taken.
    world.addresses.RemoveReservation(0);
    EXPECT_EQ(world.addresses.GetReservation(0).GetHardwareAddress(), Client(2));
    EXPECT_EQ(world.addresses.GetReservedAddress(Client(1)), IPv4Address());
    EXPECT_EQ(world.addresses.GetReservedAddress(Client(3)), Address("192.168.1.242"));
    EXPECT_TRUE(world.addresses.IsAddressLeasedTo(Client(1), Address("192.168.1.241")));
    EXPECT_EQ(CodeRaisedBy([&] { world.addresses.AddReservation(Row(5, "192.168.1.243")); }),
              AppException::IPAddressAlreadyReserved);
    world.addresses.AddReservation(Row(1, "192.168.1.240"));
    EXPECT_EQ(world.addresses.GetReservation(3).GetHardwareAddress(), Client(1));

    // The settings' defaults empty the table.
    world.settings.SetDefaults();
    EXPECT_EQ(world.addresses.GetReservationCount(), 0u);
    EXPECT_TRUE(world.addresses.IsAddressAvailable(Address("192.168.1.243")));
}
