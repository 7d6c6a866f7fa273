#pragma once

#include "foundation/Clock.h"
#include "foundation/IPv4Address.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

class DatagramSocket;

// What the server needs from the machine. The real program uses Linux();
// tests put fakes in place of sockets, addresses, privileges and the clock.
struct ServerPlatform {
    // Local IPv4 addresses without 127.x.x.x; raises CannotDetermineLocalAddresses.
    std::function<std::vector<IPv4Address>()> detectLocalAddresses;
    // A fresh, unopened socket for each start of the listener.
    std::function<std::unique_ptr<DatagramSocket>()> createSocket;
    // Root, or the capability to bind port 67.
    std::function<bool()> canBindPrivilegedPort;
    // Null means the system clock. Must outlive the server.
    const Clock* clock = nullptr;
    // The folder of settings.cfg and the default log, made the working
    // directory; empty means Tools::GetDataDirectory(). Absolute when set.
    std::string dataDirectory;
    // The folder of the lease files; empty means Tools::GetTempDirectory().
    std::string leasesDirectory;

    static ServerPlatform Linux();
};
