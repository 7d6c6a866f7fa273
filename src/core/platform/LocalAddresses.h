#pragma once

#include "foundation/IPv4Address.h"

#include <string>
#include <vector>

// The machine's own IPv4 addresses, as the network interfaces carry them now.
class LocalAddresses {
public:
    // Addresses of the interfaces that are up, in the order the system lists
    // them, without any 127.x.x.x. Raises CannotDetermineLocalAddresses.
    static std::vector<IPv4Address> Detect();

    // The name of the interface that carries `address` (up or not). Raises
    // CannotDetermineInterfaceName when no interface carries it or the list of
    // interfaces cannot be read.
    static std::string FindInterfaceName(const IPv4Address& address);
};
