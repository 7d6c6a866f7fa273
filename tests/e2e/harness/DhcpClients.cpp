#include "harness/DhcpClients.h"

#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

#include <sys/stat.h>

namespace {

// $1 is udhcpc's event, $reason that of dhclient and dhcpcd. dhcpcd puts the
// address on the interface itself (if_configured=true); the other two leave
// it to the script.
const char* const HOOK_SCRIPT = R"(#!/bin/sh
event="${1:-$reason}"
{ echo "EVENT $event"; env; echo "END"; } >> "EVENTS_FILE"
case "$event" in
  bound|renew) [ -n "$ip" ] && ip addr replace "$ip/${mask:-24}" dev "$interface" ;;
  BOUND|RENEW|REBOOT|REBIND)
    if [ -n "$new_ip_address" ] && [ "$if_configured" != "true" ]; then
      ip addr replace "$new_ip_address/$new_subnet_mask" dev "$interface"
    fi ;;
esac
exit 0
)";

std::string Quoted(const std::string& text)
{
    return "'" + text + "'";
}

void WriteFile(const std::string& path, const std::string& contents)
{
    std::ofstream file(path, std::ios::trunc);
    file << contents;
    if (!file) {
        throw std::runtime_error("cannot write " + path);
    }
}

} // namespace

std::string ClientEvent::Get(const std::string& variable) const
{
    const auto found = variables.find(variable);
    return found == variables.end() ? std::string() : found->second;
}

DhcpClients::DhcpClients(const NamespacePair& pair, const std::string& folder) : pair(pair), folder(folder)
{
    std::string script = HOOK_SCRIPT;
    const std::string placeholder = "EVENTS_FILE";
    script.replace(script.find(placeholder), placeholder.size(), FilePath("events"));
    WriteFile(FilePath("hook.sh"), script);
    chmod(FilePath("hook.sh").c_str(), 0700);
    WriteFile(FilePath("events"), "");
    WriteFile(FilePath("dhclient.conf"), "");
    WriteFile(FilePath("resolv.conf"), "# the client's own, never the machine's\n");
}

std::vector<ClientEvent> DhcpClients::Events() const
{
    std::vector<ClientEvent> events;
    std::ifstream file(FilePath("events"));
    std::string line;
    std::optional<ClientEvent> current;
    while (std::getline(file, line)) {
        if (line.rfind("EVENT ", 0) == 0) {
            current = ClientEvent{line.substr(6), {}};
        } else if (line == "END" && current) {
            events.push_back(std::move(*current));
            current.reset();
        } else if (current) {
            const size_t equals = line.find('=');
            if (equals != std::string::npos) {
                current->variables[line.substr(0, equals)] = line.substr(equals + 1);
            }
        }
    }
    return events;
}

std::optional<ClientEvent> DhcpClients::WaitForEvent(const std::string& name, size_t skip,
                                                     std::chrono::milliseconds timeout) const
{
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    for (;;) {
        const std::vector<ClientEvent> events = Events();
        for (size_t i = skip; i < events.size(); ++i) {
            if (events[i].name == name) {
                return events[i];
            }
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            return std::nullopt;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
}

void DhcpClients::ResetInterface(const std::string& mac) const
{
    const std::string interface = pair.ClientInterface();
    pair.RunInClient("ip addr flush dev " + interface);
    pair.RunInClient("ip link set dev " + interface + " address " + mac);
}

NetworkNamespaces::CommandResult DhcpClients::RunUdhcpcOnce() const
{
    // -t 5 -T 1: five DISCOVERs a second apart; -n: give up after them.
    const std::string command = "timeout 30 " + NetworkNamespaces::ExecIn(pair.ClientNamespace(),
        "busybox udhcpc -f -q -n -t 5 -T 1 -A 1 -i " +
            pair.ClientInterface() + " -s " + Quoted(FilePath("hook.sh")));
    return NetworkNamespaces::RunCommand(command);
}

std::unique_ptr<ChildProcess> DhcpClients::StartUdhcpc(bool releaseOnExit) const
{
    std::vector<std::string> command = {"busybox", "udhcpc", "-f", "-t", "5", "-T", "1", "-A", "1", "-i",
                                        pair.ClientInterface(), "-s", FilePath("hook.sh")};
    if (releaseOnExit) {
        command.push_back("-R");
    }
    return std::make_unique<ChildProcess>(InClientNamespace(command), FilePath("udhcpc.out"));
}

std::unique_ptr<ChildProcess> DhcpClients::StartDhclient() const
{
    return std::make_unique<ChildProcess>(
        InClientNamespace({"dhclient", "-4", "-d", "-1", "-v", "-cf", FilePath("dhclient.conf"), "-sf",
                           FilePath("hook.sh"), "-lf", FilePath("dhclient.leases"), "-pf", FilePath("dhclient.pid"),
                           pair.ClientInterface()}),
        FilePath("dhclient.out"));
}

NetworkNamespaces::CommandResult DhcpClients::RunDhcpcdOnce() const
{
    // "ip netns exec" gives the command a mount namespace of its own whose
    // mounts never reach the machine; unshare makes one more, private, so
    // that dhcpcd's duid, secret, lease, pid and socket files and any
    // resolv.conf it wrote land in throw-away places.
    const std::string contained =
        "mount -t tmpfs tmpfs /var/lib/dhcpcd && mount -t tmpfs tmpfs /run && mount --bind " +
        FilePath("resolv.conf") + " /etc/resolv.conf && exec dhcpcd -f /dev/null -c " + FilePath("hook.sh") +
        " -4 -1 -B -A -L -t 20 " + pair.ClientInterface();
    const std::string command = "timeout 40 " + NetworkNamespaces::ExecIn(pair.ClientNamespace(),
        "unshare --mount --propagation private sh -c " + Quoted(contained));
    return NetworkNamespaces::RunCommand(command);
}

std::vector<std::string> DhcpClients::InClientNamespace(const std::vector<std::string>& command) const
{
    std::vector<std::string> arguments = {"ip", "netns", "exec", pair.ClientNamespace()};
    arguments.insert(arguments.end(), command.begin(), command.end());
    return arguments;
}
