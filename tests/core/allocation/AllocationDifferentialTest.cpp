// The address manager answers from indexes; this test holds it against a
// plain model of the rules that walks its rows for every answer, over long
// random runs (fixed seeds): grants, renewals, releases, removals, choices,
// lease files with odd rows, the clock moving forward and back, offers held
// and ageing, reservations (and the code of each refusal) and the pool
// changing. A divergence names the seed and the step.
#include "support/AllocationWorld.h"
#include "support/RaisedCode.h"
#include "support/TestHardware.h"

#include "foundation/ClientIdentifier.h"
#include "foundation/Serializable.h"
#include "wire/DHCPMessage.h"

#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <random>

namespace {

constexpr int64_t WRAP = int64_t{1} << 31;
// The top 320 addresses of the number range: pools cross an octet boundary,
// masks from /22 to /32 cut through them, and a walk must stop at
// 255.255.255.255 without wrapping round.
constexpr int UNIVERSE_SIZE = 320;
constexpr uint32_t UNIVERSE_FIRST = 0xFFFFFFFFu - (UNIVERSE_SIZE - 1);

// An address as text, or the code raised instead.
std::string Outcome(const std::function<IPv4Address()>& choice)
{
    try {
        return choice().ToString();
    } catch (const AppException& exception) {
        return "code " + std::to_string(exception.GetCode());
    }
}

// The rules written down once more, as plainly as possible, under the
// manager's names. Pool, clock and open offers come from the manager's world.
struct Model {
    const AllocationWorld& world;
    std::vector<Lease> rows;
    std::vector<AddressReservation> reservations;

    int FindLeaseIndex(const HardwareAddress& client) const
    {
        const auto row = std::find_if(rows.begin(), rows.end(), [&](const Lease& r) { return r.GetHardwareAddress() == client; });
        return row == rows.end() ? -1 : static_cast<int>(row - rows.begin());
    }
    IPv4Address GetLeasedAddress(const HardwareAddress& client) const
    {
        const int row = FindLeaseIndex(client);
        return row < 0 ? IPv4Address() : rows[static_cast<size_t>(row)].GetIPAddress();
    }
    Lease* FirstRowOn(const IPv4Address& address)
    {
        const auto row = std::find_if(rows.begin(), rows.end(), [&](const Lease& r) { return r.GetIPAddress() == address; });
        return row == rows.end() ? nullptr : &*row;
    }
    bool InPool(const IPv4Address& address) const
    {
        return address >= world.settings.GetPoolStartAddress() && address <= world.settings.GetPoolEndAddress();
    }
    bool InSubnet(const IPv4Address& address) const
    {
        return address.GetBroadcastAddress(world.settings.GetSubnetMask()) == world.settings.GetBroadcastAddress();
    }

    bool IsAddressAvailable(const IPv4Address& address) const
    {
        const auto on = [&](const auto& row) { return row.GetIPAddress() == address; };
        const auto active = [&](const Lease& row) { return on(row) && !row.IsExpired(world.clock.Now()); };
        return InPool(address) && InSubnet(address) && std::none_of(reservations.begin(), reservations.end(), on) &&
               std::none_of(rows.begin(), rows.end(), active) && !world.transactions.TransactionExistsForAddress(address);
    }

    IPv4Address GetFreeAddress() const
    {
        const uint64_t last = world.settings.GetPoolEndAddress().ToUint32();
        for (uint64_t value = world.settings.GetPoolStartAddress().ToUint32(); value <= last; ++value) {
            if (IsAddressAvailable(IPv4Address::FromUint32(static_cast<uint32_t>(value)))) {
                return IPv4Address::FromUint32(static_cast<uint32_t>(value));
            }
        }
        throw AppException(AppException::NoAvailableAddresses);
    }

