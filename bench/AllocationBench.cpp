// Cost of choosing and granting an address as the lease table grows, and of
// writing and reading a large lease file.
//
// Three shapes of table, each at 1,000, 10,000 and 60,000 rows:
// - FromBottom: live leases on the lowest addresses of a /16 pool, so the
//   lowest free address lies just above all of them;
// - NearlyFull: a pool only a little larger than the table (60,000 of
//   65,534 addresses leased at the top size), the lower nine tenths leased
//   solid, the rest of the leases scattered over the remainder, and the rows
//   in shuffled order;
// - HalfExpired: a /16 pool with rows on the lowest addresses, the upper half
//   of them expired (by the clock, long ago), live and expired rows taking
//   turns in the table.
// At the end the 60,000/1,000 ratio of each shape is printed.
#include "ClientNumber.h"

#include "allocation/AddressManager.h"
#include "config/Settings.h"
#include "engine/TransactionManager.h"
#include "foundation/Clock.h"
#include "foundation/HardwareAddress.h"
#include "foundation/IPv4Address.h"
#include "wire/DHCPMessage.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <unistd.h>

namespace {

constexpr int32_t LEASE_DURATION = 3600;
constexpr int64_t START_TIME = 1'700'000'000;
constexpr uint32_t POOL_START = (10u << 24) + 1; // 10.0.0.1
constexpr uint32_t FULL_POOL_SIZE = 65'534;      // 10.0.0.1-10.0.255.254
constexpr uint32_t NEARLY_FULL_LEASES = 60'000;  // of FULL_POOL_SIZE

// The bench sets the time, so that rows can be made in the past.
class BenchClock : public Clock {
public:
    int64_t Now() const override { return now; }
    int64_t now = START_TIME;
};

IPv4Address PoolAddress(uint32_t offset)
{
    return IPv4Address::FromUint32(POOL_START + offset);
}

// A server's allocation state: pool 10.0.0.1 upwards under /16, on a clock
// that the bench moves.
struct Server {
    BenchClock clock;
    Settings settings;
    TransactionManager transactions{&clock};
    AddressManager addresses{&settings, &transactions, &clock};

    explicit Server(uint32_t poolSize)
    {
        settings.SetPoolStartAddress(PoolAddress(0));
        settings.SetPoolEndAddress(PoolAddress(poolSize - 1));
        settings.SetSubnetMask(16);
        settings.SetAddressManager(&addresses);
    }

