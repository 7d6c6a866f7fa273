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

    // Live leases are skipped; an expired row no longer holds its address.
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
    EXPECT_EQ(world.addresses.FindLeaseIndex(owner), -1);

    // Reserved inside the pool and leased to somebody else: still the owner's.
    const HardwareAddress second = Client(2);
    Reserve(world, second, "192.168.1.246");
    EXPECT_EQ(Offer(world, second), Address("192.168.1.246"));
    EXPECT_EQ(world.addresses.GetLeaseCount(), 2u);
    EXPECT_TRUE(world.addresses.IsAddressLeasedTo(Client(8), Address("192.168.1.246")));

    // Nobody else is offered a reserved address, by request or by the walk.
    world.addresses.RemoveLease(Address("192.168.1.240"));
    Reserve(world, Client(3), "192.168.1.240");
    EXPECT_FALSE(world.addresses.IsAddressAvailable(Address("192.168.1.240")));
    EXPECT_EQ(Offer(world, Client(4), Address("192.168.1.240")), Address("192.168.1.241"));
}

TEST(AddressChoiceTest, OwnRowCountsWhileInsideThePoolEvenExpiredOrUnderOffer)
{
    AllocationWorld world;
    const HardwareAddress client = Client(1);
    world.addresses.AddLease(client, Address("192.168.1.245"), 60);
    world.clock.Advance(3600);
    ASSERT_TRUE(world.addresses.GetLease(0).IsExpired(world.clock.Now()));
    EXPECT_EQ(Offer(world, client, Address("192.168.1.250")), Address("192.168.1.245"));

    // The row's own step tests no transaction: the owner still gets it.
    world.transactions.AddTransaction(7, Address("192.168.1.245"), ClientIdentifier(Client(2)));
    EXPECT_EQ(Offer(world, client), Address("192.168.1.245"));

    // Once somebody else's AddLease has taken the address, the row is gone.
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

    const HardwareAddress client = Client(1);
    EXPECT_EQ(Offer(world, client, Address("192.168.1.248")), Address("192.168.1.248"));
    EXPECT_EQ(Offer(world, client, Address("192.168.1.251")), Address("192.168.1.251")); // only an expired row
    EXPECT_EQ(Offer(world, client, Address("192.168.1.250")), Address("192.168.1.240")); // live lease
    EXPECT_EQ(Offer(world, client, Address("192.168.1.252")), Address("192.168.1.240")); // reserved
    EXPECT_EQ(Offer(world, client, Address("192.168.1.253")), Address("192.168.1.240")); // under offer
    EXPECT_EQ(Offer(world, client, Address("192.168.1.100")), Address("192.168.1.240")); // below the pool
    EXPECT_EQ(Offer(world, client, Address("192.168.1.255")), Address("192.168.1.240")); // above the pool
    EXPECT_EQ(Offer(world, client, Address("10.0.0.1")), Address("192.168.1.240"));
    EXPECT_EQ(Offer(world, client, IPv4Address()), Address("192.168.1.240"));
    EXPECT_EQ(world.addresses.GetLeaseCount(), 2u);
}

TEST(AddressChoiceTest, ExhaustedPoolRaisesNoAvailableAddresses)
{
    AllocationWorld world;
    world.settings.SetPoolStartAddress(Address("192.168.1.240"));
    world.settings.SetPoolEndAddress(Address("192.168.1.240"));
    world.addresses.AddLease(Client(2), Address("192.168.1.240"), 60);
    EXPECT_EQ(CodeRaisedBy([&] { Offer(world, Client(1)); }), AppException::NoAvailableAddresses);
    EXPECT_EQ(CodeRaisedBy([&] { world.addresses.GetFreeAddress(); }), AppException::NoAvailableAddresses);
    EXPECT_EQ(CodeRaisedBy([&] { Offer(world, Client(1), Address("192.168.1.240")); }),
              AppException::NoAvailableAddresses);

    // The expired row frees it for anybody.
    world.clock.Advance(61);
    EXPECT_EQ(Offer(world, Client(1)), Address("192.168.1.240"));

    // Step 2a may have dropped a row before the pool turns out to be full.
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
    EXPECT_EQ(world.addresses.GetFreeAddress(), Address("192.168.2.0"));
    EXPECT_EQ(Offer(world, Client(1)), Address("192.168.2.0"));

    // Under /24 the same range crosses into another subnet, whose addresses
    // are never available.
    world.settings.SetSubnetMask(24);
    EXPECT_FALSE(world.addresses.IsAddressAvailable(Address("192.168.2.0")));
    EXPECT_EQ(CodeRaisedBy([&] { world.addresses.GetFreeAddress(); }), AppException::NoAvailableAddresses);
}

