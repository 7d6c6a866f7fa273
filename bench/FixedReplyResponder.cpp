// The floor of the throughput benchmark: answers every DISCOVER with an OFFER
// and every REQUEST with an ACK, built from the request alone, with no state,
// no lease and no log. What perfdhcp reaches against it is what the load
// generator and the veth pair allow; a real server can only come close to it.
//
//   FixedReplyResponder <interface> <server-address>
//
// The offered address is the server's /16 with the last two bytes of chaddr,
// so a client gets the same address in both replies. Ends on SIGTERM.
#include <arpa/inet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace {

constexpr size_t HEADER_SIZE = 240; // fixed fields and the magic cookie
constexpr size_t REPLY_SIZE = 300;  // the usual minimum BOOTP size
constexpr uint8_t COOKIE[4] = {99, 130, 83, 99};
constexpr uint8_t DISCOVER = 1, OFFER = 2, REQUEST = 3, ACK = 5;

// Option 53 of a request, or 0 when it has none. Reads only inside `length`.
uint8_t MessageType(const uint8_t* packet, size_t length)
{
    for (size_t at = HEADER_SIZE; at < length && packet[at] != 255;) {
        if (packet[at] == 0) {
            ++at;
            continue;
        }
        if (at + 1 >= length || at + 2 + packet[at + 1] > length) {
            return 0;
        }
        if (packet[at] == 53 && packet[at + 1] == 1) {
            return packet[at + 2];
        }
        at += 2 + packet[at + 1];
    }
    return 0;
}

// The request's header turned into a reply: xid, flags, giaddr and chaddr stay.
size_t BuildReply(const uint8_t* request, uint8_t type, in_addr_t server, uint8_t* reply)
{
    std::memset(reply, 0, REPLY_SIZE);
    std::memcpy(reply, request, 44); // up to the end of chaddr
    reply[0] = 2;                    // BOOTREPLY
    std::memset(reply + 8, 0, 4);    // secs
    std::memset(reply + 12, 0, 4);   // ciaddr
    const uint32_t yiaddr = (ntohl(server) & 0xFFFF0000u) | (uint32_t(request[32]) << 8) | request[33];
    const uint32_t yiaddrWire = htonl(yiaddr);
    std::memcpy(reply + 16, &yiaddrWire, 4);
    std::memcpy(reply + 236, COOKIE, 4);
    const uint8_t options[] = {53, 1, type, 54, 4, 0, 0, 0, 0, 51, 4, 0, 0, 0x0E, 0x10, 1, 4, 255, 255, 0, 0, 255};
    std::memcpy(reply + HEADER_SIZE, options, sizeof options);
    std::memcpy(reply + HEADER_SIZE + 5, &server, 4);
    return REPLY_SIZE;
}

} // namespace

int main(int argc, char** argv)
{
    in_addr server{};
    if (argc != 3 || inet_pton(AF_INET, argv[2], &server) != 1) {
        std::fprintf(stderr, "usage: FixedReplyResponder <interface> <server-address>\n");
        return 2;
    }
    const int sock = socket(AF_INET, SOCK_DGRAM, 0);
    const int on = 1;
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_port = htons(67);
    if (sock < 0 || setsockopt(sock, SOL_SOCKET, SO_BINDTODEVICE, argv[1], std::strlen(argv[1])) != 0 ||
        setsockopt(sock, SOL_SOCKET, SO_BROADCAST, &on, sizeof on) != 0 ||
        bind(sock, reinterpret_cast<const sockaddr*>(&local), sizeof local) != 0) {
        std::perror("FixedReplyResponder");
        return 1;
    }
    sockaddr_in clients{};
    clients.sin_family = AF_INET;
    clients.sin_port = htons(68);
    clients.sin_addr.s_addr = htonl(INADDR_BROADCAST);
    std::array<uint8_t, 1500> request{};
    std::array<uint8_t, REPLY_SIZE> reply{};
    while (true) {
        const ssize_t length = recv(sock, request.data(), request.size(), 0);
        if (length < static_cast<ssize_t>(HEADER_SIZE) || request[0] != 1 ||
            std::memcmp(request.data() + 236, COOKIE, 4) != 0) {
            continue;
        }
        const uint8_t type = MessageType(request.data(), static_cast<size_t>(length));
        if (type != DISCOVER && type != REQUEST) {
            continue;
        }
        const size_t size = BuildReply(request.data(), type == DISCOVER ? OFFER : ACK, server.s_addr, reply.data());
        sendto(sock, reply.data(), size, 0, reinterpret_cast<const sockaddr*>(&clients), sizeof clients);
    }
}
