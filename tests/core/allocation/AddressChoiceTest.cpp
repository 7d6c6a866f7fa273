#include "AllocationTestWorld.h"

#include "foundation/ClientIdentifier.h"

#include <gtest/gtest.h>

namespace {

IPv4Address Offer(AllocationWorld& world, const HardwareAddress& client,
                  std::optional<IPv4Address> requested = std::nullopt)
{
    return world.addresses.GetAddressForClient(Discover(client, requested));
}

void Reserve(AllocationWorld& world, const HardwareAddress& client, const char* address)
{
    world.addresses.AddReservation(AddressReservation(client, Address(address)));
}

} // namespace

TEST(AddressChoiceTest, LowestFreeAddressAndTheHoldOfAnOpenTransaction)
{
    AllocationWorld world;
    EXPECT_EQ(Offer(world, Client(1)), Address("192.168.1.240"));
    EXPECT_EQ(world.addresses.GetLeaseCount(), 0u); // choosing writes no lease

    // The first client's offer is open: the second gets the next address.
    world.transactions.AddTransaction(0x1111, Address("192.168.1.240"), ClientIdentifier(Client(1)));
    EXPECT_FALSE(world.addresses.IsAddressAvailable(Address("192.168.1.240")));
    EXPECT_EQ(Offer(world, Client(2)), Address("192.168.1.241"));
    // The transaction ages out without a lease: the address is free again.
    world.clock.Advance(4);
    world.transactions.RemoveExpiredTransactions();
    EXPECT_EQ(Offer(world, Client(3)), Address("192.168.1.240"));

    // Live leases are skipped; a released row no longer holds its address.
    world.addresses.AddLease(Client(4), Address("192.168.1.240"), 60);
    world.addresses.AddLease(Client(5), Address("192.168.1.241"), 60);
    EXPECT_EQ(Offer(world, Client(6)), Address("192.168.1.242"));
    world.addresses.ReleaseLease(Address("192.168.1.240"));
    EXPECT_EQ(Offer(world, Client(6)), Address("192.168.1.240"));
}

TEST(AddressChoiceTest, ReservationWinsAndDropsTheClientsLeaseRow)
{
    AllocationWorld world;
    const HardwareAddress owner = Client(1);
    world.addresses.AddLease(Client(9), Address("192.168.1.240"), 60);
    world.addresses.AddLease(owner, Address("192.168.1.245"), 60);
    world.addresses.AddLease(Client(8), Address("192.168.1.246"), 60);
    Reserve(world, owner, "192.168.1.5"); // outside the pool range, inside its subnet

    EXPECT_EQ(Offer(world, owner, Address("192.168.1.250")), Address("192.168.1.5"));
    const std::vector<Lease> rows = world.addresses.GetLeases();
    ASSERT_EQ(rows.size(), 2u);
    EXPECT_EQ(rows[0].GetIPAddress(), Address("192.168.1.240"));
    EXPECT_EQ(rows[1].GetIPAddress(), Address("192.168.1.246"));

    // Reserved inside the pool and leased to somebody else: still the owner's.
    Reserve(world, Client(2), "192.168.1.246");
    EXPECT_EQ(Offer(world, Client(2)), Address("192.168.1.246"));
    EXPECT_TRUE(world.addresses.IsAddressLeasedTo(Client(8), Address("192.168.1.246")));

    // Nobody else is offered a reserved address, by request or by the walk.
    world.addresses.RemoveLease(Address("192.168.1.240"));
    Reserve(world, Client(3), "192.168.1.240");
    EXPECT_FALSE(world.addresses.IsAddressAvailable(Address("192.168.1.240")));
    EXPECT_EQ(Offer(world, Client(4), Address("192.168.1.240")), Address("192.168.1.241"));
}

TEST(AddressChoiceTest, ExpiredRowGoesToItsOwnerOrToAnyoneElse)
{
    AllocationWorld world;
    const HardwareAddress client = Client(1);
    world.addresses.AddLease(client, Address("192.168.1.245"), 60);
    world.clock.Advance(3600);
    EXPECT_TRUE(world.addresses.IsAddressAvailable(Address("192.168.1.245")));
    EXPECT_EQ(Offer(world, client, Address("192.168.1.250")), Address("192.168.1.245"));
    // The own row's step tests no transaction: the owner still gets it.
    world.transactions.AddTransaction(7, Address("192.168.1.245"), ClientIdentifier(Client(2)));
    EXPECT_EQ(Offer(world, client), Address("192.168.1.245"));

    // Once somebody else's lease has taken the address, the row is gone.
    world.addresses.AddLease(Client(2), Address("192.168.1.245"), 60);
    EXPECT_EQ(world.addresses.GetLeasedAddress(client), IPv4Address());
    EXPECT_EQ(Offer(world, client), Address("192.168.1.240"));
}