TEST(AddressChoiceTest, LeaseRowsKeepTableOrderAndOneRowPerAddress)
{
    AllocationWorld world;
    world.addresses.AddLease(Client(1), Address("192.168.1.240"), 60);
    world.addresses.AddLease(Client(2), Address("192.168.1.241"), 60);
    world.addresses.AddLease(Client(3), Address("192.168.1.242"), 60);
    world.addresses.AddLease(Client(1), Address("192.168.1.243"), 60); // a second row for client 1

    // AddLease on a held address: the old holder's row goes, the new row is last.
    world.clock.Advance(10);
    world.addresses.AddLease(Client(4), Address("192.168.1.241"), 90);
    std::vector<Lease> rows = world.addresses.GetLeases();
    ASSERT_EQ(rows.size(), 4u);
    EXPECT_EQ(rows[1].GetHardwareAddress(), Client(3));
    EXPECT_EQ(rows[3].GetHardwareAddress(), Client(4));
    EXPECT_EQ(rows[3].GetStartTime(), world.clock.Now());
    EXPECT_EQ(world.addresses.FindLeaseIndex(Client(2)), -1);

    // Lookups by hardware address take the first row in table order.
    EXPECT_EQ(world.addresses.FindLeaseIndex(Client(1)), 0);
    EXPECT_EQ(world.addresses.GetLeasedAddress(Client(1)), Address("192.168.1.240"));
    EXPECT_TRUE(world.addresses.IsAddressLeasedTo(Client(1), Address("192.168.1.240")));
    EXPECT_FALSE(world.addresses.IsAddressLeasedTo(Client(1), Address("192.168.1.243")));
    world.addresses.RemoveLease(Address("192.168.1.240"));
    EXPECT_EQ(world.addresses.FindLeaseIndex(Client(1)), 1);
    EXPECT_EQ(world.addresses.GetLeasedAddress(Client(1)), Address("192.168.1.243"));
    EXPECT_EQ(world.addresses.GetLease(1).GetIPAddress(), Address("192.168.1.243"));

    // Renewal: the row moves to the end with a new start time.
    world.addresses.AddLease(Client(3), Address("192.168.1.242"), 60);
    rows = world.addresses.GetLeases();
    ASSERT_EQ(rows.size(), 3u);
    EXPECT_EQ(rows[0].GetHardwareAddress(), Client(1));
    EXPECT_EQ(rows[1].GetHardwareAddress(), Client(4));
    EXPECT_EQ(rows[2].GetHardwareAddress(), Client(3));
    EXPECT_EQ(world.addresses.FindLeaseIndex(Client(3)), 2);

    // Removing and releasing an address without a row do nothing.
    world.addresses.RemoveLease(Address("192.168.1.250"));
    world.addresses.ReleaseLease(Address("192.168.1.250"));
    EXPECT_TRUE(SameRows(world.addresses.GetLeases(), rows));

    // Release ends the lease but keeps the row and its client.
    world.addresses.ReleaseLease(Address("192.168.1.243"));
    EXPECT_EQ(world.addresses.GetLeaseCount(), 3u);
    EXPECT_EQ(world.addresses.GetLease(0).GetRemainingTime(world.clock.Now()), -1);
    EXPECT_EQ(world.addresses.GetLeasedAddress(Client(1)), Address("192.168.1.243"));
}

TEST(AddressChoiceTest, SameBytesOfAnotherHardwareTypeAreAnotherClient)
{
    AllocationWorld world;
    const HardwareAddress ethernet = Client(1, HardwareAddress::Ethernet10Mb);
    const HardwareAddress other = Client(1, 6);
    world.addresses.AddLease(ethernet, Address("192.168.1.245"), 60);
    EXPECT_EQ(world.addresses.FindLeaseIndex(other), -1);
    EXPECT_EQ(Offer(world, other), Address("192.168.1.240"));
    EXPECT_EQ(Offer(world, ethernet), Address("192.168.1.245"));
}

TEST(AddressChoiceTest, SeveralRowsOnOneAddressFromAFileBehaveRowByRow)
{
    // AddLease never makes such a table, but a file may hold one.
    AllocationWorld source;
    source.addresses.AddLease(Client(1), Address("192.168.1.240"), 60);
    source.addresses.ReleaseLease(Address("192.168.1.240"));
    source.addresses.AddLease(Client(2), Address("192.168.1.241"), 60);
    ByteString file = source.addresses.SerializeLeases();
    // Point the second row at .240 as well: its last IP octet is the file's last byte.
    file.back() = 240;

    AllocationWorld world;
    world.addresses.UnserializeLeases(file);
    ASSERT_EQ(world.addresses.GetLeaseCount(), 2u);
    // The first row has expired, the second has not: the address is held.
    EXPECT_FALSE(world.addresses.IsAddressAvailable(Address("192.168.1.240")));
    // RemoveLease erases only the first row with the address.
    world.addresses.RemoveLease(Address("192.168.1.240"));
    ASSERT_EQ(world.addresses.GetLeaseCount(), 1u);
    EXPECT_EQ(world.addresses.GetLease(0).GetHardwareAddress(), Client(2));
    EXPECT_EQ(world.addresses.GetLeasedAddress(Client(2)), Address("192.168.1.240"));
    world.addresses.ReleaseLease(Address("192.168.1.240"));
    EXPECT_TRUE(world.addresses.IsAddressAvailable(Address("192.168.1.240")));
}
