#include "allocation/Lease.h"

#include "foundation/AppException.h"
#include "foundation/Tools.h"

#include <vector>

namespace {

constexpr size_t LEASE_ITEM_COUNT = 4;
constexpr size_t INTEGER_ITEM_SIZE = 8;
constexpr size_t ADDRESS_ITEM_SIZE = 4;

[[noreturn]] void RejectData()
{
    throw AppException(AppException::FileReadingError);
}

// The low 32 bits of a stored 64-bit integer; the reader keeps just these.
int32_t LowWord(const ByteString& item)
{
    return static_cast<int32_t>(static_cast<uint32_t>(static_cast<uint64_t>(Tools::BytesToInt64(item))));
}

} // namespace

Lease::Lease(const HardwareAddress& hardwareAddress, const IPv4Address& ipAddress, int32_t duration, int64_t now)
    : startTime(static_cast<int32_t>(static_cast<uint32_t>(static_cast<uint64_t>(now)))),
      duration(duration),
      hardwareAddress(hardwareAddress),
      ipAddress(ipAddress)
{
}

Lease::Lease(const ByteString& serializedData)
{
    Unserialize(serializedData);
}

int32_t Lease::GetRemainingTime(int64_t now) const
{
    // Wrapping 32-bit arithmetic, done unsigned so that it is defined: the
    // difference is right even when startTime + duration passes 2^31.
    const uint32_t end = static_cast<uint32_t>(startTime) + static_cast<uint32_t>(duration);
    return static_cast<int32_t>(end - static_cast<uint32_t>(static_cast<uint64_t>(now)));
}

void Lease::Expire(int64_t now)
{
    // startTime = now - duration - 1, so the remaining time is -1 at once.
    const uint32_t start = static_cast<uint32_t>(static_cast<uint64_t>(now)) - static_cast<uint32_t>(duration) - 1u;
    startTime = static_cast<int32_t>(start);
}

ByteString Lease::Serialize() const
{
    return SerializeGroup({
        Tools::Int64ToBytes(startTime),
        Tools::Int64ToBytes(duration),
        hardwareAddress.Serialize(),
        ipAddress.Serialize(),
    });
}

void Lease::Unserialize(const ByteString& serializedData)
{
    // Everything is read into locals first: damaged data leaves this lease as
    // it was.
    const std::vector<ByteString> items = UnserializeGroup(serializedData);
    if (items.size() != LEASE_ITEM_COUNT || items[0].size() != INTEGER_ITEM_SIZE ||
        items[1].size() != INTEGER_ITEM_SIZE || items[3].size() != ADDRESS_ITEM_SIZE) {
        RejectData();
    }
    HardwareAddress newHardwareAddress;
    newHardwareAddress.Unserialize(items[2]); // refuses more than 16 address bytes
    IPv4Address newIPAddress;
    newIPAddress.Unserialize(items[3]);

    startTime = LowWord(items[0]);
    duration = LowWord(items[1]);
    hardwareAddress = newHardwareAddress;
    ipAddress = newIPAddress;
}