    // A row for client `offset` on pool address `offset`, made at `time`.
    void Lease(uint32_t offset, int64_t time)
    {
        clock.now = time;
        addresses.AddLease(ClientNumber(offset), PoolAddress(offset), LEASE_DURATION);
        clock.now = START_TIME;
    }
};

// `leaseCount` live leases filling a /16 pool from the bottom, as the
// lowest-first choice fills a pool.
std::unique_ptr<Server> FromBottom(uint32_t leaseCount, IPv4Address& lowestFree)
{
    auto server = std::make_unique<Server>(FULL_POOL_SIZE);
    for (uint32_t i = 0; i < leaseCount; ++i) {
        server->Lease(i, START_TIME);
    }
    lowestFree = PoolAddress(leaseCount);
    return server;
}

std::unique_ptr<Server> NearlyFull(uint32_t leaseCount, IPv4Address& lowestFree)
{
    const auto poolSize = static_cast<uint32_t>(uint64_t{leaseCount} * FULL_POOL_SIZE / NEARLY_FULL_LEASES);
    const uint32_t solid = leaseCount / 10 * 9;
    std::mt19937 random(12345);
    std::vector<uint32_t> upper;
    for (uint32_t offset = solid; offset < poolSize; ++offset) {
        upper.push_back(offset);
    }
    std::shuffle(upper.begin(), upper.end(), random);
    std::vector<uint32_t> leased;
    for (uint32_t offset = 0; offset < solid; ++offset) {
        leased.push_back(offset);
    }
    leased.insert(leased.end(), upper.begin(), upper.begin() + (leaseCount - solid));
    std::vector<bool> taken(poolSize, false);
    for (const uint32_t offset : leased) {
        taken[offset] = true;
    }
    lowestFree = PoolAddress(static_cast<uint32_t>(std::find(taken.begin(), taken.end(), false) - taken.begin()));

    std::shuffle(leased.begin(), leased.end(), random);
    auto server = std::make_unique<Server>(poolSize);
    for (const uint32_t offset : leased) {
        server->Lease(offset, START_TIME);
    }
    return server;
}

std::unique_ptr<Server> HalfExpired(uint32_t leaseCount, IPv4Address& lowestFree)
{
    auto server = std::make_unique<Server>(FULL_POOL_SIZE);
    const uint32_t live = leaseCount / 2;
    for (uint32_t i = 0; i < live; ++i) {
        server->Lease(i, START_TIME);
        server->Lease(live + i, START_TIME - 2 * LEASE_DURATION); // expired an hour ago
    }
    lowestFree = PoolAddress(live);
    return server;
}

// One DISCOVER of a client never seen before, then the lease its REQUEST
// would confirm. The table is put back as it was, untimed, so every iteration
// meets the same state: the new row goes, and a row that the grant replaced
// comes back (expired) at the end of the table.
template <typename Build>
void AllocationCycle(benchmark::State& state, Build build)
{
    IPv4Address lowestFree;
    const std::unique_ptr<Server> server = build(static_cast<uint32_t>(state.range(0)), lowestFree);
    AddressManager& addresses = server->addresses;
    uint32_t nextClient = 1'000'000;
    for (auto _ : state) {
        DHCPMessage discover;
        discover.SetHardwareAddress(ClientNumber(nextClient++));
        const IPv4Address offered = addresses.GetAddressForClient(discover);
        const int replacedRow = addresses.FindLeaseIndex(ClientNumber(offered.ToUint32() - POOL_START));
        addresses.AddLease(discover.GetHardwareAddress(), offered, LEASE_DURATION);
        benchmark::DoNotOptimize(offered);

        state.PauseTiming();
        if (offered != lowestFree) {
            state.SkipWithError("unexpected address offered");
        }
        addresses.RemoveLease(offered);
        if (replacedRow >= 0) {
            addresses.AddLease(ClientNumber(offered.ToUint32() - POOL_START), offered, LEASE_DURATION);
            addresses.ReleaseLease(offered);
        }
        state.ResumeTiming();
    }
    state.counters["leases"] = static_cast<double>(addresses.GetLeaseCount());
}

void BM_AllocationCycle(benchmark::State& state)
{
    AllocationCycle(state, FromBottom);
}
BENCHMARK(BM_AllocationCycle)->Arg(1'000)->Arg(10'000)->Arg(60'000)->Unit(benchmark::kMicrosecond);

void BM_AllocationCycleNearlyFull(benchmark::State& state)
{
    AllocationCycle(state, NearlyFull);
}
BENCHMARK(BM_AllocationCycleNearlyFull)->Arg(1'000)->Arg(10'000)->Arg(60'000)->Unit(benchmark::kMicrosecond);

void BM_AllocationCycleHalfExpired(benchmark::State& state)
{
    AllocationCycle(state, HalfExpired);
}
BENCHMARK(BM_AllocationCycleHalfExpired)->Arg(1'000)->Arg(10'000)->Arg(60'000)->Unit(benchmark::kMicrosecond);

std::string TemporaryFolder()
{
    std::string pattern = "/tmp/tarnvel-bench-XXXXXX";
    if (::mkdtemp(pattern.data()) == nullptr) {
        std::perror("mkdtemp");
        std::exit(1);
    }
    return pattern;
}

void BM_SaveLeases(benchmark::State& state)
{
    IPv4Address lowestFree;
    const std::unique_ptr<Server> server = FromBottom(static_cast<uint32_t>(state.range(0)), lowestFree);
    const std::string folder = TemporaryFolder();
    const std::string path = folder + "/leases.dat";
    for (auto _ : state) {
        server->addresses.SaveLeases(path);
    }
    state.counters["bytes"] = static_cast<double>(std::filesystem::file_size(path));
    std::filesystem::remove_all(folder);
}
BENCHMARK(BM_SaveLeases)->Arg(60'000)->Unit(benchmark::kMillisecond);

// A lease file of `count` rows filled from the bottom of the pool, and loads
// of it, each into a server made for it outside the timing: a load into a
// table that already matches the file is skipped, and would time nothing.
class LeaseFileLoads {
public:
    explicit LeaseFileLoads(uint32_t count) : folder(TemporaryFolder()), path(folder + "/leases.dat")
    {
        FromBottom(count, lowestFree)->addresses.SaveLeases(path);
    }
    ~LeaseFileLoads() { std::filesystem::remove_all(folder); }

    // Replaces `server` by a fresh one outside the timing (the old one is
    // destroyed there too), then loads the file into it inside the timing.
    void Load(benchmark::State& state, std::unique_ptr<Server>& server) const
    {
        state.PauseTiming();
        server = std::make_unique<Server>(FULL_POOL_SIZE);
        state.ResumeTiming();
        server->addresses.LoadLeases(path);
    }

    IPv4Address LowestFree() const { return lowestFree; }

private:
    IPv4Address lowestFree;
    const std::string folder;
    const std::string path;
};

void BM_LoadLeases(benchmark::State& state)
{
    const LeaseFileLoads file(static_cast<uint32_t>(state.range(0)));
    std::unique_ptr<Server> server;
    for (auto _ : state) {
        file.Load(state, server);
        if (server->addresses.GetLeaseCount() != static_cast<size_t>(state.range(0))) {
            state.SkipWithError("the file did not load whole");
        }
    }
}
BENCHMARK(BM_LoadLeases)->Arg(60'000)->Unit(benchmark::kMillisecond);

// The first DISCOVER after a load of 60,000 rows: what a server pays once
// at its first choice after the start.
void BM_LoadLeasesAndFirstChoice(benchmark::State& state)
{
    const LeaseFileLoads file(static_cast<uint32_t>(state.range(0)));
    std::unique_ptr<Server> server;
    for (auto _ : state) {
        file.Load(state, server);
        DHCPMessage discover;
        discover.SetHardwareAddress(ClientNumber(1'000'000));
        if (server->addresses.GetAddressForClient(discover) != file.LowestFree()) {
            state.SkipWithError("unexpected address offered");
        }
    }
}
BENCHMARK(BM_LoadLeasesAndFirstChoice)->Arg(60'000)->Unit(benchmark::kMillisecond);

// Prints as usual and keeps the time per iteration of each run, so that the
// growth of the allocation cycle can be given as one figure at the end.
class RecordingReporter : public benchmark::ConsoleReporter {
public:
    // Colours only on a terminal, so that a saved run reads cleanly.
    RecordingReporter() : ConsoleReporter(::isatty(STDOUT_FILENO) ? OO_Defaults : OO_Tabular) {}

    void ReportRuns(const std::vector<Run>& runs) override
    {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            if (run.run_type == Run::RT_Iteration && !run.error_occurred) {
                realTime[run.benchmark_name()] = run.GetAdjustedRealTime();
                cpuTime[run.benchmark_name()] = run.GetAdjustedCPUTime();
            }
        }
    }

    // Ratio of the times of two runs, or 0 when either is missing.
    static double Ratio(const std::map<std::string, double>& times, const std::string& numerator,
                        const std::string& denominator)
    {
        const auto top = times.find(numerator);
        const auto bottom = times.find(denominator);
        return top == times.end() || bottom == times.end() || bottom->second <= 0 ? 0
                                                                                 : top->second / bottom->second;
    }

    std::map<std::string, double> realTime;
    std::map<std::string, double> cpuTime;
};

} // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    RecordingReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();

    // CPU time is the steadier figure on a machine shared with other work.
    for (const char* scenario :
         {"BM_AllocationCycle", "BM_AllocationCycleNearlyFull", "BM_AllocationCycleHalfExpired"}) {
        const std::string large = std::string(scenario) + "/60000";
        const std::string small = std::string(scenario) + "/1000";
        const double cpuRatio = RecordingReporter::Ratio(reporter.cpuTime, large, small);
        if (cpuRatio > 0) {
            std::printf("%s, 60000 leases / 1000 leases: %.1f (CPU time), %.1f (real time)\n", scenario, cpuRatio,
                        RecordingReporter::Ratio(reporter.realTime, large, small));
        }
    }
    return 0;
}
