#include "foundation/HardwareAddress.h"

#include "foundation/AppException.h"
#include "foundation/LittleEndian.h"
#include "foundation/Precondition.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr size_t ETHERNET_LENGTH = 6;
constexpr char HEX_DIGITS[] = "0123456789abcdef";

int HexValue(char character)
{
    if (character >= '0' && character <= '9') {
        return character - '0';
    }
    if (character >= 'a' && character <= 'f') {
        return character - 'a' + 10;
    }
    if (character >= 'A' && character <= 'F') {
        return character - 'A' + 10;
    }
    return -1;
}

} // namespace

HardwareAddress::HardwareAddress(const uint8_t* bytes, uint8_t length, uint32_t type)
{
    SetAddress(bytes, length, type);
}

HardwareAddress::HardwareAddress(const std::string& text)
{
    std::string digits;
    for (const char character : text) {
        if (character != ':' && character != ' ') {
            digits += character;
        }
    }
    if (digits.size() != 2 * ETHERNET_LENGTH) {
        throw AppException(AppException::HardwareAddressStringNotValid);
    }
    for (size_t i = 0; i < ETHERNET_LENGTH; ++i) {
        const int high = HexValue(digits[2 * i]);
        const int low = HexValue(digits[2 * i + 1]);
        if (high < 0 || low < 0) {
            throw AppException(AppException::HardwareAddressStringNotValid);
        }
        bytes[i] = static_cast<uint8_t>(high * 16 + low);
    }
    length = ETHERNET_LENGTH;
    type = Ethernet10Mb;
}

void HardwareAddress::SetAddress(const uint8_t* newBytes, uint8_t newLength, uint32_t newType)
{
    PRECONDITION(newLength <= MAX_LENGTH);
    PRECONDITION(IsValidType(newType));
    bytes.fill(0);
    if (newLength > 0) {
        std::memcpy(bytes.data(), newBytes, newLength);
    }
    length = newLength;
    type = newType;
}

uint8_t HardwareAddress::operator[](int index) const
{
    PRECONDITION(index >= 0 && index < length);
    return bytes[index];
}

bool HardwareAddress::operator==(const HardwareAddress& other) const
{
    return length == other.length && std::equal(bytes.begin(), bytes.begin() + length, other.bytes.begin()) &&
           type == other.type;
}

std::string HardwareAddress::ToString() const
{
    std::string text;
    text.reserve(length * 3);
    for (size_t i = 0; i < length; ++i) {
        if (i > 0) {
            text += ':';
        }
        text += HEX_DIGITS[bytes[i] >> 4];
        text += HEX_DIGITS[bytes[i] & 0x0F];
    }
    return text;
}

ByteString HardwareAddress::Serialize() const
{
    ByteString data;
    data.reserve(4 + length);
    uint8_t typeBytes[4];
    LittleEndian::Put(typeBytes, type, 4);
    data.insert(data.end(), typeBytes, typeBytes + 4);
    data.insert(data.end(), bytes.begin(), bytes.begin() + length);
    return data;
}

void HardwareAddress::Unserialize(const ByteString& serializedData)
{
    Unserialize(serializedData.data(), serializedData.size());
}

void HardwareAddress::Unserialize(const uint8_t* data, size_t size)
{
    if (size < 4 || size - 4 > MAX_LENGTH) {
        throw AppException(AppException::FileReadingError);
    }
    uint32_t storedType = 0;
    for (int i = 3; i >= 0; --i) {
        storedType = (storedType << 8) | data[i];
    }
    bytes.fill(0);
    std::copy(data + 4, data + size, bytes.begin());
    length = static_cast<uint8_t>(size - 4);
    type = storedType;
}
