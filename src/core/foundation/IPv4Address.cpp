#include "foundation/IPv4Address.h"

#include "foundation/AppException.h"
#include "foundation/Precondition.h"
#include "foundation/Tools.h"

#include <algorithm>
#include <bit>

namespace {

constexpr size_t MAX_TEXT_LENGTH = 15;

uint32_t MaskBits(uint8_t length)
{
    PRECONDITION(length <= 32);
    return length == 0 ? 0 : ~uint32_t{0} << (32 - length);
}

[[noreturn]] void RejectText()
{
    throw AppException(AppException::IPAddressStringNotValid);
}

} // namespace

IPv4Address::IPv4Address(int a, int b, int c, int d)
    : bytes{static_cast<uint8_t>(a), static_cast<uint8_t>(b), static_cast<uint8_t>(c), static_cast<uint8_t>(d)}
{
}

IPv4Address::IPv4Address(const std::string& text)
{
    std::string trimmed = text;
    Tools::Trim(trimmed);
    if (trimmed.empty()) {
        return;
    }
    if (trimmed.size() > MAX_TEXT_LENGTH) {
        RejectText();
    }
    for (const char character : trimmed) {
        if (character != '.' && (character < '0' || character > '9')) {
            RejectText();
        }
    }
    const auto items = Tools::Split(trimmed, '.');
    if (items.size() != 4) {
        RejectText();
    }
    for (size_t i = 0; i < 4; ++i) {
        // At most 15 characters in all, so an item has at most 12 digits and
        // fits into 64 bits; leading zeros are decimal, not octal.
        if (items[i].empty()) {
            RejectText();
        }
        uint64_t value = 0;
        for (const char digit : items[i]) {
            value = value * 10 + static_cast<uint64_t>(digit - '0');
        }
        if (value > 255) {
            RejectText();
        }
        bytes[i] = static_cast<uint8_t>(value);
    }
}

IPv4Address IPv4Address::FromSubnetMaskLength(uint8_t length)
{
    return FromUint32(MaskBits(length));
}

IPv4Address IPv4Address::FromUint32(uint32_t value)
{
    return IPv4Address(static_cast<int>(value >> 24), static_cast<int>(value >> 16),
                       static_cast<int>(value >> 8), static_cast<int>(value));
}

uint32_t IPv4Address::ToUint32() const
{
    return (uint32_t{bytes[0]} << 24) | (uint32_t{bytes[1]} << 16) | (uint32_t{bytes[2]} << 8) | bytes[3];
}

IPv4Address IPv4Address::operator+(int32_t value) const
{
    const int64_t sum = static_cast<int64_t>(ToUint32()) + value;
    if (sum < 0 || sum > 0xFFFFFFFFll) {
        throw AppException(AppException::IPv4AddressValueOverflow);
    }
    return FromUint32(static_cast<uint32_t>(sum));
}

IPv4Address& IPv4Address::operator+=(int32_t value)
{
    *this = *this + value;
    return *this;
}

IPv4Address IPv4Address::GetBroadcastAddress(uint8_t maskLength) const
{
    return FromUint32(ToUint32() | ~MaskBits(maskLength));
}

bool IPv4Address::IsSubnetMask() const
{
    // A mask is ones followed by zeros exactly when its two's complement is a
    // power of two; 0.0.0.0 negates to 0 and is no mask.
    return Tools::IsPowerOfTwo(0u - ToUint32());
}

uint16_t IPv4Address::GetSubnetMaskLength() const
{
    if (!IsSubnetMask()) {
        throw AppException(AppException::NotASubnetMask);
    }
    return static_cast<uint16_t>(32 - std::countr_zero(0u - ToUint32()));
}

std::string IPv4Address::ToString() const
{
    std::string text;
    text.reserve(MAX_TEXT_LENGTH);
    for (size_t i = 0; i < 4; ++i) {
        if (i > 0) {
            text += '.';
        }
        text += std::to_string(bytes[i]);
    }
    return text;
}

ByteString IPv4Address::Serialize() const
{
    return ByteString(bytes.begin(), bytes.end());
}

void IPv4Address::Unserialize(const ByteString& serializedData)
{
    if (serializedData.size() < 4) {
        throw AppException(AppException::FileReadingError);
    }
    std::copy_n(serializedData.begin(), 4, bytes.begin());
}
