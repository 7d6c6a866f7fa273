// The address manager answers from indexes; this test holds it against a
// plain model of the rules that answers every question by walking the rows,
// and drives both with long random runs (fixed seeds): grants, renewals,
// releases, removals, choices, lease files with odd rows, time moving forward
// and back, transactions opening and ageing, reservations and the pool
// changing between runs. Any divergence names the seed and the step.
#include "AllocationTestWorld.h"

#include "foundation/ClientIdentifier.h"
#include "foundation/Serializable.h"

#include <gtest/gtest.h>

#include <functional>
#include <random>

namespace {

constexpr int64_t WRAP = int64_t{1} << 31;
// The runs use 10.0.0.0 to 10.0.1.63, so that pools can cross an octet
// boundary and masks from /22 to /32 cut through them.
constexpr uint32_t UNIVERSE_FIRST = 10u << 24;
constexpr int UNIVERSE_SIZE = 320;

// An address as text, or the code raised instead.
std::string Outcome(const std::function<IPv4Address()>& choice)
{
    try {
        return choice().ToString();
    } catch (const AppException& exception) {
        return "code " + std::to_string(exception.GetCode());
    }
}

// The rules written down once more as plainly as possible. The pool, the
// clock and the transactions are read from the world the manager lives in.
struct Model {
    AllocationWorld& world;
    std::vector<Lease> rows;
    std::vector<AddressReservation> reservations;

    bool IsAvailable(const IPv4Address& address) const
    {
        const IPv4Address start = world.settings.GetPoolStartAddress();
        const uint8_t mask = world.settings.GetSubnetMask();
        if (address < start || address > world.settings.GetPoolEndAddress() ||
            address.GetBroadcastAddress(mask) != start.GetBroadcastAddress(mask)) {
            return false;
        }
        for (const AddressReservation& reservation : reservations) {
            if (reservation.GetIPAddress() == address) {
                return false;
            }
        }
        for (const Lease& row : rows) {
            if (row.GetIPAddress() == address && !row.IsExpired(world.clock.Now())) {
                return false;
            }
        }
        return !world.transactions.TransactionExistsForAddress(address);
    }

    IPv4Address FreeAddress() const
    {
        const uint64_t last = world.settings.GetPoolEndAddress().ToUint32();
        for (uint64_t value = world.settings.GetPoolStartAddress().ToUint32(); value <= last; ++value) {
            if (IsAvailable(IPv4Address::FromUint32(static_cast<uint32_t>(value)))) {
                return IPv4Address::FromUint32(static_cast<uint32_t>(value));
            }
        }
        throw AppException(AppException::NoAvailableAddresses);
    }

    IPv4Address Choose(const HardwareAddress& client, std::optional<IPv4Address> requested)
    {
        const int row = FirstRow([&](const Lease& lease) { return lease.GetHardwareAddress() == client; });
        const IPv4Address leased = row < 0 ? IPv4Address() : rows[static_cast<size_t>(row)].GetIPAddress();
        for (const AddressReservation& reservation : reservations) {
            if (reservation.GetHardwareAddress() == client) {
                if (row >= 0) {
                    Remove(leased);
                }
                return reservation.GetIPAddress();
            }
        }
        if (!leased.IsZero()) {
            if (leased >= world.settings.GetPoolStartAddress() && leased <= world.settings.GetPoolEndAddress()) {
                return leased;
            }
            Remove(leased);
        }
        return requested && IsAvailable(*requested) ? *requested : FreeAddress();
    }

    int FirstRow(const std::function<bool(const Lease&)>& matches) const
    {
        const auto row = std::find_if(rows.begin(), rows.end(), matches);
        return row == rows.end() ? -1 : static_cast<int>(row - rows.begin());
    }

    int FirstRowWith(const IPv4Address& address) const
    {
        return FirstRow([&](const Lease& lease) { return lease.GetIPAddress() == address; });
    }

    void Add(const HardwareAddress& client, const IPv4Address& address, int32_t duration)
    {
        Remove(address);
        rows.emplace_back(client, address, duration, world.clock.Now());
    }

    void Remove(const IPv4Address& address)
    {
        if (const int row = FirstRowWith(address); row >= 0) {
            rows.erase(rows.begin() + row);
        }
    }

    void Release(const IPv4Address& address)
    {
        if (const int row = FirstRowWith(address); row >= 0) {
            rows[static_cast<size_t>(row)].Expire(world.clock.Now());
        }
    }

