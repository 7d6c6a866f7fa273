#include "support/ClientDatagram.h"

#include <algorithm>
#include <stdexcept>
#include <string>

namespace {

constexpr size_t FIXED_PART_LENGTH = 240;

} // namespace

ClientDatagram::operator ByteString() const
{
    ByteString bytes(FIXED_PART_LENGTH, 0);
    bytes[0] = op;
    bytes[1] = 1; // Ethernet
    bytes[2] = static_cast<uint8_t>(chaddr.size());
    for (int i = 0; i < 4; ++i) {
        bytes[4 + i] = static_cast<uint8_t>(xid >> (24 - 8 * i));
        bytes[12 + i] = ciaddr[i];
        bytes[16 + i] = yiaddr[i];
        bytes[24 + i] = giaddr[i];
    }
    bytes[10] = broadcast ? 0x80 : 0;
    std::copy(chaddr.begin(), chaddr.end(), bytes.begin() + 28);
    std::copy_n(ByteString{99, 130, 83, 99}.begin(), 4, bytes.begin() + 236); // the magic cookie
    if (messageType) {
        bytes.insert(bytes.end(), {53, 1, *messageType});
    }
    for (const auto& [code, value] : options) {
        bytes.insert(bytes.end(), {code, static_cast<uint8_t>(value.size())});
        bytes.insert(bytes.end(), value.begin(), value.end());
    }
    bytes.push_back(255);
    return bytes;
}

std::vector<std::pair<uint8_t, ByteString>> WireOptions(const ByteString& datagram)
{
    std::vector<std::pair<uint8_t, ByteString>> options;
    size_t position = FIXED_PART_LENGTH;
    while (position < datagram.size()) {
        const uint8_t code = datagram[position++];
        if (code == 255) {
            options.emplace_back(code, ByteString());
            break;
        }
        if (code == 0) {
            continue;
        }
        if (position >= datagram.size() || position + 1 + datagram[position] > datagram.size()) {
            throw std::runtime_error("option " + std::to_string(code) + " runs past the datagram");
        }
        const auto value = datagram.begin() + static_cast<std::ptrdiff_t>(position) + 1;
        options.emplace_back(code, ByteString(value, value + datagram[position]));
        position += 1 + datagram[position];
    }
    return options;
}
