#include "support/ClientDatagram.h"

#include <algorithm>
#include <iterator>
#include <stdexcept>

namespace {

constexpr size_t FIXED_PART_LENGTH = 240;
constexpr size_t CHADDR_OFFSET = 28;
constexpr uint8_t MAGIC_COOKIE[4] = {99, 130, 83, 99};

void PutAddress(ByteString& bytes, size_t offset, const IPv4Address& address)
{
    for (int i = 0; i < 4; ++i) {
        bytes[offset + i] = address[i];
    }
}

} // namespace

ClientDatagram::ClientDatagram(uint8_t messageType, uint32_t xid, const std::vector<uint8_t>& chaddr)
    : xid(xid), chaddr(chaddr), messageType(messageType)
{
}

ClientDatagram& ClientDatagram::Operation(uint8_t value)
{
    op = value;
    return *this;
}

ClientDatagram& ClientDatagram::HardwareType(uint8_t value)
{
    htype = value;
    return *this;
}

ClientDatagram& ClientDatagram::HardwareAddress(const std::vector<uint8_t>& value)
{
    if (value.size() > 16) {
        throw std::invalid_argument("chaddr holds 16 bytes at most");
    }
    chaddr = value;
    return *this;
}

ClientDatagram& ClientDatagram::BroadcastFlag(bool set)
{
    broadcast = set;
    return *this;
}

ClientDatagram& ClientDatagram::ClientAddress(const IPv4Address& value)
{
    ciaddr = value;
    return *this;
}

ClientDatagram& ClientDatagram::GatewayAddress(const IPv4Address& value)
{
    giaddr = value;
    return *this;
}

ClientDatagram& ClientDatagram::RequestedAddress(const IPv4Address& address)
{
    return Option(50, AddressBytes(address));
}

ClientDatagram& ClientDatagram::ServerIdentifier(const IPv4Address& address)
{
    return Option(54, AddressBytes(address));
}

ClientDatagram& ClientDatagram::ParameterRequestList(const ByteString& codes)
{
    return Option(55, codes);
}

ClientDatagram& ClientDatagram::ClientIdentifier(const ByteString& identifier)
{
    return Option(61, identifier);
}

ClientDatagram& ClientDatagram::Option(uint8_t code, const ByteString& value)
{
    options.emplace_back(code, value);
    return *this;
}

ClientDatagram& ClientDatagram::WithoutMessageType()
{
    messageType.reset();
    return *this;
}

ByteString ClientDatagram::Bytes() const
{
    ByteString bytes(FIXED_PART_LENGTH, 0);
    bytes[0] = op;
    bytes[1] = htype;
    bytes[2] = static_cast<uint8_t>(chaddr.size());
    for (int i = 0; i < 4; ++i) {
        bytes[4 + i] = static_cast<uint8_t>(xid >> (24 - 8 * i));
    }
    bytes[10] = broadcast ? 0x80 : 0;
    PutAddress(bytes, 12, ciaddr);
    PutAddress(bytes, 24, giaddr);
    std::copy(chaddr.begin(), chaddr.end(), bytes.begin() + CHADDR_OFFSET);
    std::copy(std::begin(MAGIC_COOKIE), std::end(MAGIC_COOKIE), bytes.begin() + 236);
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
        if (position >= datagram.size()) {
            throw std::runtime_error("option without length byte");
        }
        const size_t length = datagram[position++];
        if (position + length > datagram.size()) {
            throw std::runtime_error("option runs past the datagram");
        }
        options.push_back({code, ByteString(datagram.begin() + position, datagram.begin() + position + length)});
        position += length;
    }
    return options;
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

ByteString AddressBytes(const IPv4Address& address)
{
    return {address[0], address[1], address[2], address[3]};
}
