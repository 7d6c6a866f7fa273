// The address manager answers from indexes; this test holds it against a
// plain model of the rules, in which every question is answered by walking
// the rows, and drives both with long random runs (fixed seeds): grants,
// renewals, releases, removals, choices, lease files with odd rows, time
// moving forward and back, transactions opening and ageing, reservations and
// the pool changing between runs. Any divergence names the seed and the step.
#include "AllocationTestWorld.h"

#include "foundation/ClientIdentifier.h"
#include "foundation/Serializable.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <random>
#include <sstream>
#include <variant>

namespace {

constexpr int CLIENT_COUNT = 48;
constexpr int64_t WRAP = int64_t{1} << 31;

// The addresses the runs use: 10.0.0.0 to 10.0.1.63, so that pools can cross
// an octet boundary and masks from /22 to /32 cut through them.
constexpr uint32_t UNIVERSE_FIRST = (10u << 24);
constexpr uint32_t UNIVERSE_SIZE = 320;

// Either an address or the code that was raised instead.
using Outcome = std::variant<IPv4Address, int32_t>;

std::string Describe(const Outcome& outcome)
{
    if (const IPv4Address* address = std::get_if<IPv4Address>(&outcome)) {
        return address->ToString();
    }
    return "code " + std::to_string(std::get<int32_t>(outcome));
}

// The rules, written down once more as plainly as possible: a list of rows,
// a list of reservations, and walks over them. The pool, the clock and the
// transactions are read from the world the manager lives in.
class ReferenceManager {
public:
    explicit ReferenceManager(AllocationWorld& world) : world(world) {}

    std::vector<Lease> rows;
    std::vector<AddressReservation> reservations;

    bool IsAvailable(const IPv4Address& address) const
    {
        const int64_t now = world.clock.Now();
        const IPv4Address start = world.settings.GetPoolStartAddress();
        const IPv4Address end = world.settings.GetPoolEndAddress();
        const uint8_t mask = world.settings.GetSubnetMask();
        if (address < start || address > end) {
            return false;
        }
        if (address.GetBroadcastAddress(mask) != start.GetBroadcastAddress(mask)) {
            return false;
        }
        for (const AddressReservation& reservation : reservations) {
            if (reservation.GetIPAddress() == address) {
                return false;
            }
        }
        for (const Lease& row : rows) {
            if (row.GetIPAddress() == address && !row.IsExpired(now)) {
                return false;
            }
        }
        return !world.transactions.TransactionExistsForAddress(address);
    }

    Outcome FreeAddress() const
    {
        const uint64_t first = world.settings.GetPoolStartAddress().ToUint32();
        const uint64_t last = world.settings.GetPoolEndAddress().ToUint32();
        for (uint64_t value = first; value <= last; ++value) {
            const IPv4Address candidate = IPv4Address::FromUint32(static_cast<uint32_t>(value));
            if (IsAvailable(candidate)) {
                return candidate;
            }
        }
        return AppException::NoAvailableAddresses;
    }

    Outcome Choose(const HardwareAddress& client, std::optional<IPv4Address> requested)
    {
        for (const AddressReservation& reservation : reservations) {
            if (reservation.GetHardwareAddress() == client) {
                const int row = FirstRowOf(client);
                if (row >= 0) {
                    Remove(rows[static_cast<size_t>(row)].GetIPAddress());
                }
                return reservation.GetIPAddress();
            }
        }
        const int row = FirstRowOf(client);
        if (row >= 0 && !rows[static_cast<size_t>(row)].GetIPAddress().IsZero()) {
            const IPv4Address leased = rows[static_cast<size_t>(row)].GetIPAddress();
            if (leased >= world.settings.GetPoolStartAddress() && leased <= world.settings.GetPoolEndAddress()) {
                return leased;
            }
            Remove(leased);
        }
        if (requested && IsAvailable(*requested)) {
            return *requested;
        }
        return FreeAddress();
    }

    int FirstRowOf(const HardwareAddress& client) const
    {
        for (size_t i = 0; i < rows.size(); ++i) {
            if (rows[i].GetHardwareAddress() == client) {
                return static_cast<int>(i);
            }
        }
        return -1;
    }

    int FirstRowWith(const IPv4Address& address) const
    {
        for (size_t i = 0; i < rows.size(); ++i) {
            if (rows[i].GetIPAddress() == address) {
                return static_cast<int>(i);
            }
        }
        return -1;
    }

