// Cost of whole DISCOVER/OFFER/REQUEST/ACK exchanges through the real
// engine: the listener's receive thread, the parser, the message processor,
// the transaction table, the address manager, the reply builder and the log,
// on an in-process socket that plays a crowd of broadcasting clients.
//
// Reported per completed exchange: wall time, CPU time of the whole process
// (receive thread, saving thread and all) and heap allocations.
#include "config/Settings.h"
#include "engine/DHCPServer.h"
#include "engine/ServerPlatform.h"
#include "foundation/AppException.h"
#include "log/LogItem.h"
#include "log/LogManager.h"
#include "platform/DatagramSocket.h"

#include <benchmark/benchmark.h>

#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <memory>
#include <mutex>
#include <new>
#include <string>

#include <unistd.h>

// ---- Heap allocations, counted over the whole process ----------------------

// Kept out of line: inlined, GCC takes the free of a block from the replaced
// operator new for a mismatched pair.
namespace {
std::atomic<uint64_t> allocationCount{0};
} // namespace

[[gnu::noinline]] void* operator new(std::size_t size)
{
    allocationCount.fetch_add(1, std::memory_order_relaxed);
    if (void* block = std::malloc(size == 0 ? 1 : size)) {
        return block;
    }
    throw std::bad_alloc();
}

[[gnu::noinline]] void* operator new[](std::size_t size)
{
    return operator new(size);
}

[[gnu::noinline]] void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    allocationCount.fetch_add(1, std::memory_order_relaxed);
    return std::malloc(size == 0 ? 1 : size);
}

[[gnu::noinline]] void* operator new[](std::size_t size, const std::nothrow_t& tag) noexcept
{
    return operator new(size, tag);
}

[[gnu::noinline]] void operator delete(void* block) noexcept
{
    std::free(block);
}

[[gnu::noinline]] void operator delete[](void* block) noexcept
{
    std::free(block);
}

[[gnu::noinline]] void operator delete(void* block, std::size_t) noexcept
{
    std::free(block);
}

[[gnu::noinline]] void operator delete[](void* block, std::size_t) noexcept
{
    std::free(block);
}