    // Reservation (the own row goes), own row inside the pool (outside it,
    // the row goes), requested address if available, lowest free address.
    IPv4Address GetAddressForClient(const HardwareAddress& client, std::optional<IPv4Address> requested)
    {
        const IPv4Address leased = GetLeasedAddress(client); // 0.0.0.0 also for a row on 0.0.0.0
        for (const AddressReservation& reservation : reservations) {
            if (reservation.GetHardwareAddress() == client) {
                if (FindLeaseIndex(client) >= 0) {
                    RemoveLease(leased);
                }
                return reservation.GetIPAddress();
            }
        }
        if (!leased.IsZero() && InPool(leased)) {
            return leased;
        }
        if (!leased.IsZero()) {
            RemoveLease(leased);
        }
        return requested && IsAddressAvailable(*requested) ? *requested : GetFreeAddress();
    }

    void AddLease(const HardwareAddress& client, const IPv4Address& address, int32_t duration)
    {
        RemoveLease(address);
        rows.emplace_back(client, address, duration, world.clock.Now());
    }
    void RemoveLease(const IPv4Address& address)
    {
        if (const Lease* row = FirstRowOn(address)) {
            rows.erase(rows.begin() + (row - rows.data()));
        }
    }
    void ReleaseLease(const IPv4Address& address)
    {
        if (Lease* row = FirstRowOn(address)) {
            row->Expire(world.clock.Now());
        }
    }

    // The subnet first, then the rows in order, hardware before IP.
    void CheckReservation(const AddressReservation& reservation, size_t skipped) const
    {
        if (!InSubnet(reservation.GetIPAddress())) {
            throw AppException(AppException::ReservationOutsidePoolSubnet);
        }
        for (size_t i = 0; i < reservations.size(); ++i) {
            if (i != skipped && reservations[i].GetHardwareAddress() == reservation.GetHardwareAddress()) {
                throw AppException(AppException::HardwareAddressAlreadyReserved);
            }
            if (i != skipped && reservations[i].GetIPAddress() == reservation.GetIPAddress()) {
                throw AppException(AppException::IPAddressAlreadyReserved);
            }
        }
    }
    void AddReservation(const AddressReservation& reservation)
    {
        CheckReservation(reservation, reservations.size());
        reservations.push_back(reservation);
    }
    void ReplaceReservation(size_t index, const AddressReservation& reservation)
    {
        CheckReservation(reservation, index);
        reservations[index] = reservation;
    }
    void RemoveReservation(size_t index) { reservations.erase(reservations.begin() + static_cast<std::ptrdiff_t>(index)); }
};

// Manager and model take the same random steps; after each the answers must agree.
class DifferentialRun {
public:
    explicit DifferentialRun(uint32_t seed) : random(seed), seed(seed) { ChangePool(0, 40, 24); }

    void Run(int steps)
    {
        for (step = 0; step < steps && !::testing::Test::HasFailure(); ++step) {
            TakeStep();
            Compare();
        }
    }

private:
    int Pick(int count) { return std::uniform_int_distribution<int>(0, count - 1)(random); }
    bool Chance(int percent) { return Pick(100) < percent; }
    template <typename T, size_t N>
    T PickOf(const T (&values)[N]) { return values[Pick(static_cast<int>(N))]; }

    // Mostly addresses in and around the pool, sometimes 0.0.0.0 or a far one.
    IPv4Address SomeAddress()
    {
        const uint32_t start = world.settings.GetPoolStartAddress().ToUint32();
        const uint32_t end = world.settings.GetPoolEndAddress().ToUint32();
        if (Chance(5)) {
            return Chance(50) ? IPv4Address() : IPv4Address(10, 9, 9, 9);
        }
        if (Chance(70) && start <= end && start >= UNIVERSE_FIRST) {
            return IPv4Address::FromUint32(start + static_cast<uint32_t>(Pick(static_cast<int>(end - start + 1))));
        }
        return IPv4Address::FromUint32(UNIVERSE_FIRST + static_cast<uint32_t>(Pick(UNIVERSE_SIZE)));
    }
    HardwareAddress SomeClient() { return TestHardware(Pick(48) + 1, Chance(5) ? 6 : 1); }
    int32_t SomeDuration() { return PickOf<int32_t>({0, 1, 2, 3, 5, 10, 60, 600, 3600, 86'400, 2'147'483'646}); }
    const Lease& SomeRow() { return model.rows[static_cast<size_t>(Pick(static_cast<int>(model.rows.size())))]; }
    size_t SomeReservation() { return static_cast<size_t>(Pick(static_cast<int>(model.reservations.size()))); }

