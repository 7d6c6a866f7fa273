#include "foundation/ClientIdentifier.h"

#include "foundation/Precondition.h"

#include <algorithm>
#include <cstring>

ClientIdentifier::ClientIdentifier(uint8_t newLength, const uint8_t* newBytes)
    : length(newLength)
{
    PRECONDITION(newLength >= 2);
    std::memcpy(bytes.data(), newBytes, newLength);
}

ClientIdentifier::ClientIdentifier(const HardwareAddress& hardwareAddress)
    : length(hardwareAddress.GetLength())
{
    std::memcpy(bytes.data(), hardwareAddress.GetBytes(), length);
}

uint8_t ClientIdentifier::operator[](int index) const
{
    PRECONDITION(index >= 0 && index < length);
    return bytes[index];
}

bool ClientIdentifier::operator==(const ClientIdentifier& other) const
{
    PRECONDITION(length > 0 && other.length > 0);
    return length == other.length && std::equal(bytes.begin(), bytes.begin() + length, other.bytes.begin());
}
