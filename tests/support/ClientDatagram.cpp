#include "support/ClientDatagram.h"

#include <algorithm>
#include <iterator>
#include <stdexcept>

namespace {

constexpr size_t FIXED_PART_LENGTH = 240;

struct WireOption {
    uint8_t code;
    ByteString value;
};

// Pad is skipped; End ends the walk and is listed last.
std::vector<WireOption> ReadWireOptions(const ByteString& datagram)
{
    std::vector<WireOption> options;
    size_t position = FIXED_PART_LENGTH;
    while (position < datagram.size()) {
        const uint8_t code = datagram[position++];
        if (code == 0) {
            continue;
        }
        if (code == 255) {
            options.push_back({code, {}});
            break;
        }
        if (position >= datagram.size() || position + 1 + datagram[position] > datagram.size()) {
            throw std::runtime_error("option " + std::to_string(code) + " runs past the datagram");
        }
        const size_t length = datagram[position++];
        options.push_back({code, ByteString(datagram.begin() + position, datagram.begin() + position + length)});
        position += length;
    }
    return options;
}

} // namespace

ByteString ClientDatagram::Bytes() const
{
    ByteString bytes(FIXED_PART_LENGTH, 0);
    bytes[0] = op;
    bytes[1] = 1; // Ethernet
    bytes[2] = static_cast<uint8_t>(chaddr.size());
    for (int i = 0; i < 4; ++i) {
        bytes[4 + i] = static_cast<uint8_t>(xid >> (24 - 8 * i));
        bytes[12 + i] = ciaddr[i];
        bytes[24 + i] = giaddr[i];
    }
    bytes[10] = broadcast ? 0x80 : 0;
    std::copy(chaddr.begin(), chaddr.end(), bytes.begin() + 28);
    const uint8_t magicCookie[] = {99, 130, 83, 99};
    std::copy(std::begin(magicCookie), std::end(magicCookie), bytes.begin() + 236);
    if (messageType) {
        bytes.insert(bytes.end(), {53, 1, *messageType});
    }
    for (const auto& [code, value] : options) {
        bytes.push_back(code);
        bytes.push_back(static_cast<uint8_t>(value.size()));
        bytes.insert(bytes.end(), value.begin(), value.end());
    }
    bytes.push_back(255);
    return bytes;
}

std::vector<uint8_t> WireOptionCodes(const ByteString& datagram)
{
    std::vector<uint8_t> codes;
    for (const WireOption& option : ReadWireOptions(datagram)) {
        codes.push_back(option.code);
    }
    return codes;
}

std::optional<ByteString> FindWireOption(const ByteString& datagram, uint8_t code)
{
    for (const WireOption& option : ReadWireOptions(datagram)) {
        if (option.code == code) {
            return option.value;
        }
    }
    return std::nullopt;
}

std::vector<uint8_t> TestMac(uint32_t number)
{
    return {0x02, 0x00, static_cast<uint8_t>(number >> 24), static_cast<uint8_t>(number >> 16),
            static_cast<uint8_t>(number >> 8), static_cast<uint8_t>(number)};
}
