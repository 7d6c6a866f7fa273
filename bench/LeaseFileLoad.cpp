// Time to take in a large lease file at start-up: the step a start of the
// server makes when it settles on its listening address.
//
//   TEMP=<folder> LeaseFileLoad <listening-address> <first-address> <lease-count> <runs>
//
// Writes <lease-count> live leases (consecutive addresses from
// <first-address>, pool and mask /16 around it) into the lease file of
// <listening-address> in $TEMP, then sets that address on a fresh server state
// <runs> times and times each load. Then it times the whole start-up step of
// the lease files (the load, the journal's lock, replay and fresh start) with
// no journal and with a journal of JOURNAL_BYTES of renewals beside the file.
// The lease file and that journal (as <lease file>.journal.sample) stay, so
// the program itself can be started on them afterwards.
#include "ClientNumber.h"

#include "allocation/AddressManager.h"
#include "allocation/LeaseJournal.h"
#include "allocation/StorageWarnings.h"
#include "config/Settings.h"
#include "engine/TransactionManager.h"
#include "foundation/AppException.h"
#include "foundation/HardwareAddress.h"
#include "foundation/IPv4Address.h"
#include "foundation/Tools.h"

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
constexpr uint64_t JOURNAL_BYTES = 4u << 20;

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

void PrintTimes(const char* what, std::vector<double> times)
{
    std::printf("%s, %zu runs:", what, times.size());
    for (const double time : times) {
        std::printf(" %.1f", time);
    }
    std::sort(times.begin(), times.end());
    std::printf(" ms; median %.1f ms\n", times[times.size() / 2]);
}

// A journal of renewals over the lease file at `path`, JOURNAL_BYTES long,
// left as a kill leaves it; its bytes.
std::string WriteJournal(const IPv4Address& listeningAddress, const IPv4Address& firstAddress, uint32_t leaseCount)
{
    ServerState server(firstAddress);
    server.settings.SetPreferredListeningAddress(listeningAddress);
    StorageWarnings warnings;
    auto journal = LeaseJournal::Open(server.addresses, warnings);
    journal->SetCompactionLimit(JOURNAL_BYTES * 4);
    for (uint32_t i = 0; journal->GetSize() < JOURNAL_BYTES; ++i) {
        const uint32_t client = i % leaseCount;
        server.addresses.AddLease(ClientNumber(client), IPv4Address::FromUint32(firstAddress.ToUint32() + client),
                                  LEASE_DURATION);
    }
    journal->StopBackground();
    server.addresses.AttachJournal(nullptr);
    journal->Finish(false);
    std::string bytes;
    Tools::ReadWholeFile(journal->GetPaths().journal, bytes);
    return bytes;
}

// Renewals on a running journal through COMPACTIONS compactions: the longest
// single change, which the receive thread would wait for (the switch to a
// new journal happens inside one), against the median change.
void TimeCompactions(const IPv4Address& listeningAddress, const IPv4Address& firstAddress, uint32_t leaseCount)
{
    constexpr int COMPACTIONS = 3;
    ServerState server(firstAddress);
    server.settings.SetPreferredListeningAddress(listeningAddress);
    StorageWarnings warnings;
    auto journal = LeaseJournal::Open(server.addresses, warnings);
    std::vector<double> times;
    std::vector<double> switchTimes;
    uint64_t lastSize = 0;
    for (uint32_t i = 0, switches = 0; switches < COMPACTIONS; ++i) {
        const uint32_t client = i % leaseCount;
        const auto start = std::chrono::steady_clock::now();
        server.addresses.AddLease(ClientNumber(client), IPv4Address::FromUint32(firstAddress.ToUint32() + client),
                                  LEASE_DURATION);
        times.push_back(MillisecondsSince(start));
        const uint64_t size = journal->GetSize();
        if (size < lastSize) {
            ++switches;
            switchTimes.push_back(times.back());
        }
        lastSize = size;
    }
    server.addresses.AttachJournal(nullptr);
    journal->StopBackground();
    journal->Finish(true);
    std::sort(times.begin(), times.end());
    std::printf("renewals through %d compactions at %u leases: %zu changes, median %.4f ms, longest %.3f ms;"
                " the changes that switched journals:",
                COMPACTIONS, leaseCount, times.size(), times[times.size() / 2], times.back());
    for (const double time : switchTimes) {
        std::printf(" %.3f", time);
    }
    std::printf(" ms\n");
}

// What a start does with the lease files once its port is bound, with the
// lease file `leaseFile` and the journal `journal` (empty: none) in place.
double TimedStart(const IPv4Address& listeningAddress, const IPv4Address& firstAddress, const std::string& path,
                  const std::string& leaseFile, const std::string& journal)
{
    const auto paths = LeaseJournal::Paths::For(path);
    Tools::ReplaceFileContents(path, leaseFile);
    std::filesystem::remove(paths.journal);
    if (!journal.empty()) {
        Tools::ReplaceFileContents(paths.journal, journal);
    }
    ServerState server(firstAddress);
    StorageWarnings warnings;
    const auto start = std::chrono::steady_clock::now();
    server.settings.SetPreferredListeningAddress(listeningAddress);
    auto opened = LeaseJournal::Open(server.addresses, warnings);
    const double time = MillisecondsSince(start);
    server.addresses.AttachJournal(nullptr);
    opened->StopBackground();
    opened->Finish(true);
    return time;
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
    PrintTimes("load of the lease file at start-up", times);

    std::string leaseFile;
    Tools::ReadWholeFile(path, leaseFile);
    const std::string journal = WriteJournal(listeningAddress, firstAddress, leaseCount);
    std::printf("journal: %zu bytes of renewals\n", journal.size());
    std::vector<double> plain;
    std::vector<double> replayed;
    for (int run = 0; run < runs; ++run) {
        plain.push_back(TimedStart(listeningAddress, firstAddress, path, leaseFile, ""));
        replayed.push_back(TimedStart(listeningAddress, firstAddress, path, leaseFile, journal));
    }
    PrintTimes("start-up step of the lease files, no journal", plain);
    PrintTimes("start-up step of the lease files, with that journal", replayed);
    std::sort(plain.begin(), plain.end());
    std::sort(replayed.begin(), replayed.end());
    std::printf("the journal adds to the start-up: median %.1f ms\n",
                replayed[replayed.size() / 2] - plain[plain.size() / 2]);
    Tools::ReplaceFileContents(path, leaseFile);
    TimeCompactions(listeningAddress, firstAddress, leaseCount);
    Tools::ReplaceFileContents(path, leaseFile);
    Tools::ReplaceFileContents(path + ".journal.sample", journal);
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
