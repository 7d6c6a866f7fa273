// Runs the engine on the real network of whatever namespace it is started in
// ("ip netns exec <ns> tarnvel_engine_driver ..."), until SIGTERM or SIGINT.
// Used by the throughput script; it never chooses a namespace itself.
//
//   --pool START-END   address pool (required)
//   --mask N           prefix length (24)
//   --gateway A --dns1 A --dns2 A   (blank unless given)
//   --lease SECONDS    (3600)
//   --option CODE=DATA additional option, data as decimal bytes ("15=116 97 114 110")
//   --reserve MAC=IP   reservation
//   --listen A         preferred listening address
//   --log PATH         enables logging of every event into PATH
//
// Prints "listening <address>" once started and "stopped <leases>" at the end.
#include "allocation/AddressManager.h"
#include "config/Settings.h"
#include "engine/DHCPServer.h"
#include "foundation/AppException.h"
#include "wire/RawOption.h"

#include <signal.h>

#include <cstdio>
#include <cstring>
#include <iostream>
#include <stdexcept>
#include <string>

namespace {

std::pair<std::string, std::string> SplitAt(const std::string& text, char separator)
{
    const size_t position = text.find(separator);
    if (position == std::string::npos) {
        throw std::invalid_argument("expected '" + std::string(1, separator) + "' in " + text);
    }
    return {text.substr(0, position), text.substr(position + 1)};
}

void Configure(DHCPServer& server, int argumentCount, char** arguments)
{
    Settings& settings = *server.GetSettings();
    settings.SetDefaultGateway(IPv4Address());
    settings.SetDNSAddress1(IPv4Address());
    settings.SetDNSAddress2(IPv4Address());
    for (int i = 1; i + 1 < argumentCount; i += 2) {
        const std::string name = arguments[i];
        const std::string value = arguments[i + 1];
        if (name == "--pool") {
            const auto [start, end] = SplitAt(value, '-');
            settings.SetPoolStartAddress(IPv4Address(start));
            settings.SetPoolEndAddress(IPv4Address(end));
        } else if (name == "--mask") {
            settings.SetSubnetMask(static_cast<uint8_t>(std::stoi(value)));
        } else if (name == "--gateway") {
            settings.SetDefaultGateway(IPv4Address(value));
        } else if (name == "--dns1") {
            settings.SetDNSAddress1(IPv4Address(value));
        } else if (name == "--dns2") {
            settings.SetDNSAddress2(IPv4Address(value));
        } else if (name == "--lease") {
            settings.SetLeaseDuration(std::stoi(value));
        } else if (name == "--option") {
            const auto [code, data] = SplitAt(value, '=');
            settings.GetAdditionalOptions().push_back(RawOption(code, data));
        } else if (name == "--reserve") {
            const auto [mac, address] = SplitAt(value, '=');
            server.GetAddressManager()->AddReservation(AddressReservation(HardwareAddress(mac), IPv4Address(address)));
        } else if (name == "--listen") {
            settings.SetPreferredListeningAddress(IPv4Address(value));
        } else if (name == "--log") {
            settings.SetLoggingEnabled(true);
            settings.SetLogIgnoredDHCPMessages(true);
            settings.SetLogFilePath(value);
        } else {
            throw std::invalid_argument("unknown argument " + name);
        }
    }
}

} // namespace

int main(int argumentCount, char** arguments)
{
    // Blocked before any thread exists, so every thread inherits the mask and
    // only sigwait below sees the signals.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGTERM);
    sigaddset(&stopSignals, SIGINT);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

    try {
        DHCPServer server;
        Configure(server, argumentCount, arguments);
        server.Start();
        std::cout << "listening " << server.GetListeningAddress().ToString() << std::endl;
        int received = 0;
        sigwait(&stopSignals, &received);
        server.Stop();
        std::cout << "stopped " << server.GetAddressManager()->GetLeaseCount() << std::endl;
    } catch (const AppException& exception) {
        std::cerr << "failed: " << exception.GetCode() << " " << exception.GetMessage() << std::endl;
        return 1;
    } catch (const std::exception& exception) {
        std::cerr << "failed: " << exception.what() << std::endl;
        return 2;
    }
    return 0;
}
