#pragma once

#include <cstdint>

// What the process may do with the network, asked before the server starts so
// that a missing privilege is reported plainly instead of as a failed bind.
class Capabilities {
public:
    // True for root and for a process whose effective capabilities hold
    // CAP_NET_BIND_SERVICE (e.g. granted with setcap to the program file).
    static bool CanBindPrivilegedPort();

    // Whether binding `port` needs that privilege at all: ports below the
    // network namespace's ip_unprivileged_port_start (1024 unless changed).
    static bool IsPrivilegedPort(uint16_t port);

    // Whether this process may bind `port`: any process may bind a port
    // that is not privileged in its network namespace.
    static bool CanBindPort(uint16_t port) { return !IsPrivilegedPort(port) || CanBindPrivilegedPort(); }
};
