// Cost of choosing and granting an address as the lease table grows, and of
// writing and reading a large lease file.
#include "allocation/AddressManager.h"
#include "config/Settings.h"
#include "engine/TransactionManager.h"
#include "foundation/HardwareAddress.h"
#include "foundation/IPv4Address.h"
#include "wire/DHCPMessage.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <string>

#include <unistd.h>

namespace {

constexpr int32_t LEASE_DURATION = 3600;

HardwareAddress ClientNumber(uint32_t number)
{
    const uint8_t bytes[6] = {0x02, 0x10, static_cast<uint8_t>(number >> 24), static_cast<uint8_t>(number >> 16),
                              static_cast<uint8_t>(number >> 8), static_cast<uint8_t>(number)};
    return HardwareAddress(bytes, 6, HardwareAddress::Ethernet10Mb);
}

// A server's allocation state: pool 10.0.0.1-10.0.255.254 under /16 and
// `leaseCount` live leases filling it from the bottom, as the lowest-first
// choice fills a pool.
struct Server {
    Settings settings;
    TransactionManager transactions;
    AddressManager addresses{&settings, &transactions};

    explicit Server(int64_t leaseCount)
    {
        settings.SetPoolStartAddress(IPv4Address(10, 0, 0, 1));
        settings.SetPoolEndAddress(IPv4Address(10, 0, 255, 254));
        settings.SetSubnetMask(16);
        settings.SetAddressManager(&addresses);
        for (int64_t i = 0; i < leaseCount; ++i) {
            addresses.AddLease(ClientNumber(static_cast<uint32_t>(i)),
                               IPv4Address::FromUint32(IPv4Address(10, 0, 0, 1).ToUint32() + static_cast<uint32_t>(i)),
                               LEASE_DURATION);
        }
    }
};

std::string TemporaryFolder()
{
    std::string pattern = "/tmp/tarnvel-bench-XXXXXX";
    if (::mkdtemp(pattern.data()) == nullptr) {
        std::perror("mkdtemp");
        std::exit(1);
    }
    return pattern;
}

// One DISCOVER of a client never seen before, then the lease its REQUEST
// would confirm. The new row is taken out again, untimed, so every iteration
// meets the same table.
void BM_AllocationCycle(benchmark::State& state)
{
    Server server(state.range(0));
    uint32_t nextClient = 1'000'000;
    for (auto _ : state) {
        DHCPMessage discover;
        discover.SetHardwareAddress(ClientNumber(nextClient++));
        const IPv4Address offered = server.addresses.GetAddressForClient(discover);
        server.addresses.AddLease(discover.GetHardwareAddress(), offered, LEASE_DURATION);
        benchmark::DoNotOptimize(offered);

        state.PauseTiming();
        if (offered != IPv4Address::FromUint32(IPv4Address(10, 0, 0, 1).ToUint32() +
                                               static_cast<uint32_t>(state.range(0)))) {
            state.SkipWithError("unexpected address offered");
        }
        server.addresses.RemoveLease(offered);
        state.ResumeTiming();
    }
    state.counters["leases"] = static_cast<double>(server.addresses.GetLeaseCount());
}
BENCHMARK(BM_AllocationCycle)->Arg(1'000)->Arg(10'000)->Arg(60'000)->Unit(benchmark::kMicrosecond);

void BM_SaveLeases(benchmark::State& state)
{
    Server server(state.range(0));
    const std::string folder = TemporaryFolder();
    const std::string path = folder + "/leases.dat";
    for (auto _ : state) {
        server.addresses.SaveLeases(path);
    }
    state.counters["bytes"] = static_cast<double>(std::filesystem::file_size(path));
    std::filesystem::remove_all(folder);
}
BENCHMARK(BM_SaveLeases)->Arg(60'000)->Unit(benchmark::kMillisecond);

void BM_LoadLeases(benchmark::State& state)
{
    const std::string folder = TemporaryFolder();
    const std::string path = folder + "/leases.dat";
    {
        Server source(state.range(0));
        source.addresses.SaveLeases(path);
    }
    Server server(0);
    for (auto _ : state) {
        server.addresses.LoadLeases(path);
    }
    if (server.addresses.GetLeaseCount() != static_cast<size_t>(state.range(0))) {
        state.SkipWithError("the file did not load whole");
    }
    std::filesystem::remove_all(folder);
}
BENCHMARK(BM_LoadLeases)->Arg(60'000)->Unit(benchmark::kMillisecond);

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
    const std::string large = "BM_AllocationCycle/60000";
    const std::string small = "BM_AllocationCycle/1000";
    const double cpuRatio = RecordingReporter::Ratio(reporter.cpuTime, large, small);
    if (cpuRatio > 0) {
        std::printf("Allocation cycle, 60000 leases / 1000 leases: %.1f (CPU time), %.1f (real time)\n", cpuRatio,
                    RecordingReporter::Ratio(reporter.realTime, large, small));
    }
    return 0;
}
