#include "wire/DHCPMessage.h"

#include "foundation/AppException.h"
#include "foundation/Precondition.h"

#include <algorithm>
#include <array>
#include <bit>
#include <climits>
#include <cstring>

namespace {

constexpr size_t OP_OFFSET = 0;
constexpr size_t HTYPE_OFFSET = 1;
constexpr size_t HLEN_OFFSET = 2;
constexpr size_t HOPS_OFFSET = 3;
constexpr size_t XID_OFFSET = 4;
constexpr size_t SECS_OFFSET = 8;
constexpr size_t FLAGS_OFFSET = 10;
constexpr size_t CIADDR_OFFSET = 12;
constexpr size_t YIADDR_OFFSET = 16;
constexpr size_t SIADDR_OFFSET = 20;
constexpr size_t GIADDR_OFFSET = 24;
constexpr size_t CHADDR_OFFSET = 28;
constexpr size_t SNAME_OFFSET = 44;
constexpr size_t SNAME_LENGTH = 64;
constexpr size_t FILE_OFFSET = 108;
constexpr size_t FILE_LENGTH = 128;
constexpr size_t COOKIE_OFFSET = 236;
constexpr std::array<uint8_t, 4> MAGIC_COOKIE = {99, 130, 83, 99};
constexpr uint8_t BROADCAST_BIT = 0x80;

uint32_t ReadUint32(const uint8_t* bytes)
{
    return (uint32_t{bytes[0]} << 24) | (uint32_t{bytes[1]} << 16) | (uint32_t{bytes[2]} << 8) | bytes[3];
}

uint16_t ReadUint16(const uint8_t* bytes)
{
    return static_cast<uint16_t>((bytes[0] << 8) | bytes[1]);
}

IPv4Address ReadAddress(const uint8_t* bytes)
{
    return IPv4Address(bytes[0], bytes[1], bytes[2], bytes[3]);
}

// Text up to the first zero byte, or the whole field when it holds none: a
// name that fills its field is taken as it stands rather than refused.
std::string ReadText(const uint8_t* field, size_t fieldLength)
{
    const uint8_t* end = std::find(field, field + fieldLength, uint8_t{0});
    return std::string(field, end);
}

void WriteUint32(uint8_t* bytes, uint32_t value)
{
    bytes[0] = static_cast<uint8_t>(value >> 24);
    bytes[1] = static_cast<uint8_t>(value >> 16);
    bytes[2] = static_cast<uint8_t>(value >> 8);
    bytes[3] = static_cast<uint8_t>(value);
}

void WriteUint16(uint8_t* bytes, uint16_t value)
{
    bytes[0] = static_cast<uint8_t>(value >> 8);
    bytes[1] = static_cast<uint8_t>(value);
}

void WriteAddress(uint8_t* bytes, const IPv4Address& address)
{
    for (int i = 0; i < 4; ++i) {
        bytes[i] = address[i];
    }
}

// Writes code, length and value at `position` when the whole option fits
// before `limit`; otherwise leaves the area and the position alone.
void PutOption(uint8_t* area, size_t& position, size_t limit, uint8_t code, const uint8_t* value,
               size_t valueLength)
{
    const size_t optionLength = 2 + valueLength;
    if (optionLength > limit - position) {
        return;
    }
    area[position] = code;
    area[position + 1] = static_cast<uint8_t>(valueLength);
    std::copy(value, value + valueLength, area + position + 2);
    position += optionLength;
}

void PutAddressOption(uint8_t* area, size_t& position, size_t limit, uint8_t code, const IPv4Address& address)
{
    uint8_t value[4];
    WriteAddress(value, address);
    PutOption(area, position, limit, code, value, sizeof value);
}

[[noreturn]] void RejectOptionLength()
{
    throw AppException(AppException::OptionLengthNotValid);
}

} // namespace

DHCPMessage::DHCPMessage(const uint8_t* data, size_t length)
{
    PRECONDITION(data != nullptr || length == 0);
    ParseHeader(data, length);
    ParseOptions(data, length);
}

DHCPMessage::DHCPMessage(const RawMessage& rawMessage)
    : DHCPMessage(rawMessage.GetData(), rawMessage.GetLength())
{
}

void DHCPMessage::SetServerName(const std::string& value)
{
    PRECONDITION(value.length() < SNAME_LENGTH);
    serverName = value;
}

