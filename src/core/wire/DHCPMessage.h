#pragma once

#include "foundation/ByteString.h"
#include "foundation/ClientIdentifier.h"
#include "foundation/HardwareAddress.h"
#include "foundation/IPv4Address.h"
#include "wire/MessageOptions.h"
#include "wire/MessageType.h"
#include "wire/RawMessage.h"

#include <cstdint>
#include <memory>
#include <span>
#include <string>

// A DHCP message: the fixed BOOTP header field by field, and its options.
//
// Wire layout (network byte order), offsets from the start of the UDP payload:
//   0 op | 1 htype | 2 hlen | 3 hops | 4 xid(4) | 8 secs(2) | 10 flags(2)
//   12 ciaddr | 16 yiaddr | 20 siaddr | 24 giaddr | 28 chaddr(16)
//   44 sname(64) | 108 file(128) | 236 magic cookie 99.130.83.99 | 240 options
// A reply is built in a 576-byte area: 240 fixed bytes plus its options with
// End, never padded.
class DHCPMessage {
public:
    enum Operation : int32_t { BOOTREQUEST = 1, BOOTREPLY = 2 };

    static constexpr size_t FIXED_PART_LENGTH = 240;
    static constexpr size_t MAXIMUM_LENGTH = 576;

    // An empty message to be filled in for a reply.
    DHCPMessage() = default;
    // Parses a datagram without ever reading past `length`. Raises
    // MessageParsingError, MagicCookieNotRead, OptionLengthNotValid.
    //   - fewer than 240 bytes, op not 1 or 2, htype not 1..21, hlen above 16:
    //     MessageParsingError;
    //   - sname or file without a zero byte: the name is the whole field;
    //   - options without End end with the datagram; an option whose length
    //     byte or value would lie beyond it: OptionLengthNotValid;
    //   - option 53 outside 1..8 and option 57 below 576 are not stored, as
    //     if absent (an earlier valid occurrence stays).
    DHCPMessage(const uint8_t* data, size_t length);
    explicit DHCPMessage(const RawMessage& rawMessage);

    int32_t GetOperation() const { return operation; }
    void SetOperation(int32_t value) { operation = value; }
    uint8_t GetHops() const { return hops; }
    void SetHops(uint8_t value) { hops = value; }
    uint32_t GetTransactionID() const { return transactionID; }
    void SetTransactionID(uint32_t value) { transactionID = value; }
    uint16_t GetSeconds() const { return seconds; }
    void SetSeconds(uint16_t value) { seconds = value; }
    bool GetBroadcastFlag() const { return broadcastFlag; }
    void SetBroadcastFlag(bool value) { broadcastFlag = value; }
    IPv4Address GetClientIPAddress() const { return clientIPAddress; }
    void SetClientIPAddress(const IPv4Address& value) { clientIPAddress = value; }
    IPv4Address GetYourIPAddress() const { return yourIPAddress; }
    void SetYourIPAddress(const IPv4Address& value) { yourIPAddress = value; }
    IPv4Address GetServerIPAddress() const { return serverIPAddress; }
    void SetServerIPAddress(const IPv4Address& value) { serverIPAddress = value; }
    IPv4Address GetGatewayIPAddress() const { return gatewayIPAddress; }
    void SetGatewayIPAddress(const IPv4Address& value) { gatewayIPAddress = value; }
    const HardwareAddress& GetHardwareAddress() const { return hardwareAddress; }
    void SetHardwareAddress(const HardwareAddress& value) { hardwareAddress = value; }
    const std::string& GetServerName() const { return serverName; }
    // Precondition: shorter than 64.
    void SetServerName(const std::string& value);
    const std::string& GetBootFileName() const { return bootFileName; }
    // Precondition: shorter than 128.
    void SetBootFileName(const std::string& value);

    MessageOptions& Options() { return options; }
    const MessageOptions& Options() const { return options; }

    // Option 61 when present, else the hardware address bytes without type.
    ClientIdentifier GetClientIdentifier() const;

    // Builds the reply datagram. The options the client asked for come first,
    // in its order; the others follow by ascending code; then End. An option
    // that would not fit into the 576-byte area is left out.
    std::unique_ptr<RawMessage> ToRawMessage() const;
    // `parameterRequestList` comes back without the codes this message lacks.
    std::unique_ptr<RawMessage> ToRawMessage(ByteString& parameterRequestList) const;
    // The same into a caller's area; returns the number of bytes written.
    size_t Build(uint8_t (&area)[MAXIMUM_LENGTH], ByteString* parameterRequestList) const;
    // The same with the client's list as it came (may be empty): the codes
    // this message lacks are passed over. Nothing is allocated.
    size_t Build(uint8_t (&area)[MAXIMUM_LENGTH], std::span<const uint8_t> parameterRequestList) const;

private:
    void ParseHeader(const uint8_t* data, size_t length);
    void ParseOptions(const uint8_t* data, size_t length);
    void ParseOption(uint8_t code, const uint8_t* value, uint8_t valueLength);
    void CheckWriterPreconditions() const;
    void WriteHeader(uint8_t* area) const;
    // Returns the number of option bytes written from offset 240, End included.
    size_t WriteOptions(uint8_t (&area)[MAXIMUM_LENGTH], std::span<const uint8_t> parameterRequestList) const;
    // Writes the wire form of one option at `position` and moves it on, when
    // the option fits before `limit`; an option that does not fit, or a code
    // that writes nothing, leaves both alone.
    void WriteOption(uint8_t code, uint8_t* area, size_t& position, size_t limit) const;

    int32_t operation = 0;
    uint8_t hops = 0;
    uint32_t transactionID = 0;
    uint16_t seconds = 0;
    bool broadcastFlag = false;
    IPv4Address clientIPAddress;
    IPv4Address yourIPAddress;
    IPv4Address serverIPAddress;
    IPv4Address gatewayIPAddress;
    HardwareAddress hardwareAddress;
    std::string serverName;
    std::string bootFileName;
    MessageOptions options;
};
