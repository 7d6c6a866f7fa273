// The cost of the live lease and log views on large tables, as the program
// runs them: the real dialogs on the offscreen platform, their refreshes
// invoked as their timers invoke them, each followed by the painting it causes.
//
//   LiveViewsTiming <lease-count> <log-item-count> [<idle-seconds>]
//
// Fills a lease table (a /16 pool, every lease live for a day) and a log of
// DISCOVER/OFFER/REQUEST/ACK exchanges whose clock moves one second per item,
// so that no two rows share a time text. Then prints, in milliseconds unless
// said otherwise: the first opening of the log window until its first refresh
// is painted, refreshes that append 4,000 items or find nothing new, the
// opening and refresh of the lease view, the CPU time of the GUI thread with
// both windows open and no traffic, and the resident memory of the process.
#include "LeasesDialog.h"
#include "LogBrowserDialog.h"

#include "ClientNumber.h"

#include "allocation/AddressManager.h"
#include "config/Settings.h"
#include "engine/TransactionManager.h"
#include "log/LogManager.h"

#include <QApplication>
#include <QDir>
#include <QEventLoop>
#include <QTemporaryDir>
#include <QTimer>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

namespace {

constexpr int32_t LEASE_DURATION = 86400; // s: every lease stays live while measured
constexpr size_t APPENDED_ITEMS = 4000;
constexpr int REPEATS = 5;

class SteppedClock : public Clock {
public:
    int64_t Now() const override { return now.fetch_add(1); }

private:
    mutable std::atomic<int64_t> now{1'700'000'000};
};

// The state a server keeps, wired as the program wires it, without a socket.
struct ServerState {
    Settings settings;
    TransactionManager transactions;
    AddressManager addresses{&settings, &transactions};
    SteppedClock logClock;
    LogManager log{&settings, &logClock};
    uint32_t exchanges = 0;

    ServerState()
    {
        settings.SetPoolStartAddress(IPv4Address(10, 20, 0, 1));
        settings.SetPoolEndAddress(IPv4Address(10, 20, 255, 254));
        settings.SetSubnetMask(16);
        settings.SetLoggingEnabled(true);
        settings.SetAddressManager(&addresses);
    }

    void AddLeases(uint32_t count)
    {
        for (uint32_t i = 0; i < count; ++i) {
            addresses.AddLease(ClientNumber(i), IPv4Address::FromUint32(0x0A140001u + i), LEASE_DURATION);
        }
    }