void DHCPMessage::SetBootFileName(const std::string& value)
{
    PRECONDITION(value.length() < FILE_LENGTH);
    bootFileName = value;
}

ClientIdentifier DHCPMessage::GetClientIdentifier() const
{
    if (options.IsOptionPresent(MessageOptions::ClientIdentifierCode)) {
        return options.GetClientIdentifier();
    }
    return ClientIdentifier(hardwareAddress);
}

// ---- Parsing ----------------------------------------------------------------

void DHCPMessage::ParseHeader(const uint8_t* data, size_t length)
{
    // Invariant: every header read below lies within the first 240 bytes.
    if (length < FIXED_PART_LENGTH) {
        throw AppException(AppException::MessageParsingError);
    }
    const uint8_t op = data[OP_OFFSET];
    if (op != BOOTREQUEST && op != BOOTREPLY) {
        throw AppException(AppException::MessageParsingError);
    }
    const uint8_t htype = data[HTYPE_OFFSET];
    if (!HardwareAddress::IsValidType(htype)) {
        throw AppException(AppException::MessageParsingError);
    }
    const uint8_t hlen = data[HLEN_OFFSET];
    if (hlen > HardwareAddress::MAX_LENGTH) {
        throw AppException(AppException::MessageParsingError);
    }
    operation = op;
    hops = data[HOPS_OFFSET];
    transactionID = ReadUint32(data + XID_OFFSET);
    seconds = ReadUint16(data + SECS_OFFSET);
    broadcastFlag = (data[FLAGS_OFFSET] & BROADCAST_BIT) != 0;
    clientIPAddress = ReadAddress(data + CIADDR_OFFSET);
    yourIPAddress = ReadAddress(data + YIADDR_OFFSET);
    serverIPAddress = ReadAddress(data + SIADDR_OFFSET);
    gatewayIPAddress = ReadAddress(data + GIADDR_OFFSET);
    hardwareAddress.SetAddress(data + CHADDR_OFFSET, hlen, htype);
    serverName = ReadText(data + SNAME_OFFSET, SNAME_LENGTH);
    bootFileName = ReadText(data + FILE_OFFSET, FILE_LENGTH);
    if (!std::equal(MAGIC_COOKIE.begin(), MAGIC_COOKIE.end(), data + COOKIE_OFFSET)) {
        throw AppException(AppException::MagicCookieNotRead);
    }
}

// The loop is driven by End and the length bytes. A field without End ends
// with the datagram; an option whose length byte or value would lie beyond
// the datagram is refused as a bad length.
void DHCPMessage::ParseOptions(const uint8_t* data, size_t length)
{
    size_t position = FIXED_PART_LENGTH;
    while (position < length) {
        const uint8_t code = data[position];
        if (code == MessageOptions::End) {
            return;
        }
        if (code == MessageOptions::Pad) {
            ++position;
            continue;
        }
        if (length - position < 2) {
            RejectOptionLength();
        }
        const uint8_t valueLength = data[position + 1];
        const size_t valueStart = position + 2;
        if (length - valueStart < valueLength) {
            RejectOptionLength();
        }
        ParseOption(code, data + valueStart, valueLength);
        position = valueStart + valueLength;
    }
}