    ByteString File() const
    {
        std::vector<ByteString> items;
        for (const Lease& row : rows) {
            items.push_back(row.Serialize());
        }
        return Serializable::SerializeGroup(items);
    }
};

// One random run: manager and model take the same steps, and after each step
// the observable answers must agree.
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
        return IPv4Address::FromUint32(UNIVERSE_FIRST + static_cast<uint32_t>(Pick(UNIVERSE_SIZE)));
    }

    HardwareAddress SomeClient() { return Client(Pick(48) + 1, Chance(5) ? 6 : 1); }

    int32_t SomeDuration() { return PickOf<int32_t>({0, 1, 2, 3, 5, 10, 60, 600, 3600, 86'400, 2'147'483'646}); }

    std::string Where() const
    {
        return "seed " + std::to_string(seed) + ", step " + std::to_string(step) + " (" + lastStep + ")";
    }

    void TakeStep()
    {
        const int kind = Pick(100);
        const IPv4Address address = SomeAddress();
        if (kind < 22) {
            Choose();
        } else if (kind < 40) {
            lastStep = "grant"; // a fresh client, or a renewal of a row
            HardwareAddress client = SomeClient();
            IPv4Address granted = address;
            if (!model.rows.empty() && Chance(40)) {
                const Lease& row = model.rows[static_cast<size_t>(Pick(static_cast<int>(model.rows.size())))];
                client = row.GetHardwareAddress();
                granted = row.GetIPAddress();
            }
            Grant(client, granted);
        } else if (kind < 48) {
            lastStep = "remove";
            world.addresses.RemoveLease(address);
            model.Remove(address);
        } else if (kind < 56) {
            lastStep = "release";
            world.addresses.ReleaseLease(address);
            model.Release(address);
        } else if (kind < 70) {
            lastStep = "clock";
            world.clock.Advance(Chance(6)    ? PickOf<int64_t>({WRAP - 2, WRAP - 1, WRAP, WRAP + 1})
                                : Chance(12) ? PickOf<int64_t>({-1, -2, -100, -4000})
                                             : PickOf<int64_t>({0, 1, 1, 1, 2, 3, 5, 30, 600, 3600}));
        } else if (kind < 80) {
            Transactions(address);
        } else if (kind < 86) {
            ChangeReservations(AddressReservation(SomeClient(), address));
        } else if (kind < 92) {
            lastStep = "pool";
            const int start = Pick(UNIVERSE_SIZE);
            int end = Pick(UNIVERSE_SIZE);
            end = Chance(50) ? std::min(end, start + 40) : end; // small pools fill up
            ChangePool(start, end, PickOf<uint8_t>({22, 23, 24, 24, 25, 26, 27, 30, 32}));
        } else if (kind < 96) {
            LoadOddFile();
        } else {
            lastStep = "save and load";
            const ByteString file = world.addresses.SerializeLeases();
            ASSERT_EQ(file, model.File()) << Where();
            world.addresses.UnserializeLeases(file);
        }
    }

    void ChangePool(int start, int end, uint8_t mask)
    {
        if (start > end && Chance(90)) {
            std::swap(start, end);
        }
        world.settings.SetPoolStartAddress(IPv4Address::FromUint32(UNIVERSE_FIRST + static_cast<uint32_t>(start)));
        world.settings.SetPoolEndAddress(IPv4Address::FromUint32(UNIVERSE_FIRST + static_cast<uint32_t>(end)));
        world.settings.SetSubnetMask(mask);
    }

    void Grant(const HardwareAddress& client, const IPv4Address& address)
    {
        const int32_t duration = SomeDuration();
        world.addresses.AddLease(client, address, duration);
        model.Add(client, address, duration);
    }

    // Often the exchange goes on after the choice: an offer held, or a lease.
    void Choose()
    {
        lastStep = "choose";
        const HardwareAddress client = SomeClient();
        const auto requested = Chance(40) ? std::optional<IPv4Address>(SomeAddress()) : std::nullopt;
        std::optional<IPv4Address> offered;
        const std::string expected = Outcome([&] { return model.Choose(client, requested); });
        ASSERT_EQ(Outcome([&] { return *(offered = world.addresses.GetAddressForClient(Discover(client, requested))); }),
                  expected)
            << Where();
        if (offered && Chance(60)) {
            Chance(50) ? OpenTransaction(*offered, client) : Grant(client, *offered);
        }
    }

    void OpenTransaction(const IPv4Address& address, const HardwareAddress& client)
    {
        world.transactions.AddTransaction(nextTransactionId, address, ClientIdentifier(client));
        openTransactions.push_back(nextTransactionId++);
    }

    void Transactions(const IPv4Address& address)
    {
        lastStep = "transactions";
        const int kind = Pick(3);
        if (kind == 0 && !address.IsZero()) {
            OpenTransaction(address, SomeClient());
        } else if (kind == 1) {
            world.transactions.RemoveExpiredTransactions();
        } else if (kind == 2 && !openTransactions.empty()) {
            const auto open = openTransactions.begin() + Pick(static_cast<int>(openTransactions.size()));
            if (world.transactions.TransactionExists(*open)) {
                world.transactions.RemoveTransaction(*open);
            }
            openTransactions.erase(open);
        }
    }

    // What the user does while the server is stopped.
    void ChangeReservations(const AddressReservation& reservation)
    {
        lastStep = "reservations";
        const int kind = model.reservations.empty() ? 0 : Pick(3);
        const size_t index = kind == 0 ? 0 : static_cast<size_t>(Pick(static_cast<int>(model.reservations.size())));
        if (kind == 0 && CodeRaisedBy([&] { world.addresses.AddReservation(reservation); }) == -1) {
            model.reservations.push_back(reservation);
        } else if (kind == 1 && CodeRaisedBy([&] { world.addresses.ReplaceReservation(index, reservation); }) == -1) {
            model.reservations[index] = reservation;
        } else if (kind == 2) {
            world.addresses.RemoveReservation(index);
            model.reservations.erase(model.reservations.begin() + static_cast<std::ptrdiff_t>(index));
        }
    }

    // Rows only a file can bring: several on one address, start times in the
    // future, and expired rows whose 32-bit remaining time is about to wrap
    // round, so that they turn active again within seconds.
    void LoadOddFile()
    {
        lastStep = "odd file";
        const int64_t now = world.clock.Now();
        model.rows.clear();
        for (int i = Pick(40); i > 0; --i) {
            const int32_t duration = Chance(10) ? -Pick(1000) : SomeDuration();
            int64_t start = now - Pick(5000);
            if (Chance(15)) {
                start = now + Pick(5000);
            } else if (Chance(15)) {
                start = now - duration - WRAP + Pick(6); // remaining just above -2^31
            } else if (Chance(10)) {
                start = now - duration + WRAP - 1 - Pick(6); // remaining just below 2^31
            }
            const IPv4Address address = !model.rows.empty() && Chance(25)
                                            ? model.rows[static_cast<size_t>(Pick(static_cast<int>(model.rows.size())))].GetIPAddress()
                                            : SomeAddress();
            model.rows.emplace_back(SomeClient(), address, duration, start);
        }
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
            const int row = model.FirstRow([&](const Lease& lease) { return lease.GetHardwareAddress() == client; });
            ASSERT_EQ(world.addresses.FindLeaseIndex(client), row) << Where();
            ASSERT_EQ(world.addresses.GetLeasedAddress(client),
                      row < 0 ? IPv4Address() : model.rows[static_cast<size_t>(row)].GetIPAddress())
                << Where();
            const IPv4Address address = SomeAddress();
            ASSERT_EQ(world.addresses.IsAddressAvailable(address), model.IsAvailable(address))
                << Where() << ", " << address.ToString();
        }
        // Not after every step, so that changes and moves of the clock pile up
        // between two choices.
        if (Chance(35)) {
            ASSERT_EQ(Outcome([&] { return world.addresses.GetFreeAddress(); }),
                      Outcome([&] { return model.FreeAddress(); }))
                << Where();
        }
    }

    AllocationWorld world;
    Model model{world, {}, {}};
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
    for (uint32_t seed = 1; seed <= 6 && !HasFailure(); ++seed) {
        DifferentialRun(seed).Run(5000);
    }
}

