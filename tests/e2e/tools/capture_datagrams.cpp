// Captures the first DISCOVER and the first REQUEST that a DHCP client sends,
// as raw UDP payloads, for the test fixtures. It answers with a minimal OFFER
// and ACK, built byte by byte and not by the server's writer, so that the
// client goes on from DISCOVER to REQUEST.
//
// Run only inside a network namespace (capture-datagrams.sh sets one up and
// bounds the run in time):
//   capture_datagrams <listening address> <offered address> <output prefix>
// writes <prefix>-discover.bin and <prefix>-request.bin. Exit status 0 once
// both are written and the ACK is sent, 2 on bad arguments or a failure.

#include "foundation/AppException.h"
#include "platform/UdpSocket.h"
#include "support/ClientDatagram.h"

#include <algorithm>
#include <fstream>
#include <iostream>
#include <string>

namespace {

constexpr uint8_t DHCPDISCOVER = 1;
constexpr uint8_t DHCPOFFER = 2;
constexpr uint8_t DHCPREQUEST = 3;
constexpr uint8_t DHCPACK = 5;

// A BOOTREPLY of 300 bytes: the request's htype, hlen, chaddr, xid, flags and
// giaddr, yiaddr = the offered address, then options 53, 54, 51 = 3600 s,
// 1 = 255.255.255.0 and End.
ByteString Reply(const ByteString& request, uint8_t type, const IPv4Address& server, const IPv4Address& offered)
{
    const uint32_t xid =
        uint32_t(request[4]) << 24 | uint32_t(request[5]) << 16 | uint32_t(request[6]) << 8 | request[7];
    const std::vector<uint8_t> chaddr(request.begin() + 28, request.begin() + 28 + std::min<uint8_t>(request[2], 16));
    ByteString reply = ClientDatagram(type, xid, chaddr)
                           .Operation(2)
                           .HardwareType(request[1])
                           .BroadcastFlag((request[10] & 0x80) != 0)
                           .GatewayAddress(IPv4Address(request[24], request[25], request[26], request[27]))
                           .ServerIdentifier(server)
                           .Option(51, {0, 0, 0x0e, 0x10})
                           .Option(1, AddressBytes(IPv4Address(255, 255, 255, 0)))
                           .Bytes();
    const ByteString yiaddr = AddressBytes(offered);
    std::copy(yiaddr.begin(), yiaddr.end(), reply.begin() + 16);
    reply.resize(300, 0);
    return reply;
}

void Save(const std::string& path, const ByteString& datagram)
{
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(datagram.data()),
                                                static_cast<std::streamsize>(datagram.size()));
    std::cerr << "capture: saved " << path << " (" << datagram.size() << " bytes)" << std::endl;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 4) {
        std::cerr << "usage: capture_datagrams <listening address> <offered address> <output prefix>\n";
        return 2;
    }
    try {
        const IPv4Address server(argv[1]);
        const IPv4Address offered(argv[2]);
        const std::string prefix = argv[3];
        UdpSocket socket;
        socket.Open(server, 67);
        std::cerr << "capture: listening on " << server.ToString() << ":67" << std::endl;
        bool discoverSaved = false;
        ByteString buffer(65507);
        while (const auto length = socket.Receive(buffer.data(), buffer.size())) {
            const ByteString datagram(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(*length));
            const auto type = datagram.size() >= 240 && datagram[0] == 1 ? FindWireOption(datagram, 53) : std::nullopt;
            const uint8_t kind = type && type->size() == 1 ? type->front() : 0;
            if (kind != DHCPDISCOVER && !(kind == DHCPREQUEST && discoverSaved)) {
                std::cerr << "capture: ignored a datagram of " << datagram.size() << " bytes" << std::endl;
                continue;
            }
            if (kind == DHCPREQUEST || !discoverSaved) {
                Save(prefix + (kind == DHCPREQUEST ? "-request.bin" : "-discover.bin"), datagram);
                discoverSaved = true;
            }
            const ByteString reply = Reply(datagram, kind == DHCPDISCOVER ? DHCPOFFER : DHCPACK, server, offered);
            socket.SendTo(reply.data(), reply.size(), IPv4Address(255, 255, 255, 255), 68);
            if (kind == DHCPREQUEST) {
                return 0;
            }
        }
    } catch (const AppException& failure) {
        std::cerr << "capture: " << failure.GetMessage() << std::endl;
    } catch (const std::exception& failure) {
        std::cerr << "capture: " << failure.what() << std::endl;
    }
    return 2;
}