void DHCPMessage::ParseOption(uint8_t code, const uint8_t* value, uint8_t valueLength)
{
    // Values that a setter could not take (a message type outside 1..8, a
    // size limit below 576) are left out as if the option were absent.
    switch (code) {
    case MessageOptions::HostName:
        if (valueLength < 1) {
            RejectOptionLength();
        }
        options.SetHostName(value, valueLength);
        break;
    case MessageOptions::BroadcastAddress:
        if (valueLength != 4) {
            RejectOptionLength();
        }
        options.SetBroadcastAddress(ReadAddress(value));
        break;
    case MessageOptions::RequestedIPAddress:
        if (valueLength != 4) {
            RejectOptionLength();
        }
        options.SetRequestedIPAddress(ReadAddress(value));
        break;
    case MessageOptions::MessageTypeCode:
        if (valueLength != 1) {
            RejectOptionLength();
        }
        if (value[0] >= DHCPDISCOVER && value[0] <= DHCPINFORM) {
            options.SetMessageType(value[0]);
        }
        break;
    case MessageOptions::ServerIdentifier:
        if (valueLength != 4) {
            RejectOptionLength();
        }
        options.SetServerIdentifier(ReadAddress(value));
        break;
    case MessageOptions::ParameterRequestList:
        if (valueLength < 1) {
            RejectOptionLength();
        }
        options.SetParameterRequestList(std::span<const uint8_t>(value, valueLength));
        break;
    case MessageOptions::MaximumDHCPMessageSize: {
        if (valueLength != 2) {
            RejectOptionLength();
        }
        const uint16_t size = ReadUint16(value);
        if (size >= MAXIMUM_LENGTH) {
            options.SetMaximumDHCPMessageSize(size);
        }
        break;
    }
    case MessageOptions::ClientIdentifierCode:
        if (valueLength < 2) {
            RejectOptionLength();
        }
        options.SetClientIdentifier(ClientIdentifier(valueLength, value));
        break;
    default:
        // Options 1, 3, 6 and 51 of a client, and every unknown code, are
        // passed over by their length.
        break;
    }
}

// ---- Building -----------------------------------------------------------------

std::unique_ptr<RawMessage> DHCPMessage::ToRawMessage() const
{
    uint8_t area[MAXIMUM_LENGTH];
    const size_t length = Build(area, nullptr);
    return std::make_unique<RawMessage>(area, length);
}

std::unique_ptr<RawMessage> DHCPMessage::ToRawMessage(ByteString& parameterRequestList) const
{
    uint8_t area[MAXIMUM_LENGTH];
    const size_t length = Build(area, &parameterRequestList);
    return std::make_unique<RawMessage>(area, length);
}

size_t DHCPMessage::Build(uint8_t (&area)[MAXIMUM_LENGTH], ByteString* parameterRequestList) const
{
    if (parameterRequestList == nullptr) {
        return Build(area, std::span<const uint8_t>());
    }
    std::erase_if(*parameterRequestList, [this](uint8_t code) { return !options.IsOptionPresent(code); });
    return Build(area, std::span<const uint8_t>(*parameterRequestList));
}

size_t DHCPMessage::Build(uint8_t (&area)[MAXIMUM_LENGTH], std::span<const uint8_t> parameterRequestList) const
{
    CheckWriterPreconditions();
    // Only the fixed part needs zeros; the options are written up to End,
    // and nothing behind End is sent.
    std::fill(area, area + FIXED_PART_LENGTH, uint8_t{0});
    WriteHeader(area);
    return FIXED_PART_LENGTH + WriteOptions(area, parameterRequestList);
}

void DHCPMessage::CheckWriterPreconditions() const
{
    if (options.IsOptionPresent(MessageOptions::IPAddressLeaseTime)) {
        PRECONDITION(options.GetIPAddressLeaseTime() >= 0);
        PRECONDITION(options.GetIPAddressLeaseTime() < INT_MAX);
    }
    if (options.IsOptionPresent(MessageOptions::ServerIdentifier)) {
        PRECONDITION(options.GetServerIdentifier() != IPv4Address());
    }
    if (options.IsOptionPresent(MessageOptions::BroadcastAddress)) {
        PRECONDITION(options.GetBroadcastAddress() != IPv4Address());
    }
}

void DHCPMessage::WriteHeader(uint8_t* area) const
{
    // The area is all zeros already: chaddr behind the address, sname, file
    // and the low flags byte stay so.
    area[OP_OFFSET] = static_cast<uint8_t>(operation);
    area[HTYPE_OFFSET] = static_cast<uint8_t>(hardwareAddress.GetType());
    area[HLEN_OFFSET] = hardwareAddress.GetLength();
    area[HOPS_OFFSET] = hops;
    WriteUint32(area + XID_OFFSET, transactionID);
    WriteUint16(area + SECS_OFFSET, seconds);
    area[FLAGS_OFFSET] = broadcastFlag ? BROADCAST_BIT : 0;
    WriteAddress(area + CIADDR_OFFSET, clientIPAddress);
    WriteAddress(area + YIADDR_OFFSET, yourIPAddress);
    WriteAddress(area + SIADDR_OFFSET, serverIPAddress);
    WriteAddress(area + GIADDR_OFFSET, gatewayIPAddress);
    std::memcpy(area + CHADDR_OFFSET, hardwareAddress.GetBytes(), hardwareAddress.GetLength());
    std::memcpy(area + SNAME_OFFSET, serverName.data(), serverName.size());
    std::memcpy(area + FILE_OFFSET, bootFileName.data(), bootFileName.size());
    std::copy(MAGIC_COOKIE.begin(), MAGIC_COOKIE.end(), area + COOKIE_OFFSET);
}

