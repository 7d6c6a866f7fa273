#pragma once

#include "engine/ServerPlatform.h"
#include "foundation/Clock.h"
#include "foundation/IPv4Address.h"
#include "support/FakeDatagramSocket.h"

#include <functional>
#include <memory>
#include <utility>
#include <vector>

// A server platform without any network: every socket is a window on
// `network`, the machine's addresses are what `localAddresses` returns at each
// call, and time is `clock`'s.
inline ServerPlatform FakeServerPlatform(FakeDatagramSocket::Network& network, const Clock* clock,
                                         std::function<std::vector<IPv4Address>()> localAddresses,
                                         bool privileged = true)
{
    ServerPlatform platform;
    platform.detectLocalAddresses = std::move(localAddresses);
    platform.createSocket = [&network] { return std::make_unique<FakeDatagramSocket>(network); };
    platform.canBindPrivilegedPort = [privileged] { return privileged; };
    platform.clock = clock;
    return platform;
}