    void Add(const HardwareAddress& client, const IPv4Address& address, int32_t duration)
    {
        Remove(address);
        rows.emplace_back(client, address, duration, world.clock.Now());
    }

    void Remove(const IPv4Address& address)
    {
        const int row = FirstRowWith(address);
        if (row >= 0) {
            rows.erase(rows.begin() + row);
        }
    }

    void Release(const IPv4Address& address)
    {
        const int row = FirstRowWith(address);
        if (row >= 0) {
            rows[static_cast<size_t>(row)].Expire(world.clock.Now());
        }
    }

    // The lease file as each row's own bytes in one group.
    ByteString File() const
    {
        std::vector<ByteString> items;
        for (const Lease& row : rows) {
            items.push_back(row.Serialize());
        }
        return Serializable::SerializeGroup(items);
    }

private:
    AllocationWorld& world;
};

Outcome Capture(const std::function<IPv4Address()>& choice)
{
    try {
        return choice();
    } catch (const AppException& exception) {
        return exception.GetCode();
    }
}

// One random run: the manager and the model take the same steps, and after
// each step every observable answer must agree.
class DifferentialRun {
public:
    explicit DifferentialRun(uint32_t seed) : random(seed), seed(seed)
    {
        world.settings.SetPoolStartAddress(UniverseAddress(0));
        world.settings.SetPoolEndAddress(UniverseAddress(40));
        world.settings.SetSubnetMask(24);
    }

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

    IPv4Address UniverseAddress(uint32_t offset) const { return IPv4Address::FromUint32(UNIVERSE_FIRST + offset); }

    // Mostly addresses in and around the pool, sometimes far ones and 0.0.0.0.
    IPv4Address SomeAddress()
    {
        if (Chance(3)) {
            return IPv4Address();
        }
        if (Chance(3)) {
            return IPv4Address(10, 9, 9, static_cast<uint8_t>(Pick(4)));
        }
        const uint32_t start = world.settings.GetPoolStartAddress().ToUint32();
        const uint32_t end = world.settings.GetPoolEndAddress().ToUint32();
        if (Chance(70) && start <= end && start >= UNIVERSE_FIRST && end - start < UNIVERSE_SIZE) {
            return IPv4Address::FromUint32(start + static_cast<uint32_t>(Pick(static_cast<int>(end - start + 1))));
        }
        return UniverseAddress(static_cast<uint32_t>(Pick(UNIVERSE_SIZE)));
    }

    HardwareAddress SomeClient() { return Client(Pick(CLIENT_COUNT) + 1, Chance(5) ? 6 : 1); }

    int32_t SomeDuration()
    {
        static constexpr int32_t DURATIONS[] = {0, 1, 2, 3, 5, 10, 60, 600, 3600, 86'400, 2'147'483'646};
        return DURATIONS[Pick(std::size(DURATIONS))];
    }

    std::string Where() const
    {
        std::ostringstream text;
        text << "seed " << seed << ", step " << step << " (" << lastStep << ")";
        return text.str();
    }

    void TakeStep()
    {
        const int kind = Pick(100);
        if (kind < 22) {
            Choose();
        } else if (kind < 40) {
            Grant();
        } else if (kind < 48) {
            lastStep = "remove";
            const IPv4Address address = SomeAddress();
            world.addresses.RemoveLease(address);
            model.Remove(address);
        } else if (kind < 56) {
            lastStep = "release";
            const IPv4Address address = SomeAddress();
            world.addresses.ReleaseLease(address);
            model.Release(address);
        } else if (kind < 70) {
            MoveClock();
        } else if (kind < 80) {
            Transactions();
        } else if (kind < 86) {
            ChangeReservations();
        } else if (kind < 92) {
            ChangePool();
        } else if (kind < 96) {
            LoadOddFile();
        } else {
            lastStep = "save and load";
            const ByteString file = world.addresses.SerializeLeases();
            ASSERT_EQ(file, model.File()) << Where();
            world.addresses.UnserializeLeases(file);
        }
    }

