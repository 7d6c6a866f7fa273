#include "allocation/Lease.h"

#include "foundation/AppException.h"
#include "foundation/GroupReader.h"
#include "foundation/LittleEndian.h"
#include "foundation/Tools.h"

#include <algorithm>
#include <array>

namespace {

constexpr size_t LEASE_ITEM_COUNT = 4;
constexpr size_t INTEGER_ITEM_SIZE = 8;
constexpr size_t ADDRESS_ITEM_SIZE = 4;
// A row of the lease file without hardware address bytes: the sizes of the
// group and of its four items, two integers, the hardware type and the address.
constexpr size_t EMPTY_RECORD_SIZE = 5 * 4 + 2 * INTEGER_ITEM_SIZE + 4 + ADDRESS_ITEM_SIZE;

[[noreturn]] void RejectData()
{
    throw AppException(AppException::FileReadingError);
}

// The low 32 bits of a stored 64-bit integer (least significant byte
// first), which are all the reader keeps.
int32_t LowWord(const uint8_t* item)
{
    uint32_t word = 0;
    for (int i = 3; i >= 0; --i) {
        word = (word << 8) | item[i];
    }
    return static_cast<int32_t>(word);
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

Lease::Lease(const uint8_t* serializedData, size_t size)
{
    Unserialize(serializedData, size);
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

int64_t Lease::GetNextStateChange(int64_t now) const
{
    constexpr int64_t WRAP = int64_t{1} << 31;
    const int64_t remaining = GetRemainingTime(now);
    // Active while the remaining time counts down to 0; expired while it
    // counts down from below 0 to -2^31, after which it wraps.
    return remaining >= 0 ? now + remaining + 1 : now + remaining + WRAP + 1;
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
    Unserialize(serializedData.data(), serializedData.size());
}

void Lease::Unserialize(const uint8_t* serializedData, size_t size)
{
    // The items are taken apart in place; everything is read into locals
    // first, so damaged data leaves this lease as it was.
    GroupReader reader(serializedData, size);
    std::array<const uint8_t*, LEASE_ITEM_COUNT> items{};
    std::array<size_t, LEASE_ITEM_COUNT> sizes{};
    size_t count = 0;
    const uint8_t* item = nullptr;
    size_t itemSize = 0;
    while (reader.Next(item, itemSize)) {
        if (count == LEASE_ITEM_COUNT) {
            RejectData();
        }
        items[count] = item;
        sizes[count] = itemSize;
        ++count;
    }
    if (count != LEASE_ITEM_COUNT || sizes[0] != INTEGER_ITEM_SIZE || sizes[1] != INTEGER_ITEM_SIZE ||
        sizes[3] != ADDRESS_ITEM_SIZE) {
        RejectData();
    }
    HardwareAddress newHardwareAddress;
    newHardwareAddress.Unserialize(items[2], sizes[2]); // refuses more than 16 address bytes

    startTime = LowWord(items[0]);
    duration = LowWord(items[1]);
    hardwareAddress = newHardwareAddress;
    ipAddress = IPv4Address(items[3][0], items[3][1], items[3][2], items[3][3]);
}

ByteString Lease::SerializeRows(const std::vector<Lease>& rows)
{
    // The same bytes as SerializeGroup of each row's Serialize, written
    // straight into one buffer: a stop or a start with sixty thousand leases
    // would otherwise spend most of its time on small allocations.
    size_t total = 0;
    for (const Lease& lease : rows) {
        total += EMPTY_RECORD_SIZE + lease.hardwareAddress.GetLength();
    }
    ByteString bytes(total);
    uint8_t* out = bytes.data();
    for (const Lease& lease : rows) {
        const uint8_t length = lease.hardwareAddress.GetLength();
        out = LittleEndian::Put(out, EMPTY_RECORD_SIZE - 4 + length, 4);
        out = LittleEndian::Put(out, INTEGER_ITEM_SIZE, 4);
        out = LittleEndian::Put(out, static_cast<uint64_t>(int64_t{lease.startTime}), INTEGER_ITEM_SIZE);
        out = LittleEndian::Put(out, INTEGER_ITEM_SIZE, 4);
        out = LittleEndian::Put(out, static_cast<uint64_t>(int64_t{lease.duration}), INTEGER_ITEM_SIZE);
        out = LittleEndian::Put(out, 4 + length, 4);
        out = LittleEndian::Put(out, lease.hardwareAddress.GetType(), 4);
        std::copy_n(lease.hardwareAddress.GetBytes(), length, out);
        out += length;
        out = LittleEndian::Put(out, ADDRESS_ITEM_SIZE, 4);
        for (int i = 0; i < 4; ++i) {
            *out++ = lease.ipAddress[i];
        }
    }
    return bytes;
}

std::vector<Lease> Lease::UnserializeRows(const uint8_t* data, size_t size)
{
    std::vector<Lease> rows;
    rows.reserve(size / EMPTY_RECORD_SIZE);
    GroupReader reader(data, size);
    const uint8_t* item = nullptr;
    size_t itemSize = 0;
    while (reader.Next(item, itemSize)) {
        rows.emplace_back(item, itemSize);
    }
    return rows;
}
