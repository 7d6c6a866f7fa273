// Feeds arbitrary datagrams to the whole engine (listener, processor,
// transactions, address choice, lease table) through its receive thread on a
// fake socket, with a clock that the input moves: the first byte says how
// many seconds pass before the datagram arrives, so purges, offers that age
// out and leases that expire all happen. The pool is small, so it fills and
// "no address" comes up too. The additional options crowd the reply area, so
// the client's request list decides what fits. Every reply must fit 576
// bytes, end with End, parse again and be a BOOTREPLY; the receive thread
// must come back for more every time.

#include "engine/DHCPServer.h"
#include "allocation/AddressManager.h"
#include "config/Settings.h"
#include "foundation/AppException.h"
#include "wire/DHCPMessage.h"

#include "support/FakeDatagramSocket.h"
#include "support/FakeServerPlatform.h"
#include "support/ManualClock.h"
#include "support/TestHardware.h"

#include <cstdlib>
#include <initializer_list>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace {

constexpr size_t LARGEST_REPLY = 576;

// `count` data bytes of value `value`, as the user enters them.
std::string DataText(int count, int value)
{
    std::string text = std::to_string(value);
    for (int i = 1; i < count; ++i) {
        text += " " + std::to_string(value);
    }
    return text;
}

// More than the area holds: a code given twice (the first is sent), codes the
// server writes itself or never writes (their data is never sent), and the
// longest data there is.
std::vector<RawOption> CrowdingOptions()
{
    std::vector<RawOption> options;
    for (const auto& [code, count] : std::initializer_list<std::pair<const char*, int>>{
             {"43", 200}, {"43", 3}, {"224", 254}, {"150", 100}, {"0", 4}, {"12", 5}, {"3", 4}, {"51", 4}, {"60", 1}}) {
        options.emplace_back(code, DataText(count, count % 250));
    }
    return options;
}

struct Engine {
    FakeDatagramSocket::Network network;
    ManualClock clock;
    std::unique_ptr<DHCPServer> server;

    Engine()
    {
        // The lease file of the listening address goes to a folder of its own.
        char folder[] = "/tmp/tarnvel-engine-fuzz.XXXXXX";
        if (mkdtemp(folder) == nullptr) {
            abort();
        }
        setenv("TEMP", folder, 1);
        server = std::make_unique<DHCPServer>(
            FakeServerPlatform(network, &clock, [] { return std::vector<IPv4Address>{IPv4Address(10, 0, 0, 1)}; }));
        Settings& settings = *server->GetSettings();
        settings.SetPoolStartAddress(IPv4Address(10, 0, 0, 100));
        settings.SetPoolEndAddress(IPv4Address(10, 0, 0, 115));
        settings.SetSubnetMask(24);
        settings.SetDefaultGateway(IPv4Address(10, 0, 0, 254));
        settings.SetDNSAddress1(IPv4Address(10, 0, 0, 53));
        settings.SetDNSAddress2(IPv4Address(10, 0, 0, 54));
        settings.SetLeaseDuration(30);
        settings.GetAdditionalOptions() = CrowdingOptions();
        // Logging stays off: the in-memory log only grows, which a run of
        // millions of inputs would turn into a memory limit, not a finding.
        settings.SetLoggingEnabled(false);
        server->GetAddressManager()->AddReservation(AddressReservation(TestHardware('A'), IPv4Address(10, 0, 0, 105)));
        server->Start();
    }
};

void CheckReply(const FakeDatagramSocket::SentDatagram& sent)
{
    if (sent.data.size() > LARGEST_REPLY || sent.data.back() != MessageOptions::End) {
        abort();
    }
    const DHCPMessage reply(sent.data.data(), sent.data.size());
    if (reply.GetOperation() != 2) {
        abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    // Never destroyed: the receive thread runs until the process ends.
    static Engine* const engine = new Engine();
    if (size == 0) {
        return 0;
    }
    engine->clock.Advance(data[0] % 8);
    engine->network.Deliver(ByteString(data + 1, data + size));
    if (!engine->network.WaitUntilIdle()) {
        abort(); // the receive thread did not come back for more
    }
    for (const auto& sent : engine->network.TakeSent()) {
        CheckReply(sent);
    }
    return 0;
}