    std::string Where() const { return "seed " + std::to_string(seed) + ", step " + std::to_string(step) + " (" + what + ")"; }

    // The same change on both sides; both must raise the same code, or none.
    template <typename Change>
    void Both(const char* name, const Change& change)
    {
        what = name;
        const int32_t code = CodeRaisedBy([&] { change(world.addresses); });
        ASSERT_EQ(code, CodeRaisedBy([&] { change(model); })) << Where();
    }

    void TakeStep()
    {
        const int kind = Pick(100);
        const IPv4Address address = SomeAddress();
        // Often a reservation with the client of one row and the address of another, or of the same.
        const bool clash = !model.reservations.empty() && Chance(30);
        const AddressReservation reservation(clash ? model.reservations[SomeReservation()].GetHardwareAddress() : SomeClient(),
                                             clash ? model.reservations[SomeReservation()].GetIPAddress() : address);
        if (kind < 22) {
            Choose();
        } else if (kind < 40) {
            const Lease row = !model.rows.empty() && Chance(40) ? SomeRow() : Lease(SomeClient(), address, 0, 0);
            Grant("grant or renewal", row.GetHardwareAddress(), row.GetIPAddress());
        } else if (kind < 48) {
            Both("remove", [&](auto& side) { side.RemoveLease(address); });
        } else if (kind < 56) {
            Both("release", [&](auto& side) { side.ReleaseLease(address); });
        } else if (kind < 70) {
            what = "clock";
            world.clock.Advance(Chance(6)    ? PickOf<int64_t>({WRAP - 2, WRAP - 1, WRAP, WRAP + 1})
                                : Chance(12) ? PickOf<int64_t>({-1, -2, -100, -4000})
                                             : PickOf<int64_t>({0, 1, 1, 1, 2, 3, 5, 30, 600, 3600}));
        } else if (kind < 78) {
            what = "offers"; // an offer on any address, or the old ones age out
            Chance(50) && !address.IsZero() ? OpenOffer(address, SomeClient()) : world.transactions.RemoveExpiredTransactions();
        } else if (kind < 83 || (kind < 86 && model.reservations.empty())) {
            Both("add reservation", [&](auto& side) { side.AddReservation(reservation); });
        } else if (kind < 86) {
            const size_t index = SomeReservation();
            Chance(60) ? Both("replace reservation", [&](auto& side) { side.ReplaceReservation(index, reservation); })
                       : Both("remove reservation", [&](auto& side) { side.RemoveReservation(index); });
        } else if (kind < 93) {
            what = "pool"; // often small, to fill up; sometimes up to the very last address; rarely backwards
            const bool top = Chance(15);
            const int start = top ? UNIVERSE_SIZE - 1 - Pick(30) : Pick(UNIVERSE_SIZE);
            const int end = top          ? UNIVERSE_SIZE - 1
                            : Chance(10) ? Pick(start + 1)
                                         : std::min(UNIVERSE_SIZE - 1, start + Pick(Chance(50) ? 41 : UNIVERSE_SIZE));
            if (Chance(3)) { // the defaults, whose pool lies outside all this, empty the reservations
                world.settings.SetDefaults();
                model.reservations.clear();
                Compare();
            }
            ChangePool(start, end, PickOf<uint8_t>({22, 23, 24, 24, 25, 26, 27, 30, 32}));
        } else {
            LoadOddFile();
        }
    }

    void ChangePool(int start, int end, uint8_t mask)
    {
        world.settings.SetPoolStartAddress(IPv4Address::FromUint32(UNIVERSE_FIRST + static_cast<uint32_t>(start)));
        world.settings.SetPoolEndAddress(IPv4Address::FromUint32(UNIVERSE_FIRST + static_cast<uint32_t>(end)));
        world.settings.SetSubnetMask(mask);
    }

    void Grant(const char* name, const HardwareAddress& client, const IPv4Address& address)
    {
        const int32_t duration = SomeDuration();
        Both(name, [&](auto& side) { side.AddLease(client, address, duration); });
    }

