#pragma once

#include "foundation/Serializable.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

// A client's link-layer address as chaddr carries it, with its hardware type
// (the htype numbers, 1 to 21). Equal only when length, bytes and type agree.
class HardwareAddress : public Serializable {
public:
    static constexpr uint8_t MAX_LENGTH = 16;

    enum Type : uint32_t { Ethernet10Mb = 1, ATM_3 = 21 };

    static bool IsValidType(uint32_t type) { return type >= Ethernet10Mb && type <= ATM_3; }

    HardwareAddress() = default;
    // Preconditions: length <= MAX_LENGTH, IsValidType(type).
    HardwareAddress(const uint8_t* bytes, uint8_t length, uint32_t type);
    // A MAC address: colons and blanks anywhere are ignored, then exactly 12
    // hexadecimal digits (either case) must remain. Always Ethernet, length 6.
    // Raises HardwareAddressStringNotValid.
    explicit HardwareAddress(const std::string& text);

    // Same preconditions as the constructor.
    void SetAddress(const uint8_t* bytes, uint8_t length, uint32_t type);

    uint8_t GetLength() const { return length; }
    uint32_t GetType() const { return type; }
    const uint8_t* GetBytes() const { return bytes.data(); }
    // Precondition: index < length.
    uint8_t operator[](int index) const;

    bool operator==(const HardwareAddress& other) const;

    // Lower-case hexadecimal pairs joined by ':'; empty for an empty address.
    std::string ToString() const;
    std::string ToCString() const { return ToString(); }

    // type (4 bytes, least significant first), then the address bytes.
    ByteString Serialize() const override;
    // Raises FileReadingError for fewer than 4 bytes or more than MAX_LENGTH
    // address bytes. The type is taken as stored, without a range test.
    void Unserialize(const ByteString& serializedData) override;
    // The same from `size` bytes at `data`, for readers that decode in place.
    void Unserialize(const uint8_t* data, size_t size);

private:
    std::array<uint8_t, MAX_LENGTH> bytes{};
    uint8_t length = 0;
    uint32_t type = 0;
};
