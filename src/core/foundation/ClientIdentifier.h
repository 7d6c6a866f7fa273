#pragma once

#include "foundation/HardwareAddress.h"

#include <array>
#include <cstdint>

// The key by which exchanges are told apart: the bytes of option 61 exactly
// as sent (type byte included), or the bytes of a hardware address without
// its type. Held inline, so copying one costs no allocation.
class ClientIdentifier {
public:
    static constexpr size_t MAX_LENGTH = 255;

    ClientIdentifier() = default;
    // From the value of option 61. Precondition: length >= 2.
    ClientIdentifier(uint8_t length, const uint8_t* bytes);
    explicit ClientIdentifier(const HardwareAddress& hardwareAddress);

    uint8_t GetLength() const { return length; }
    bool IsEmpty() const { return length == 0; }
    const uint8_t* GetBytes() const { return bytes.data(); }
    // Precondition: index < length.
    uint8_t operator[](int index) const;

    // Precondition: neither side is empty.
    bool operator==(const ClientIdentifier& other) const;
    bool operator!=(const ClientIdentifier& other) const { return !(*this == other); }

private:
    uint8_t length = 0;
    std::array<uint8_t, MAX_LENGTH> bytes{};
};
