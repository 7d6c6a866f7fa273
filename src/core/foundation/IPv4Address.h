#pragma once

#include "foundation/Serializable.h"

#include <array>
#include <compare>
#include <cstdint>
#include <string>

// An IPv4 address or subnet mask: four octets in address order (network
// order), ordered numerically. 0.0.0.0, the default, means "no address".
class IPv4Address : public Serializable {
public:
    IPv4Address() = default;
    // The low 8 bits of each argument become the octets, in order.
    IPv4Address(int a, int b, int c, int d);
    // Dotted decimal; blanks around it are trimmed, and the empty text gives
    // 0.0.0.0. Raises IPAddressStringNotValid.
    explicit IPv4Address(const std::string& text);

    // Precondition: length <= 32.
    static IPv4Address FromSubnetMaskLength(uint8_t length);
    // The 32-bit value a*2^24 + b*2^16 + c*2^8 + d.
    static IPv4Address FromUint32(uint32_t value);
    uint32_t ToUint32() const;

    bool operator==(const IPv4Address& other) const { return bytes == other.bytes; }
    std::strong_ordering operator<=>(const IPv4Address& other) const { return bytes <=> other.bytes; }

    uint8_t operator[](int index) const { return bytes[index]; }
    bool IsZero() const { return ToUint32() == 0; }

    // Raises IPv4AddressValueOverflow when the sum leaves 0..2^32-1; this
    // address keeps its value then.
    IPv4Address operator+(int32_t value) const;
    IPv4Address& operator+=(int32_t value);
    // Every host bit under the mask of `maskLength` set. Precondition: <= 32.
    IPv4Address GetBroadcastAddress(uint8_t maskLength) const;

    bool IsSubnetMask() const;
    // 1..32. Raises NotASubnetMask.
    uint16_t GetSubnetMaskLength() const;

    std::string ToString() const;
    std::string ToCString() const { return ToString(); }

    // Exactly the four octets, first octet first.
    ByteString Serialize() const override;
    // Raises FileReadingError for fewer than four bytes.
    void Unserialize(const ByteString& serializedData) override;

private:
    std::array<uint8_t, 4> bytes{};
};