namespace {

uint32_t PlainWord(const uint8_t* bytes)
{
    return bytes[0] | (bytes[1] << 8) | (bytes[2] << 16) | (static_cast<uint32_t>(bytes[3]) << 24);
}

// A group read the plain way: records of a 4-byte size and that many bytes,
// records of size 0 dropped, and one running past the end refuses the whole.
bool PlainGroup(const ByteString& data, std::vector<ByteString>& items)
{
    for (size_t position = 0; position < data.size();) {
        if (data.size() - position < 4 || PlainWord(&data[position]) > data.size() - position - 4) {
            return false;
        }
        const size_t size = PlainWord(&data[position]);
        if (size > 0) {
            items.emplace_back(&data[position + 4], &data[position + 4] + size);
        }
        position += 4 + size;
    }
    return true;
}

// A lease's fields as text, read the plain way, or empty for bytes that are no lease.
std::string PlainLease(const ByteString& data)
{
    std::vector<ByteString> items;
    if (!PlainGroup(data, items) || items.size() != 4 || items[0].size() != 8 || items[1].size() != 8 ||
        items[2].size() < 4 || items[2].size() > 20 || items[3].size() != 4) {
        return {};
    }
    std::string text = std::to_string(static_cast<int32_t>(PlainWord(items[0].data()))) + ' ' +
                       std::to_string(static_cast<int32_t>(PlainWord(items[1].data()))) + ' ' +
                       std::to_string(PlainWord(items[2].data())) + ':';
    for (size_t i = 4; i < items[2].size(); ++i) {
        text += ' ' + std::to_string(items[2][i]);
    }
    return text + ' ' + IPv4Address(items[3][0], items[3][1], items[3][2], items[3][3]).ToString();
}

std::string Fields(const Lease& lease)
{
    const HardwareAddress& client = lease.GetHardwareAddress();
    std::string text = std::to_string(lease.GetStartTime()) + ' ' + std::to_string(lease.GetDuration()) + ' ' +
                       std::to_string(client.GetType()) + ':';
    for (size_t i = 0; i < client.GetLength(); ++i) {
        text += ' ' + std::to_string(client.GetBytes()[i]);
    }
    return text + ' ' + lease.GetIPAddress().ToString();
}

} // namespace