size_t DHCPMessage::WriteOptions(uint8_t (&area)[MAXIMUM_LENGTH], std::span<const uint8_t> parameterRequestList) const
{
    // Invariant: position + 1 <= MAXIMUM_LENGTH, so End always has its byte.
    constexpr size_t END_POSITION_LIMIT = MAXIMUM_LENGTH - 1;
    size_t position = FIXED_PART_LENGTH;

    // A working copy of the flags: what is still to be written.
    MessageOptions::Flags pending = options.GetPresentFlags();
    // The client's codes first, in its order, a repeated code twice; codes
    // without a flag are not in the reply at all.
    for (const uint8_t code : parameterRequestList) {
        if (options.IsOptionPresent(code)) {
            WriteOption(code, area, position, END_POSITION_LIMIT);
            pending[code / 64] &= ~(uint64_t{1} << (code % 64));
        }
    }
    // Then the rest in ascending order of code.
    for (size_t word = 0; word < pending.size(); ++word) {
        for (uint64_t bits = pending[word]; bits != 0; bits &= bits - 1) {
            const auto code = static_cast<uint8_t>(word * 64 + static_cast<size_t>(std::countr_zero(bits)));
            WriteOption(code, area, position, END_POSITION_LIMIT);
        }
    }
    area[position++] = MessageOptions::End;
    return position - FIXED_PART_LENGTH;
}

void DHCPMessage::WriteOption(uint8_t code, uint8_t* area, size_t& position, size_t limit) const
{
    switch (code) {
    case MessageOptions::SubnetMask:
        PutAddressOption(area, position, limit, code, IPv4Address::FromSubnetMaskLength(options.GetSubnetMask()));
        return;
    case MessageOptions::Router:
        PutAddressOption(area, position, limit, code, options.GetRouter());
        return;
    case MessageOptions::DomainNameServer: {
        const IPv4Address first = options.GetDNSAddress1();
        const IPv4Address second = options.GetDNSAddress2();
        if (second == IPv4Address()) {
            PutAddressOption(area, position, limit, code, first);
        } else if (first == IPv4Address()) {
            PutAddressOption(area, position, limit, code, second);
        } else {
            uint8_t value[8];
            WriteAddress(value, first);
            WriteAddress(value + 4, second);
            PutOption(area, position, limit, code, value, sizeof value);
        }
        return;
    }
    case MessageOptions::BroadcastAddress:
        PutAddressOption(area, position, limit, code, options.GetBroadcastAddress());
        return;
    case MessageOptions::IPAddressLeaseTime: {
        uint8_t value[4];
        WriteUint32(value, static_cast<uint32_t>(options.GetIPAddressLeaseTime()));
        PutOption(area, position, limit, code, value, sizeof value);
        return;
    }
    case MessageOptions::MessageTypeCode: {
        const uint8_t value = static_cast<uint8_t>(options.GetMessageType());
        PutOption(area, position, limit, code, &value, 1);
        return;
    }
    case MessageOptions::ServerIdentifier:
        PutAddressOption(area, position, limit, code, options.GetServerIdentifier());
        return;
    case MessageOptions::ClientIdentifierCode: {
        const ClientIdentifier identifier = options.GetClientIdentifier();
        // An empty identifier would make an option shorter than its minimum.
        if (!identifier.IsEmpty()) {
            PutOption(area, position, limit, code, identifier.GetBytes(), identifier.GetLength());
        }
        return;
    }
    default:
        break;
    }
    // The other standard codes write nothing; in particular an additional
    // option with a standard code is never sent with its own data.
    if (MessageOptions::IsStandardOption(code)) {
        return;
    }
    const RawOption* rawOption = options.FindRawOption(code);
    if (rawOption == nullptr || rawOption->GetData().empty()) {
        return;
    }
    const ByteString& data = rawOption->GetData();
    PutOption(area, position, limit, code, data.data(), data.size());
}