    void Choose()
    {
        lastStep = "choose";
        const HardwareAddress client = SomeClient();
        const std::optional<IPv4Address> requested =
            Chance(40) ? std::optional<IPv4Address>(SomeAddress()) : std::nullopt;
        const Outcome expected = model.Choose(client, requested);
        const Outcome actual =
            Capture([&] { return world.addresses.GetAddressForClient(Discover(client, requested)); });
        ASSERT_EQ(Describe(actual), Describe(expected)) << Where();
        // Often the exchange goes on: an offer that is held, or a lease.
        if (const IPv4Address* offered = std::get_if<IPv4Address>(&actual); offered != nullptr && Chance(60)) {
            if (Chance(50)) {
                OpenTransaction(*offered, client);
            } else {
                const int32_t duration = SomeDuration();
                world.addresses.AddLease(client, *offered, duration);
                model.Add(client, *offered, duration);
            }
        }
    }

    void Grant()
    {
        lastStep = "grant";
        // A fresh client or a renewal of an existing row.
        HardwareAddress client = SomeClient();
        IPv4Address address = SomeAddress();
        if (!model.rows.empty() && Chance(40)) {
            const Lease& row = model.rows[static_cast<size_t>(Pick(static_cast<int>(model.rows.size())))];
            client = row.GetHardwareAddress();
            address = row.GetIPAddress();
        }
        const int32_t duration = SomeDuration();
        world.addresses.AddLease(client, address, duration);
        model.Add(client, address, duration);
    }

    void MoveClock()
    {
        lastStep = "clock";
        static constexpr int64_t FORWARD[] = {0, 1, 1, 1, 2, 3, 5, 30, 600, 3600};
        static constexpr int64_t BACKWARD[] = {-1, -2, -100, -4000};
        static constexpr int64_t AROUND_THE_WRAP[] = {WRAP - 2, WRAP - 1, WRAP, WRAP + 1};
        if (Chance(6)) {
            world.clock.Advance(AROUND_THE_WRAP[Pick(std::size(AROUND_THE_WRAP))]);
        } else if (Chance(12)) {
            world.clock.Advance(BACKWARD[Pick(std::size(BACKWARD))]);
        } else {
            world.clock.Advance(FORWARD[Pick(std::size(FORWARD))]);
        }
    }

    void OpenTransaction(const IPv4Address& address, const HardwareAddress& client)
    {
        const uint32_t id = nextTransactionId++;
        world.transactions.AddTransaction(id, address, ClientIdentifier(client));
        openTransactions.push_back(id);
    }

    void Transactions()
    {
        lastStep = "transactions";
        const int kind = Pick(3);
        if (kind == 0) {
            const IPv4Address address = SomeAddress();
            if (!address.IsZero()) {
                OpenTransaction(address, SomeClient());
            }
        } else if (kind == 1) {
            world.transactions.RemoveExpiredTransactions();
        } else if (!openTransactions.empty()) {
            const size_t index = static_cast<size_t>(Pick(static_cast<int>(openTransactions.size())));
            if (world.transactions.TransactionExists(openTransactions[index])) {
                world.transactions.RemoveTransaction(openTransactions[index]);
            }
            openTransactions.erase(openTransactions.begin() + static_cast<std::ptrdiff_t>(index));
        }
    }

    // What the user does while the server is stopped.
    void ChangeReservations()
    {
        lastStep = "reservations";
        const int kind = Pick(3);
        const AddressReservation reservation(SomeClient(), SomeAddress());
        if (kind == 0 || model.reservations.empty()) {
            if (CodeRaisedBy([&] { world.addresses.AddReservation(reservation); }) == -1) {
                model.reservations.push_back(reservation);
            }
        } else if (kind == 1) {
            const size_t index = static_cast<size_t>(Pick(static_cast<int>(model.reservations.size())));
            if (CodeRaisedBy([&] { world.addresses.ReplaceReservation(index, reservation); }) == -1) {
                model.reservations[index] = reservation;
            }
        } else {
            const size_t index = static_cast<size_t>(Pick(static_cast<int>(model.reservations.size())));
            world.addresses.RemoveReservation(index);
            model.reservations.erase(model.reservations.begin() + static_cast<std::ptrdiff_t>(index));
        }
    }

    void ChangePool()
    {
        lastStep = "pool";
        static constexpr uint8_t MASKS[] = {22, 23, 24, 24, 25, 26, 27, 30, 32};
        uint32_t start = static_cast<uint32_t>(Pick(UNIVERSE_SIZE));
        uint32_t end = static_cast<uint32_t>(Pick(UNIVERSE_SIZE));
        if (start > end && Chance(90)) {
            std::swap(start, end);
        }
        if (Chance(50)) {
            end = std::min(end, start + 40); // small pools fill up
        }
        world.settings.SetPoolStartAddress(UniverseAddress(start));
        world.settings.SetPoolEndAddress(UniverseAddress(end));
        world.settings.SetSubnetMask(MASKS[Pick(std::size(MASKS))]);
    }