// Randomly damaged files, decoded in place, must give exactly what the plain
// reading of the format gives: the same refusals and the same rows.
TEST(AllocationDifferentialTest, LeaseFileDecodingAgreesWithAPlainReading)
{
    std::mt19937 random(21);
    const auto pick = [&](int count) { return std::uniform_int_distribution<int>(0, count - 1)(random); };
    AllocationWorld world;
    int accepted = 0;
    for (int round = 0; round < 20'000 && !HasFailure(); ++round) {
        std::vector<ByteString> records;
        for (int row = pick(5); row > 0; --row) {
            uint8_t bytes[HardwareAddress::MAX_LENGTH];
            std::generate(std::begin(bytes), std::end(bytes), [&] { return static_cast<uint8_t>(pick(256)); });
            const HardwareAddress client(bytes, static_cast<uint8_t>(pick(HardwareAddress::MAX_LENGTH + 1)),
                                         static_cast<uint32_t>(1 + pick(21)));
            records.push_back(
                Lease(client, IPv4Address(10, 0, 0, pick(256)), pick(100'000) - 50, 1'700'000'000 + pick(9)).Serialize());
        }
        ByteString file = Serializable::SerializeGroup(records);
        for (int damage = pick(4); damage > 0 && !file.empty(); --damage) {
            const auto at = file.begin() + pick(static_cast<int>(file.size()));
            switch (pick(5)) {
            case 0: *at = static_cast<uint8_t>(pick(256)); break;
            case 1: file.erase(at, file.end()); break;
            case 2: file.insert(at, 4, 0); break; // maybe an empty record
            case 3: *at = static_cast<uint8_t>(*at + 1 - 2 * pick(2)); break; // a size one off
            default: file.push_back(static_cast<uint8_t>(pick(256)));
            }
        }
        std::vector<ByteString> items;
        bool readable = PlainGroup(file, items);
        std::vector<std::string> expected;
        for (const ByteString& item : items) {
            expected.push_back(PlainLease(item));
            readable = readable && !expected.back().empty();
        }
        world.addresses.UnserializeLeases({}); // an empty table that a refusal must leave so
        EXPECT_EQ(CodeRaisedBy([&] { world.addresses.UnserializeLeases(file); }),
                  readable ? -1 : AppException::FileReadingError) << "round " << round;
        std::vector<std::string> actual;
        for (const Lease& lease : world.addresses.GetLeases()) {
            actual.push_back(Fields(lease));
        }
        EXPECT_EQ(actual, readable ? expected : std::vector<std::string>()) << "round " << round;
        accepted += readable ? 1 : 0;
    }
    EXPECT_GT(accepted, 2'000); // both kinds of file occurred often
    EXPECT_LT(accepted, 18'000);
}
