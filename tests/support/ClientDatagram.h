#pragma once

#include "foundation/ByteString.h"
#include "foundation/IPv4Address.h"
#include "support/TestHardware.h"

#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

inline ByteString AddressBytes(const IPv4Address& address)
{
    return {address[0], address[1], address[2], address[3]};
}

// A client's datagram as a DHCP client would send it (or a reply as a client
// expects it), built without the server's own writer: header, magic cookie,
// option 53, the options in the order given, End. Options the server never
// writes (50, 55) can be put in, and its bytes can be broken on purpose.
class ClientDatagram {
public:
    // op 1, htype 1, hlen and chaddr from `chaddr` (at most 16 bytes).
    ClientDatagram(uint8_t messageType, uint32_t xid, std::vector<uint8_t> chaddr)
        : xid(xid), chaddr(std::move(chaddr)), messageType(messageType)
    {
    }

    ClientDatagram& Operation(uint8_t value) { return Set(op, value); }
    ClientDatagram& BroadcastFlag(bool set) { return Set(broadcast, set); }
    ClientDatagram& ClientAddress(const IPv4Address& address) { return Set(ciaddr, address); }
    ClientDatagram& GatewayAddress(const IPv4Address& address) { return Set(giaddr, address); }
    ClientDatagram& YourAddress(const IPv4Address& address) { return Set(yiaddr, address); }
    ClientDatagram& RequestedAddress(const IPv4Address& address) { return Option(50, AddressBytes(address)); }
    ClientDatagram& ServerIdentifier(const IPv4Address& address) { return Option(54, AddressBytes(address)); }
    ClientDatagram& ParameterRequestList(const ByteString& codes) { return Option(55, codes); }
    ClientDatagram& ClientIdentifier(const ByteString& identifier) { return Option(61, identifier); }
    ClientDatagram& Option(uint8_t code, const ByteString& value)
    {
        options.emplace_back(code, value);
        return *this;
    }
    ClientDatagram& WithoutMessageType() { return Set(messageType, std::nullopt); }

    operator ByteString() const; // the bytes on the wire

private:
    template <typename Field, typename Value>
    ClientDatagram& Set(Field& field, Value value)
    {
        field = value;
        return *this;
    }

    uint8_t op = 1;
    uint32_t xid;
    bool broadcast = false;
    IPv4Address ciaddr;
    IPv4Address yiaddr;
    IPv4Address giaddr;
    std::vector<uint8_t> chaddr;
    std::optional<uint8_t> messageType;
    std::vector<std::pair<uint8_t, ByteString>> options;
};

// The options of a sent datagram as they stand on the wire, read without the
// server's parser (which skips codes it never reads, such as 1, 3, 6 and 51):
// code and value in their order, Pad skipped, End last. Raises
// std::runtime_error for an option that runs past the end.
std::vector<std::pair<uint8_t, ByteString>> WireOptions(const ByteString& datagram);
