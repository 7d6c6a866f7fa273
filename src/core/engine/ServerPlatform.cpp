#include "engine/ServerPlatform.h"

#include "engine/Listener.h"
#include "platform/Capabilities.h"
#include "platform/LocalAddresses.h"
#include "platform/UdpSocket.h"

ServerPlatform ServerPlatform::Linux()
{
    ServerPlatform platform;
    platform.detectLocalAddresses = [] { return LocalAddresses::Detect(); };
    platform.createSocket = []() -> std::unique_ptr<DatagramSocket> { return std::make_unique<UdpSocket>(); };
    platform.canBindPrivilegedPort = [] { return Capabilities::CanBindPort(Listener::SERVER_PORT); };
    return platform;
}
