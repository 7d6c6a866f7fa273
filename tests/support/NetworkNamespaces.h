#pragma once

#include "foundation/IPv4Address.h"

#include <functional>
#include <optional>
#include <string>
#include <type_traits>

// Network namespaces for tests that send or receive DHCP traffic: nothing of
// it may ever touch the machine's own interfaces.

namespace NetworkNamespaces {

struct CommandResult {
    int exitStatus = -1; // -1 when the command did not end normally
    std::string output;  // standard output and standard error together
};

// Runs a shell command and collects what it prints.
CommandResult RunCommand(const std::string& command);

// "ip netns exec <name> <command>": `command` run inside namespace `name`.
inline std::string ExecIn(const std::string& name, const std::string& command)
{
    return "ip netns exec " + name + " " + command;
}

// Runs `body` on a new thread that has first entered namespace `name`, and
// waits for it; an exception from `body`, or a failure to enter, is raised
// again here. Sockets created there belong to that namespace for good, and
// may then be used from any thread.
void RunOnThreadIn(const std::string& name, const std::function<void()>& body);

// The same, returning what `function` returns.
template <typename Function>
auto RunIn(const std::string& name, Function&& function) -> std::invoke_result_t<Function&>
{
    if constexpr (std::is_void_v<std::invoke_result_t<Function&>>) {
        RunOnThreadIn(name, function);
    } else {
        std::optional<std::invoke_result_t<Function&>> result;
        RunOnThreadIn(name, [&] { result.emplace(function()); });
        return std::move(*result);
    }
}

} // namespace NetworkNamespaces

// Two fresh network namespaces, "server" and "client", joined by a veth pair,
// with loopback up and the addresses .1 (server) and .2 (client) of a
// 10.X.Y.0/24 on the two ends. The destructor removes everything, also when a
// test fails. The names hold the process id and a counter, so tests may run
// in parallel.
class NamespacePair {
public:
    // True when this process can create namespaces (root and `ip netns add`
    // works). Tests that need them GTEST_SKIP with SKIP_MESSAGE otherwise.
    static bool Available();
    static constexpr const char* SKIP_MESSAGE =
        "network namespaces unavailable: run as root with iproute2 (`ip netns add` must work)";

    // Raises std::runtime_error with the failing command and its output.
    NamespacePair();
    ~NamespacePair();
    NamespacePair(const NamespacePair&) = delete;
    NamespacePair& operator=(const NamespacePair&) = delete;

    const std::string& ServerNamespace() const { return serverNamespace; }
    const std::string& ClientNamespace() const { return clientNamespace; }
    const std::string& ServerInterface() const { return serverInterface; }
    const std::string& ClientInterface() const { return clientInterface; }
    IPv4Address ServerAddress() const { return AddressInSubnet(1); }
    IPv4Address ClientAddress() const { return AddressInSubnet(2); }
    // 10.X.Y.host, for further addresses of the same /24.
    IPv4Address AddressInSubnet(uint8_t host) const { return IPv4Address(10, subnet[0], subnet[1], host); }

    // Shell commands inside one side; raise std::runtime_error when the
    // command fails, and return its output otherwise.
    std::string RunInServer(const std::string& command) const;
    std::string RunInClient(const std::string& command) const;

private:
    void Remove() noexcept;

    std::string serverNamespace;
    std::string clientNamespace;
    std::string serverInterface;
    std::string clientInterface;
    uint8_t subnet[2] = {};
};