    // Rows that only a file can bring: several on one address, start times
    // in the future, and expired rows whose 32-bit remaining time is about to
    // wrap round, so that they turn active again within seconds.
    void LoadOddFile()
    {
        lastStep = "odd file";
        const int64_t now = world.clock.Now();
        std::vector<Lease> rows;
        const int count = Pick(40);
        for (int i = 0; i < count; ++i) {
            const int32_t duration = Chance(10) ? -Pick(1000) : SomeDuration();
            int64_t start = now - Pick(5000);
            if (Chance(15)) {
                start = now + Pick(5000);
            } else if (Chance(15)) {
                start = now - duration - WRAP + Pick(6); // remaining just above -2^31
            } else if (Chance(10)) {
                start = now - duration + WRAP - 1 - Pick(6); // remaining just below 2^31
            }
            const IPv4Address address =
                !rows.empty() && Chance(25) ? rows[static_cast<size_t>(Pick(i))].GetIPAddress() : SomeAddress();
            rows.emplace_back(SomeClient(), address, duration, start);
        }
        model.rows = rows;
        world.addresses.UnserializeLeases(model.File());
    }

    void Compare()
    {
        ASSERT_TRUE(SameRows(world.addresses.GetLeases(), model.rows)) << Where();
        ASSERT_EQ(world.addresses.GetLeaseCount(), model.rows.size()) << Where();
        ASSERT_EQ(world.addresses.GetReservationCount(), model.reservations.size()) << Where();
        if (!model.rows.empty()) {
            const size_t index = static_cast<size_t>(Pick(static_cast<int>(model.rows.size())));
            ASSERT_TRUE(SameRow(world.addresses.GetLease(index), model.rows[index])) << Where();
        }
        for (int i = 0; i < 3; ++i) {
            const HardwareAddress client = SomeClient();
            const int row = model.FirstRowOf(client);
            ASSERT_EQ(world.addresses.FindLeaseIndex(client), row) << Where();
            const IPv4Address leased = row < 0 ? IPv4Address() : model.rows[static_cast<size_t>(row)].GetIPAddress();
            ASSERT_EQ(world.addresses.GetLeasedAddress(client), leased) << Where();
            const IPv4Address address = SomeAddress();
            ASSERT_EQ(world.addresses.IsAddressAvailable(address), model.IsAvailable(address))
                << Where() << ", " << address.ToString();
        }
        // Not after every step, so that several changes and moves of the clock
        // can pile up between two choices.
        if (Chance(35)) {
            ASSERT_EQ(Describe(Capture([&] { return world.addresses.GetFreeAddress(); })),
                      Describe(model.FreeAddress()))
                << Where();
        }
    }

    AllocationWorld world;
    ReferenceManager model{world};
    std::mt19937 random;
    uint32_t seed;
    int step = 0;
    std::string lastStep;
    uint32_t nextTransactionId = 1;
    std::vector<uint32_t> openTransactions;
};

} // namespace

TEST(AllocationDifferentialTest, ManagerAgreesWithThePlainRulesOverRandomRuns)
{
    for (uint32_t seed = 1; seed <= 12 && !HasFailure(); ++seed) {
        DifferentialRun(seed).Run(2500);
    }
}

