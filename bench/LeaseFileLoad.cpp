// Time to take in a large lease file at start-up: the step a start of the
// server makes when it settles on its listening address.
//
//   TEMP=<folder> LeaseFileLoad <listening-address> <first-address> <lease-count> <runs>
//
// Writes <lease-count> live leases (consecutive addresses from
// <first-address>, pool and mask /16 around it) into the lease file of
// <listening-address> in $TEMP, then sets that address on a fresh server state
// <runs> times and times each load. The file stays, so the program itself can
// be started on it afterwards.
#include "ClientNumber.h"

#include "allocation/AddressManager.h"
#include "config/Settings.h"
#include "engine/TransactionManager.h"
#include "foundation/AppException.h"
#include "foundation/HardwareAddress.h"
#include "foundation/IPv4Address.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace {

constexpr int32_t LEASE_DURATION = 3600; // seconds: every lease is still live while timed
constexpr uint8_t MASK_LENGTH = 16;

// The allocation state of one server, wired as the program wires it.
struct ServerState {
    Settings settings;
    TransactionManager transactions;
    AddressManager addresses{&settings, &transactions};

    explicit ServerState(const IPv4Address& firstAddress)
    {
        const uint32_t network = firstAddress.ToUint32() & 0xFFFF0000u;
        settings.SetPoolStartAddress(firstAddress);
        settings.SetPoolEndAddress(IPv4Address::FromUint32(network | 0xFFFEu));
        settings.SetSubnetMask(MASK_LENGTH);
        settings.SetAddressManager(&addresses);
    }
};

double MillisecondsSince(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

int Run(const IPv4Address& listeningAddress, const IPv4Address& firstAddress, uint32_t leaseCount, int runs)
{
    std::string path;
    {
        ServerState source(firstAddress);
        source.settings.SetPreferredListeningAddress(listeningAddress);
        path = source.addresses.GetLeasesFilePath();
        for (uint32_t i = 0; i < leaseCount; ++i) {
            source.addresses.AddLease(ClientNumber(i), IPv4Address::FromUint32(firstAddress.ToUint32() + i),
                                      LEASE_DURATION);
        }
        const auto start = std::chrono::steady_clock::now();
        source.addresses.SaveLeases();
        std::printf("lease file: %u leases, %ju bytes, written in %.1f ms (%s)\n", leaseCount,
                    static_cast<uintmax_t>(std::filesystem::file_size(path)), MillisecondsSince(start), path.c_str());
    }

    std::vector<double> times;
    for (int run = 0; run < runs; ++run) {
        ServerState server(firstAddress);
        const auto start = std::chrono::steady_clock::now();
        server.settings.SetPreferredListeningAddress(listeningAddress);
        times.push_back(MillisecondsSince(start));
        if (server.addresses.GetLeaseCount() != leaseCount) {
            std::fprintf(stderr, "LeaseFileLoad: %zu of %u leases loaded\n", server.addresses.GetLeaseCount(),
                         leaseCount);
            return 1;
        }
    }
    std::printf("load of the lease file at start-up, %d runs:", runs);
    for (const double time : times) {
        std::printf(" %.1f", time);
    }
    std::sort(times.begin(), times.end());
    std::printf(" ms; median %.1f ms\n", times[times.size() / 2]);
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 5) {
        std::fprintf(stderr,
                     "usage: TEMP=<folder> LeaseFileLoad <listening-address> <first-address> <lease-count> <runs>\n");
        return 2;
    }
    try {
        const IPv4Address listeningAddress{std::string(argv[1])};
        const IPv4Address firstAddress{std::string(argv[2])};
        const long leaseCount = std::strtol(argv[3], nullptr, 10);
        const int runs = std::atoi(argv[4]);
        if (listeningAddress.IsZero() || firstAddress.IsZero() || leaseCount <= 0 || leaseCount > 65000 ||
            runs <= 0) {
            std::fprintf(stderr, "LeaseFileLoad: bad arguments\n");
            return 2;
        }
        return Run(listeningAddress, firstAddress, static_cast<uint32_t>(leaseCount), runs);
    } catch (const AppException& exception) {
        std::fprintf(stderr, "LeaseFileLoad: error %d\n", static_cast<int>(exception.GetCode()));
        return 1;
    }
}
