// Captures the first DISCOVER and the first REQUEST that a DHCP client sends,
// as raw UDP payloads, for the test fixtures. It answers with a minimal OFFER
// and ACK, built by hand, so that the client goes on from DISCOVER to REQUEST.
//
// Run only inside a network namespace (capture-datagrams.sh sets one up):
//   capture_datagrams <listening address> <offered address> <output prefix> [seconds]
// writes <prefix>-discover.bin and <prefix>-request.bin. Exit status 0 once
// both are written and the ACK is sent, 1 on time-out, 2 on bad arguments.

#include "foundation/AppException.h"
#include "foundation/ByteString.h"
#include "foundation/IPv4Address.h"
#include "platform/UdpSocket.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <iterator>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace {

constexpr uint16_t SERVER_PORT = 67;
constexpr uint16_t CLIENT_PORT = 68;
constexpr size_t FIXED_HEADER_LENGTH = 236;
constexpr size_t OPTIONS_OFFSET = 240; // after the magic cookie
constexpr size_t REPLY_LENGTH = 300;
constexpr uint8_t BOOTREQUEST = 1;
constexpr uint8_t BOOTREPLY = 2;
constexpr uint8_t DHCPDISCOVER = 1;
constexpr uint8_t DHCPOFFER = 2;
constexpr uint8_t DHCPREQUEST = 3;
constexpr uint8_t DHCPACK = 5;
constexpr uint8_t MAGIC_COOKIE[4] = {99, 130, 83, 99};
constexpr uint32_t LEASE_SECONDS = 3600;

// The DHCP message type (option 53), or nothing for anything else.
std::optional<uint8_t> MessageType(const ByteString& datagram)
{
    if (datagram.size() < OPTIONS_OFFSET || datagram[0] != BOOTREQUEST) {
        return std::nullopt;
    }
    for (size_t i = 0; i < 4; ++i) {
        if (datagram[FIXED_HEADER_LENGTH + i] != MAGIC_COOKIE[i]) {
            return std::nullopt;
        }
    }
    size_t position = OPTIONS_OFFSET;
    while (position < datagram.size()) {
        const uint8_t code = datagram[position];
        if (code == 255) {
            break;
        }
        if (code == 0) {
            ++position;
            continue;
        }
        if (position + 1 >= datagram.size()) {
            break;
        }
        const size_t length = datagram[position + 1];
        if (position + 2 + length > datagram.size()) {
            break;
        }
        if (code == 53 && length == 1) {
            return datagram[position + 2];
        }
        position += 2 + length;
    }
    return std::nullopt;
}

void PutAddress(ByteString& bytes, size_t offset, const IPv4Address& address)
{
    for (int i = 0; i < 4; ++i) {
        bytes[offset + i] = address[i];
    }
}

void AppendAddressOption(ByteString& bytes, uint8_t code, const IPv4Address& address)
{
    bytes.insert(bytes.end(), {code, 4, address[0], address[1], address[2], address[3]});
}

// A BOOTREPLY of 300 bytes: the request's htype, hlen, xid, flags, giaddr and
// chaddr, yiaddr = the offered address, then options 53, 54, 51, 1 and End.
ByteString BuildReply(const ByteString& request, uint8_t type, const IPv4Address& server, const IPv4Address& offered)
{
    ByteString reply(FIXED_HEADER_LENGTH, 0);
    reply[0] = BOOTREPLY;
    reply[1] = request[1];
    reply[2] = request[2];
    std::copy(request.begin() + 4, request.begin() + 8, reply.begin() + 4);   // xid
    std::copy(request.begin() + 10, request.begin() + 12, reply.begin() + 10); // flags
    PutAddress(reply, 16, offered);
    std::copy(request.begin() + 24, request.begin() + 44, reply.begin() + 24); // giaddr, chaddr
    reply.insert(reply.end(), std::begin(MAGIC_COOKIE), std::end(MAGIC_COOKIE));
    reply.insert(reply.end(), {53, 1, type});
    AppendAddressOption(reply, 54, server);
    reply.insert(reply.end(), {51, 4, static_cast<uint8_t>(LEASE_SECONDS >> 24), static_cast<uint8_t>(LEASE_SECONDS >> 16),
                               static_cast<uint8_t>(LEASE_SECONDS >> 8), static_cast<uint8_t>(LEASE_SECONDS)});
    AppendAddressOption(reply, 1, IPv4Address(255, 255, 255, 0));
    reply.push_back(255);
    reply.resize(REPLY_LENGTH, 0);
    return reply;
}

void Save(const std::string& path, const ByteString& datagram)
{
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(reinterpret_cast<const char*>(datagram.data()), static_cast<std::streamsize>(datagram.size()));
    std::cerr << "capture: saved " << path << " (" << datagram.size() << " bytes)" << std::endl;
}

// Ends the capture when the client never gets as far as a REQUEST.
class Deadline {
public:
    Deadline(DatagramSocket& socket, std::chrono::seconds limit)
        : worker([this, &socket, limit] {
              std::unique_lock lock(mutex);
              if (!wake.wait_for(lock, limit, [this] { return done; })) {
                  socket.Interrupt();
              }
          })
    {
    }
    ~Deadline()
    {
        {
            std::lock_guard lock(mutex);
            done = true;
        }
        wake.notify_one();
        worker.join();
    }

private:
    std::mutex mutex;
    std::condition_variable wake;
    bool done = false;
    std::thread worker;
};

int Capture(const IPv4Address& server, const IPv4Address& offered, const std::string& prefix, int seconds)
{
    UdpSocket socket;
    socket.Open(server, SERVER_PORT);
    std::cerr << "capture: listening on " << server.ToString() << ":" << SERVER_PORT << std::endl;
    const Deadline deadline(socket, std::chrono::seconds(seconds));
    bool discoverSaved = false;
    ByteString buffer(65507);
    for (;;) {
        const auto length = socket.Receive(buffer.data(), buffer.size());
        if (!length) {
            std::cerr << "capture: time-out" << std::endl;
            return 1;
        }
        const ByteString datagram(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(*length));
        const auto type = MessageType(datagram);
        if (type == DHCPDISCOVER) {
            if (!discoverSaved) {
                Save(prefix + "-discover.bin", datagram);
                discoverSaved = true;
            }
            const ByteString offer = BuildReply(datagram, DHCPOFFER, server, offered);
            socket.SendTo(offer.data(), offer.size(), IPv4Address(255, 255, 255, 255), CLIENT_PORT);
        } else if (type == DHCPREQUEST && discoverSaved) {
            Save(prefix + "-request.bin", datagram);
            const ByteString ack = BuildReply(datagram, DHCPACK, server, offered);
            socket.SendTo(ack.data(), ack.size(), IPv4Address(255, 255, 255, 255), CLIENT_PORT);
            return 0;
        } else {
            std::cerr << "capture: ignored a datagram of " << datagram.size() << " bytes" << std::endl;
        }
    }
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 4 || argc > 5) {
        std::cerr << "usage: capture_datagrams <listening address> <offered address> <output prefix> [seconds]\n";
        return 2;
    }
    try {
        const int seconds = argc == 5 ? std::stoi(argv[4]) : 30;
        return Capture(IPv4Address(argv[1]), IPv4Address(argv[2]), argv[3], seconds);
    } catch (const AppException& failure) {
        std::cerr << "capture: " << failure.GetMessage() << std::endl;
        return 2;
    } catch (const std::exception& failure) {
        std::cerr << "capture: " << failure.what() << std::endl;
        return 2;
    }
}