TEST(AddressChoiceTest, RowOutsideAShrunkenPoolIsDropped)
{
    AllocationWorld world;
    const HardwareAddress client = Client(1);
    world.addresses.AddLease(Client(2), Address("192.168.1.240"), 60);
    world.addresses.AddLease(client, Address("192.168.1.250"), 60);
    world.settings.SetPoolEndAddress(Address("192.168.1.245"));
    EXPECT_EQ(Offer(world, client), Address("192.168.1.241"));
    EXPECT_EQ(world.addresses.FindLeaseIndex(client), -1);
    EXPECT_EQ(world.addresses.GetLeaseCount(), 1u);

    // Below the start as well.
    world.addresses.AddLease(client, Address("192.168.1.200"), 60);
    EXPECT_EQ(Offer(world, client, Address("192.168.1.244")), Address("192.168.1.244"));
    EXPECT_EQ(world.addresses.GetLeaseCount(), 1u);
}

TEST(AddressChoiceTest, RequestedAddressOnlyWhenAvailable)
{
    AllocationWorld world;
    world.addresses.AddLease(Client(2), Address("192.168.1.250"), 60);
    world.addresses.AddLease(Client(3), Address("192.168.1.251"), 60);
    world.addresses.ReleaseLease(Address("192.168.1.251"));
    Reserve(world, Client(4), "192.168.1.252");
    world.transactions.AddTransaction(1, Address("192.168.1.253"), ClientIdentifier(Client(5)));

    const struct {
        const char* requested;
        const char* offered;
    } cases[] = {
        {"192.168.1.248", "192.168.1.248"}, {"192.168.1.251", "192.168.1.251"}, // free; only an expired row
        {"192.168.1.250", "192.168.1.240"}, {"192.168.1.252", "192.168.1.240"}, // live lease; reserved
        {"192.168.1.253", "192.168.1.240"}, {"192.168.1.100", "192.168.1.240"}, // under offer; below the pool
        {"192.168.1.255", "192.168.1.240"}, {"10.0.0.1", "192.168.1.240"},      // above; another subnet
        {"0.0.0.0", "192.168.1.240"},
    };
    for (const auto& [requested, offered] : cases) {
        EXPECT_EQ(Offer(world, Client(1), Address(requested)), Address(offered)) << requested;
    }
    EXPECT_EQ(world.addresses.GetLeaseCount(), 2u);
}

TEST(AddressChoiceTest, ExhaustedPoolRaisesNoAvailableAddresses)
{
    AllocationWorld world;
    world.settings.SetPoolEndAddress(Address("192.168.1.240"));
    world.addresses.AddLease(Client(2), Address("192.168.1.240"), 60);
    EXPECT_EQ(CodeRaisedBy([&] { Offer(world, Client(1)); }), 10); // NoAvailableAddresses
    EXPECT_EQ(CodeRaisedBy([&] { Offer(world, Client(1), Address("192.168.1.240")); }),
              AppException::NoAvailableAddresses);

    // The expired row frees it for anybody.
    world.clock.Advance(61);
    EXPECT_EQ(Offer(world, Client(1)), Address("192.168.1.240"));

    // A row outside the pool may have been dropped before the pool turns out full.
    world.addresses.AddLease(Client(2), Address("192.168.1.240"), 60);
    world.addresses.AddLease(Client(1), Address("192.168.1.200"), 60);
    EXPECT_EQ(CodeRaisedBy([&] { Offer(world, Client(1)); }), AppException::NoAvailableAddresses);
    EXPECT_EQ(world.addresses.FindLeaseIndex(Client(1)), -1);

    // A pool ending at the very last address stops there, without wrapping.
    world.settings.SetPoolStartAddress(Address("255.255.255.255"));
    world.settings.SetPoolEndAddress(Address("255.255.255.255"));
    Reserve(world, Client(3), "255.255.255.255");
    EXPECT_EQ(CodeRaisedBy([&] { world.addresses.GetFreeAddress(); }), AppException::NoAvailableAddresses);
}

TEST(AddressChoiceTest, WalkCarriesAcrossOctetsButNotAcrossTheSubnet)
{
    AllocationWorld world;
    world.settings.SetPoolStartAddress(Address("192.168.1.250"));
    world.settings.SetPoolEndAddress(Address("192.168.2.10"));
    world.settings.SetSubnetMask(16);
    for (int last = 250; last <= 255; ++last) {
        world.addresses.AddLease(Client(last), IPv4Address(192, 168, 1, last), 60);
    }
    EXPECT_EQ(Offer(world, Client(1)), Address("192.168.2.0"));

    // Under /24 the same range crosses into another subnet, never available.
    world.settings.SetSubnetMask(24);
    EXPECT_FALSE(world.addresses.IsAddressAvailable(Address("192.168.2.0")));
    EXPECT_EQ(CodeRaisedBy([&] { world.addresses.GetFreeAddress(); }), AppException::NoAvailableAddresses);
}