    // Whole exchanges of four items, and the first items of one more.
    void AddLogItems(size_t count)
    {
        static constexpr EventType EXCHANGE[] = {DHCPDiscoverReceived, DHCPOfferSent, DHCPRequestReceived,
                                                 DHCPAckSent};
        for (size_t i = 0; i < count; ++i, ++exchanges) {
            const HardwareAddress client = ClientNumber(exchanges / 4 % 60000);
            const IPv4Address address = IPv4Address::FromUint32(0x0A140001u + exchanges / 4 % 60000);
            const EventType type = EXCHANGE[exchanges % 4];
            log.AddLogItem(type, client, type == DHCPDiscoverReceived ? std::nullopt : std::optional(address), false);
        }
    }
};

double ThreadCpuSeconds()
{
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

// The GUI thread's time for a piece of work, in ms: on the clock, and on the
// CPU, which other processes on a busy machine do not stretch.
struct Cost {
    double wall = 0;
    double cpu = 0;
};

Cost Measure(const std::function<void()>& work)
{
    const auto start = std::chrono::steady_clock::now();
    const double cpuStart = ThreadCpuSeconds();
    work();
    return {std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count(),
            (ThreadCpuSeconds() - cpuStart) * 1000};
}

long ResidentKilobytes()
{
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind("VmRSS:", 0) == 0) {
            return std::strtol(line.c_str() + 6, nullptr, 10);
        }
    }
    return -1;
}

// Lets the windows lay out and paint what is pending.
void Settle()
{
    QCoreApplication::processEvents();
    QCoreApplication::processEvents();
}

void Refresh(QObject* view)
{
    QMetaObject::invokeMethod(view, "TimerTimeout", Qt::DirectConnection);
    Settle();
}

void Print(const char* what, const Cost& cost)
{
    std::printf("%-44s cpu %9.2f ms, wall %9.2f ms\n", what, cost.cpu, cost.wall);
}

// The median by CPU time of runs of `prepare` and then a refresh of `view`,
// the other window's timers held meanwhile, so that only this view's work is
// counted.
void PrintRuns(const char* what, const std::function<void()>& prepare, QObject* view, QObject* otherWindow)
{
    const QList<QTimer*> otherTimers =
        otherWindow != nullptr ? otherWindow->findChildren<QTimer*>() : QList<QTimer*>();
    for (QTimer* timer : otherTimers) {
        timer->stop();
    }
    std::vector<Cost> costs;
    for (int run = 0; run < REPEATS; ++run) {
        prepare();
        costs.push_back(Measure([view] { Refresh(view); }));
    }
    for (QTimer* timer : otherTimers) {
        timer->start();
    }
    std::sort(costs.begin(), costs.end(), [](const Cost& a, const Cost& b) { return a.cpu < b.cpu; });
    std::printf("%-44s cpu %9.2f ms, wall %9.2f ms (median of %d; cpu max %.2f ms)\n", what,
                costs[costs.size() / 2].cpu, costs[costs.size() / 2].wall, REPEATS, costs.back().cpu);
}

int Run(uint32_t leaseCount, size_t logItemCount, int idleSeconds)
{
    ServerState state;
    state.AddLeases(leaseCount);
    state.AddLogItems(logItemCount);
    std::printf("%u leases, %zu log items; resident before the views: %ld MB\n", leaseCount, logItemCount,
                ResidentKilobytes() / 1024);

    // As the main window opens it: no parent, shown normal.
    LogBrowserDialog* logWindow = nullptr;
    Print("log window: first opening, refresh painted", Measure([&] {
              logWindow = new LogBrowserDialog(&state.log, nullptr);
              logWindow->showNormal();
              Settle();
          }));
    PrintRuns("log refresh appending 4,000 items", [&] { state.AddLogItems(APPENDED_ITEMS); }, logWindow, nullptr);
    PrintRuns("log refresh with nothing new", [] {}, logWindow, nullptr);

    LeasesDialog* leaseView = nullptr;
    Print("lease view: opening, refresh painted", Measure([&] {
              leaseView = new LeasesDialog(&state.addresses, nullptr);
              leaseView->show();
              Settle();
          }));
    PrintRuns("lease view refresh", [] {}, leaseView, logWindow);

    // Both windows open, no traffic: only their own timers run.
    QEventLoop loop;
    QTimer::singleShot(idleSeconds * 1000, &loop, &QEventLoop::quit);
    const double cpuStart = ThreadCpuSeconds();
    const auto wallStart = std::chrono::steady_clock::now();
    loop.exec();
    const double wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - wallStart).count();
    std::printf("%-44s %9.2f %% of a core (%d s)\n", "GUI thread CPU, both views open, no traffic",
                100.0 * (ThreadCpuSeconds() - cpuStart) / wall, idleSeconds);
    std::printf("%-44s %9ld MB (%zu log items)\n", "resident memory, both views open", ResidentKilobytes() / 1024,
                state.log.GetLogItemCount());

    delete leaseView;
    delete logWindow;
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 3) {
        std::fprintf(stderr, "usage: LiveViewsTiming <lease-count> <log-item-count> [<idle-seconds>]\n");
        return 2;
    }
    const long leaseCount = std::strtol(argv[1], nullptr, 10);
    const long logItemCount = std::strtol(argv[2], nullptr, 10);
    const int idleSeconds = argc > 3 ? std::atoi(argv[3]) : 20;
    if (leaseCount < 0 || leaseCount > 65000 || logItemCount < 0 || idleSeconds <= 0) {
        std::fprintf(stderr, "LiveViewsTiming: bad arguments\n");
        return 2;
    }
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
    }
    QApplication application(argc, argv);
    // The address manager reads "leases.dat" of the working directory.
    const QTemporaryDir folder;
    QDir::setCurrent(folder.path());
    return Run(static_cast<uint32_t>(leaseCount), static_cast<size_t>(logItemCount), idleSeconds);
}
