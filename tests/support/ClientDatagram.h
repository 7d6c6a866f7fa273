#pragma once

#include "foundation/ByteString.h"
#include "foundation/IPv4Address.h"

#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

// Builds the bytes of a client's datagram as a DHCP client would send them,
// independently of the server's own message writer: fixed header, magic
// cookie, options in the order given, End. Options that the server's writer
// never emits (50, 55, 57, 12) can be put in, and anything can be broken on
// purpose.
class ClientDatagram {
public:
    // op 1, htype 1, hlen 6, message type `messageType` (option 53).
    ClientDatagram(uint8_t messageType, uint32_t xid, const std::vector<uint8_t>& chaddr);

    ClientDatagram& Operation(uint8_t op);
    ClientDatagram& HardwareType(uint8_t htype);
    // Sets hlen and chaddr; up to 16 bytes.
    ClientDatagram& HardwareAddress(const std::vector<uint8_t>& chaddr);
    ClientDatagram& BroadcastFlag(bool set);
    ClientDatagram& ClientAddress(const IPv4Address& ciaddr);
    ClientDatagram& GatewayAddress(const IPv4Address& giaddr);
    ClientDatagram& RequestedAddress(const IPv4Address& address);   // option 50
    ClientDatagram& ServerIdentifier(const IPv4Address& address);   // option 54
    ClientDatagram& ParameterRequestList(const ByteString& codes);  // option 55
    ClientDatagram& ClientIdentifier(const ByteString& identifier); // option 61
    ClientDatagram& Option(uint8_t code, const ByteString& value);
    ClientDatagram& WithoutMessageType();

    ByteString Bytes() const;

private:
    uint8_t op = 1;
    uint8_t htype = 1;
    uint32_t xid;
    bool broadcast = false;
    IPv4Address ciaddr;
    IPv4Address giaddr;
    std::vector<uint8_t> chaddr;
    std::optional<uint8_t> messageType;
    std::vector<std::pair<uint8_t, ByteString>> options;
};

// The options of a datagram as they stand on the wire, in their order, read
// without the server's parser (which skips the codes it never reads, such as
// 1, 3, 6 and 51). Pad is skipped; End ends the walk and is listed last.
struct WireOption {
    uint8_t code;
    ByteString value;
};
std::vector<WireOption> ReadWireOptions(const ByteString& datagram);
// The codes only, End included.
std::vector<uint8_t> WireOptionCodes(const ByteString& datagram);
// The value of the first option `code`, if there is one.
std::optional<ByteString> FindWireOption(const ByteString& datagram, uint8_t code);

// A MAC address 02:00:00:00:xx:yy made from a number, for many clients.
std::vector<uint8_t> TestMac(uint32_t number);
ByteString AddressBytes(const IPv4Address& address);