namespace {

// The lease file read the plain way, into copies: a group is records of a
// 4-byte size (least significant byte first) and that many bytes, records of
// size 0 are dropped, and any record running past the end refuses the whole.
bool PlainGroup(const ByteString& data, std::vector<ByteString>& items)
{
    size_t position = 0;
    while (position < data.size()) {
        if (data.size() - position < 4) {
            return false;
        }
        const uint32_t size = data[position] | (data[position + 1] << 8) | (data[position + 2] << 16) |
                              (static_cast<uint32_t>(data[position + 3]) << 24);
        position += 4;
        if (size > data.size() - position) {
            return false;
        }
        if (size > 0) {
            items.emplace_back(data.begin() + static_cast<std::ptrdiff_t>(position),
                               data.begin() + static_cast<std::ptrdiff_t>(position + size));
        }
        position += size;
    }
    return true;
}

uint32_t PlainWord(const ByteString& bytes)
{
    return bytes[0] | (bytes[1] << 8) | (bytes[2] << 16) | (static_cast<uint32_t>(bytes[3]) << 24);
}

// One lease as its fields in text, or empty when the bytes are no lease.
std::string PlainLease(const ByteString& data)
{
    std::vector<ByteString> items;
    if (!PlainGroup(data, items) || items.size() != 4 || items[0].size() != 8 || items[1].size() != 8 ||
        items[2].size() < 4 || items[2].size() > 20 || items[3].size() != 4) {
        return {};
    }
    std::ostringstream text;
    text << static_cast<int32_t>(PlainWord(items[0])) << ' ' << static_cast<int32_t>(PlainWord(items[1])) << ' '
         << PlainWord(items[2]) << ' ' << items[2].size() - 4;
    for (size_t i = 4; i < items[2].size(); ++i) {
        text << ' ' << int{items[2][i]};
    }
    text << ' ' << int{items[3][0]} << '.' << int{items[3][1]} << '.' << int{items[3][2]} << '.' << int{items[3][3]};
    return text.str();
}

std::string Fields(const Lease& lease)
{
    std::ostringstream text;
    const HardwareAddress& client = lease.GetHardwareAddress();
    text << lease.GetStartTime() << ' ' << lease.GetDuration() << ' ' << client.GetType() << ' '
         << int{client.GetLength()};
    for (size_t i = 0; i < client.GetLength(); ++i) {
        text << ' ' << int{client.GetBytes()[i]};
    }
    text << ' ' << lease.GetIPAddress().ToString();
    return text.str();
}

} // namespace

// Files decoded in place must give exactly what the plain reading of the
// format gives: the same refusals and the same rows, field by field.
TEST(AllocationDifferentialTest, LeaseFileDecodingAgreesWithAPlainReading)
{
    std::mt19937 random(21);
    const auto pick = [&](int count) { return std::uniform_int_distribution<int>(0, count - 1)(random); };
    AllocationWorld world;
    int accepted = 0;
    for (int round = 0; round < 20'000; ++round) {
        std::vector<ByteString> records;
        for (int row = pick(5); row > 0; --row) {
            uint8_t bytes[HardwareAddress::MAX_LENGTH];
            for (uint8_t& byte : bytes) {
                byte = static_cast<uint8_t>(pick(256));
            }
            const HardwareAddress client(bytes, static_cast<uint8_t>(pick(HardwareAddress::MAX_LENGTH + 1)),
                                         static_cast<uint32_t>(1 + pick(21)));
            const Lease lease(client, IPv4Address(10, 0, 0, pick(256)), pick(100'000) - 50, 1'700'000'000 + pick(9));
            records.push_back(lease.Serialize());
        }
        ByteString file = Serializable::SerializeGroup(records);
        for (int damage = pick(4); damage > 0 && !file.empty(); --damage) {
            const size_t at = static_cast<size_t>(pick(static_cast<int>(file.size())));
            switch (pick(5)) {
            case 0:
                file[at] = static_cast<uint8_t>(pick(256));
                break;
            case 1:
                file.resize(at);
                break;
            case 2:
                file.insert(file.begin() + static_cast<std::ptrdiff_t>(at), 4, 0); // maybe an empty record
                break;
            case 3:
                file[at] = static_cast<uint8_t>(file[at] + 1 - 2 * pick(2)); // a size one off
                break;
            default:
                file.push_back(static_cast<uint8_t>(pick(256)));
                break;
            }
        }

        std::vector<std::string> expected;
        std::vector<ByteString> items;
        bool readable = PlainGroup(file, items);
        for (const ByteString& item : items) {
            expected.push_back(PlainLease(item));
            readable = readable && !expected.back().empty();
        }
        world.addresses.UnserializeLeases({}); // an empty table that a refusal must leave so
        const int32_t code = CodeRaisedBy([&] { world.addresses.UnserializeLeases(file); });
        ASSERT_EQ(code, readable ? -1 : AppException::FileReadingError) << "round " << round;
        std::vector<std::string> actual;
        for (const Lease& lease : world.addresses.GetLeases()) {
            actual.push_back(Fields(lease));
        }
        ASSERT_EQ(actual, readable ? expected : std::vector<std::string>()) << "round " << round;
        accepted += readable ? 1 : 0;
    }
    // Both kinds of file occurred often.
    EXPECT_GT(accepted, 2'000);
    EXPECT_LT(accepted, 18'000);
}