namespace {

const IPv4Address SERVER_ADDRESS(10, 0, 0, 1);
constexpr size_t EXCHANGES_PER_BATCH = 1000;

double ProcessCpuSeconds()
{
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

// The datagram of a client as perfdhcp sends it: broadcast flag, chaddr, and
// options 53, 50 and 54 (REQUEST only), 55, End.
class ClientDatagrams {
public:
    static constexpr size_t LENGTH = 300;

    // Writes the datagram into `buffer` (at least LENGTH bytes).
    static void Discover(uint8_t* buffer, uint32_t client)
    {
        size_t position = Header(buffer, client);
        position = PutMessageType(buffer, position, 1);
        position = PutParameterRequestList(buffer, position);
        Finish(buffer, position);
    }

    static void Request(uint8_t* buffer, uint32_t client, const uint8_t (&offered)[4])
    {
        size_t position = Header(buffer, client);
        position = PutMessageType(buffer, position, 3);
        position = PutAddress(buffer, position, 50, offered);
        const uint8_t server[4] = {SERVER_ADDRESS[0], SERVER_ADDRESS[1], SERVER_ADDRESS[2], SERVER_ADDRESS[3]};
        position = PutAddress(buffer, position, 54, server);
        position = PutParameterRequestList(buffer, position);
        Finish(buffer, position);
    }

    static uint32_t TransactionIDOf(uint32_t client) { return 0x5A000000u ^ client; }

private:
    static size_t Header(uint8_t* buffer, uint32_t client)
    {
        std::memset(buffer, 0, LENGTH);
        buffer[0] = 1; // BOOTREQUEST
        buffer[1] = 1; // Ethernet
        buffer[2] = 6;
        const uint32_t xid = TransactionIDOf(client);
        buffer[4] = static_cast<uint8_t>(xid >> 24);
        buffer[5] = static_cast<uint8_t>(xid >> 16);
        buffer[6] = static_cast<uint8_t>(xid >> 8);
        buffer[7] = static_cast<uint8_t>(xid);
        buffer[10] = 0x80; // broadcast flag
        const uint8_t mac[6] = {0x02, 0x42, static_cast<uint8_t>(client >> 24), static_cast<uint8_t>(client >> 16),
                                static_cast<uint8_t>(client >> 8), static_cast<uint8_t>(client)};
        std::memcpy(buffer + 28, mac, sizeof mac);
        const uint8_t cookie[4] = {99, 130, 83, 99};
        std::memcpy(buffer + 236, cookie, sizeof cookie);
        return 240;
    }

    static size_t PutMessageType(uint8_t* buffer, size_t position, uint8_t type)
    {
        buffer[position] = 53;
        buffer[position + 1] = 1;
        buffer[position + 2] = type;
        return position + 3;
    }

    static size_t PutAddress(uint8_t* buffer, size_t position, uint8_t code, const uint8_t (&address)[4])
    {
        buffer[position] = code;
        buffer[position + 1] = 4;
        std::memcpy(buffer + position + 2, address, 4);
        return position + 6;
    }

    static size_t PutParameterRequestList(uint8_t* buffer, size_t position)
    {
        const uint8_t list[] = {55, 7, 1, 28, 2, 3, 15, 6, 12};
        std::memcpy(buffer + position, list, sizeof list);
        return position + sizeof list;
    }

    static void Finish(uint8_t* buffer, size_t position) { buffer[position] = 255; }
};

// Plays the clients on the server's receive thread: each exchange is a
// DISCOVER, then, once the OFFER is out, the REQUEST for the offered address.
// The benchmark thread grants a number of exchanges and waits until they are
// done; between batches Receive waits like an idle socket.
class ClientCrowd {
public:
    explicit ClientCrowd(uint32_t clientCount) : clientCount(clientCount) {}

    // Runs `count` more exchanges and waits until they are over.
    void RunExchanges(size_t count)
    {
        std::unique_lock lock(mutex);
        granted += count;
        changed.notify_all();
        changed.wait(lock, [this] { return finished == granted; });
    }

    size_t GetCompleted() const { return completed.load(); }
    size_t GetFailed() const { return failed.load(); }

    // Socket side, receive thread.
    std::optional<size_t> NextDatagram(uint8_t* buffer, size_t capacity)
    {
        if (capacity < ClientDatagrams::LENGTH) {
            throw AppException(AppException::ReceiveError);
        }
        if (offerPending) {
            offerPending = false;
            ClientDatagrams::Request(buffer, currentClient, offeredAddress);
            requestPending = true;
            return ClientDatagrams::LENGTH;
        }
        std::unique_lock lock(mutex);
        if (started > finished) {
            // The last exchange got no OFFER or no ACK.
            requestPending = false;
            failed.fetch_add(1);
            if (++finished == granted) {
                changed.notify_all();
            }
        }
        changed.wait(lock, [this] { return interrupted || started < granted; });
        if (interrupted) {
            return std::nullopt;
        }
        ++started;
        lock.unlock();
        currentClient = nextClient;
        nextClient = (nextClient + 1) % clientCount;
        ClientDatagrams::Discover(buffer, currentClient);
        return ClientDatagrams::LENGTH;
    }

    void Reply(const uint8_t* data, size_t length)
    {
        if (length < 244) {
            return;
        }
        const int type = MessageTypeOf(data, length);
        if (type == 2 && !requestPending) {
            std::memcpy(offeredAddress, data + 16, 4);
            offerPending = true;
        } else if (type == 5 && requestPending) {
            requestPending = false;
            completed.fetch_add(1);
            const std::lock_guard lock(mutex);
            // Only the end of a batch wakes the benchmark thread.
            if (++finished == granted) {
                changed.notify_all();
            }
        }
    }

    void Interrupt()
    {
        const std::lock_guard lock(mutex);
        interrupted = true;
        changed.notify_all();
    }

private:
    static int MessageTypeOf(const uint8_t* data, size_t length)
    {
        size_t position = 240;
        while (position + 2 < length && data[position] != 255) {
            if (data[position] == 53) {
                return data[position + 2];
            }
            position += 2 + data[position + 1];
        }
        return -1;
    }

    const uint32_t clientCount;
    std::mutex mutex;
    std::condition_variable changed;
    size_t granted = 0;  // exchanges the benchmark has asked for
    size_t started = 0;  // DISCOVERs handed out
    size_t finished = 0; // exchanges over, with an ACK or failed
    bool interrupted = false;
    std::atomic<size_t> completed{0};
    std::atomic<size_t> failed{0};

    // Receive thread only.
    uint32_t nextClient = 0;
    uint32_t currentClient = 0;
    bool offerPending = false;
    bool requestPending = false;
    uint8_t offeredAddress[4] = {};
};

class CrowdSocket : public DatagramSocket {
public:
    explicit CrowdSocket(ClientCrowd& crowd) : crowd(crowd) {}
    void Open(const IPv4Address&, uint16_t) override {}
    std::optional<size_t> Receive(uint8_t* buffer, size_t capacity) override
    {
        return crowd.NextDatagram(buffer, capacity);
    }
    void Interrupt() override { crowd.Interrupt(); }
    void SendTo(const uint8_t* data, size_t length, const IPv4Address&, uint16_t) override
    {
        crowd.Reply(data, length);
    }
    void Close() override {}

private:
    ClientCrowd& crowd;
};

std::string MakeTemporaryFolder()
{
    std::string pattern = "/tmp/tarnvel-enginebench-XXXXXX";
    if (::mkdtemp(pattern.data()) == nullptr) {
        std::perror("mkdtemp");
        std::exit(1);
    }
    return pattern;
}

// A running server with a /16 pool, lease files and log in a private folder.
class BenchServer {
public:
    BenchServer(uint32_t clientCount, bool logging) : folder(MakeTemporaryFolder()), crowd(clientCount)
    {
        setenv("TEMP", (folder + "/").c_str(), 1);
        ServerPlatform platform;
        platform.detectLocalAddresses = [] { return std::vector<IPv4Address>{SERVER_ADDRESS}; };
        platform.createSocket = [this]() -> std::unique_ptr<DatagramSocket> {
            return std::make_unique<CrowdSocket>(crowd);
        };
        platform.canBindPrivilegedPort = [] { return true; };
        server = std::make_unique<DHCPServer>(platform);
        Settings& settings = *server->GetSettings();
        settings.SetPoolStartAddress(IPv4Address(10, 0, 0, 10));
        settings.SetPoolEndAddress(IPv4Address(10, 0, 255, 254));
        settings.SetSubnetMask(16);
        settings.SetDefaultGateway(SERVER_ADDRESS);
        settings.SetDNSAddress1(SERVER_ADDRESS);
        settings.SetLeaseDuration(3600);
        settings.SetLoggingEnabled(logging);
        settings.SetLogIgnoredDHCPMessages(true);
        settings.SetLogFilePath(folder + "/log.txt");
        server->Start();
    }

    ~BenchServer()
    {
        server.reset();
        std::filesystem::remove_all(folder);
    }

    BenchServer(const BenchServer&) = delete;
    BenchServer& operator=(const BenchServer&) = delete;

    ClientCrowd& Crowd() { return crowd; }
    size_t LogItemCount() { return server->GetLogManager()->GetLogItemCount(); }

private:
    std::string folder;
    ClientCrowd crowd;
    std::unique_ptr<DHCPServer> server;
};

void ReportPerExchange(benchmark::State& state, size_t exchanges, double cpuSeconds, uint64_t allocations)
{
    const double count = static_cast<double>(exchanges);
    state.counters["exchanges"] = count;
    state.counters["cpu_us/exchange"] = cpuSeconds * 1e6 / count;
    state.counters["allocs/exchange"] = static_cast<double>(allocations) / count;
    state.counters["wall/exchange"] =
        benchmark::Counter(static_cast<double>(EXCHANGES_PER_BATCH),
                           benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

// Runs batches of exchanges on `server` and reports them.
void RunBatches(benchmark::State& state, BenchServer& server)
{
    const size_t failedBefore = server.Crowd().GetFailed();
    const uint64_t allocationsBefore = allocationCount.load();
    const double cpuBefore = ProcessCpuSeconds();
    size_t exchanges = 0;
    for (auto _ : state) {
        server.Crowd().RunExchanges(EXCHANGES_PER_BATCH);
        exchanges += EXCHANGES_PER_BATCH;
    }
    const double cpuSeconds = ProcessCpuSeconds() - cpuBefore;
    const uint64_t allocations = allocationCount.load() - allocationsBefore;
    if (server.Crowd().GetFailed() != failedBefore) {
        state.SkipWithError("an exchange ended without its OFFER or ACK");
        return;
    }
    ReportPerExchange(state, exchanges, cpuSeconds, allocations);
}

// Clients that come back: after one untimed round every client holds a
// lease, so the address choice finds it at once and the engine's own cost
// stands out.
void BM_ExchangeKnownClients(benchmark::State& state)
{
    const uint32_t clients = static_cast<uint32_t>(state.range(0));
    BenchServer server(clients, state.range(1) != 0);
    server.Crowd().RunExchanges(clients);
    RunBatches(state, server);
    state.counters["log_items"] = static_cast<double>(server.LogItemCount());
    state.counters["log_item_bytes"] = static_cast<double>(sizeof(LogItem));
}
BENCHMARK(BM_ExchangeKnownClients)
    ->ArgNames({"clients", "logging"})
    ->Args({1000, 0})
    ->Args({1000, 1})
    ->Args({60000, 0})
    ->Args({60000, 1})
    ->Iterations(50)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

// Clients never seen before, each taking the lowest free address of a pool
// that fills up: 60 batches of 1000 exchanges, 60,000 leases at the end.
void BM_ExchangeNewClients(benchmark::State& state)
{
    BenchServer server(60000, state.range(0) != 0);
    RunBatches(state, server);
    state.counters["log_items"] = static_cast<double>(server.LogItemCount());
}
BENCHMARK(BM_ExchangeNewClients)
    ->ArgNames({"logging"})
    ->Arg(0)
    ->Arg(1)
    ->Iterations(60)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