    void OpenOffer(const IPv4Address& address, const HardwareAddress& client)
    {
        world.transactions.AddTransaction(nextTransactionId++, address, ClientIdentifier(client));
    }

    // Often the exchange goes on after the choice: an offer held, or a lease.
    void Choose()
    {
        what = "choose";
        const HardwareAddress client = SomeClient();
        const auto requested = Chance(40) ? std::optional<IPv4Address>(SomeAddress()) : std::nullopt;
        DHCPMessage discover; // as far as the manager reads it
        discover.SetHardwareAddress(client);
        if (requested) {
            discover.Options().SetRequestedIPAddress(*requested);
        }
        std::optional<IPv4Address> offered;
        const std::string expected = Outcome([&] { return model.GetAddressForClient(client, requested); });
        ASSERT_EQ(Outcome([&] { return *(offered = world.addresses.GetAddressForClient(discover)); }), expected) << Where();
        if (offered && Chance(60)) {
            Chance(50) ? OpenOffer(*offered, client) : Grant("choose, then grant", client, *offered);
        }
    }

    // Rows only a file can bring: several on one address, start times in the
    // future, and expired rows whose 32-bit remaining time is about to wrap
    // round, so that they turn active again within seconds.
    void LoadOddFile()
    {
        what = "odd file";
        const int64_t now = world.clock.Now();
        model.rows.clear();
        std::vector<ByteString> file;
        for (int i = Pick(40); i > 0; --i) {
            const int32_t duration = Chance(10) ? -Pick(1000) : SomeDuration();
            const int64_t start = Chance(15)   ? now + Pick(5000)
                                  : Chance(15) ? now - duration - WRAP + Pick(6)     // remaining just above -2^31
                                  : Chance(10) ? now - duration + WRAP - 1 - Pick(6) // remaining just below 2^31
                                               : now - Pick(5000);
            const IPv4Address address = !model.rows.empty() && Chance(25) ? SomeRow().GetIPAddress() : SomeAddress();
            model.rows.emplace_back(SomeClient(), address, duration, start);
            file.push_back(model.rows.back().Serialize());
        }
        world.addresses.UnserializeLeases(Serializable::SerializeGroup(file));
    }

    void Compare()
    {
        ASSERT_TRUE(SameRows(world.addresses.GetLeases(), model.rows)) << Where();
        ASSERT_EQ(world.addresses.GetReservationCount(), model.reservations.size()) << Where();
        for (size_t i = 0; i < model.reservations.size(); ++i) {
            const AddressReservation row = world.addresses.GetReservation(i);
            ASSERT_TRUE(row.GetHardwareAddress() == model.reservations[i].GetHardwareAddress() &&
                        row.GetIPAddress() == model.reservations[i].GetIPAddress())
                << Where() << ", reservation " << i;
        }
        for (int i = 0; i < 3; ++i) {
            const HardwareAddress client = SomeClient();
            ASSERT_EQ(world.addresses.FindLeaseIndex(client), model.FindLeaseIndex(client)) << Where();
            ASSERT_EQ(world.addresses.GetLeasedAddress(client), model.GetLeasedAddress(client)) << Where();
            const IPv4Address address = SomeAddress();
            ASSERT_EQ(world.addresses.IsAddressAvailable(address), model.IsAddressAvailable(address))
                << Where() << ", " << address.ToString();
        }
        // Not after every step, so that changes and moves of the clock pile
        // up between two walks.
        if (Chance(35)) {
            ASSERT_EQ(Outcome([&] { return world.addresses.GetFreeAddress(); }),
                      Outcome([&] { return model.GetFreeAddress(); }))
                << Where();
        }
    }

    AllocationWorld world;
    Model model{world, {}, {}};
    std::mt19937 random;
    uint32_t seed;
    int step = 0;
    std::string what;
    uint32_t nextTransactionId = 1;
};

} // namespace

TEST(AllocationDifferentialTest, ManagerAgreesWithThePlainRulesOverRandomRuns)
{
    for (uint32_t seed = 1; seed <= 4 && !HasFailure(); ++seed) {
        DifferentialRun(seed).Run(5000);
    }
}
