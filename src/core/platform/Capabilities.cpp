#include "platform/Capabilities.h"

#include <unistd.h>

#include <fstream>
#include <optional>
#include <sstream>
#include <string>

namespace {

// Bit number of CAP_NET_BIND_SERVICE in the capability sets (linux/capability.h).
constexpr unsigned CAP_NET_BIND_SERVICE_BIT = 10;
constexpr int DEFAULT_UNPRIVILEGED_PORT_START = 1024;

// The effective set as /proc/self/status shows it ("CapEff:\t<16 hex digits>").
// Read from /proc instead of libcap so the program needs no further library.
std::optional<uint64_t> ReadEffectiveCapabilities()
{
    std::ifstream status("/proc/self/status");
    std::string line;
    const std::string key = "CapEff:";
    while (std::getline(status, line)) {
        if (line.compare(0, key.size(), key) != 0) {
            continue;
        }
        std::istringstream value(line.substr(key.size()));
        uint64_t bits = 0;
        if (value >> std::hex >> bits) {
            return bits;
        }
        return std::nullopt;
    }
    return std::nullopt;
}

} // namespace

bool Capabilities::CanBindPrivilegedPort()
{
    if (geteuid() == 0) {
        return true;
    }
    const auto effective = ReadEffectiveCapabilities();
    return effective && ((*effective >> CAP_NET_BIND_SERVICE_BIT) & 1U) != 0;
}

bool Capabilities::IsPrivilegedPort(uint16_t port)
{
    std::ifstream setting("/proc/sys/net/ipv4/ip_unprivileged_port_start");
    int start = DEFAULT_UNPRIVILEGED_PORT_START;
    if (!(setting >> start)) {
        start = DEFAULT_UNPRIVILEGED_PORT_START;
    }
    return port < start;
}
