#pragma once

#include "foundation/HardwareAddress.h"
#include "foundation/IPv4Address.h"
#include "foundation/Serializable.h"

#include <cstddef>
#include <cstdint>
#include <vector>

// A hardware address holds an IP address from startTime for duration seconds.
// Active, expired and released all follow from the two times and the clock.
//
// Serialized form: a group of exactly four items — startTime and duration as
// 8-byte integers (sign-extended, least significant byte first), the hardware
// address (4 bytes of type, then its bytes) and the four address octets.
class Lease : public Serializable {
public:
    // No client, 0.0.0.0, start 0, duration 0.
    Lease() = default;
    // startTime is `now`, seconds since the epoch.
    Lease(const HardwareAddress& hardwareAddress, const IPv4Address& ipAddress, int32_t duration, int64_t now);
    // Raise FileReadingError for bytes that are not a well-formed lease.
    explicit Lease(const ByteString& serializedData);
    Lease(const uint8_t* serializedData, size_t size);

    const HardwareAddress& GetHardwareAddress() const { return hardwareAddress; }
    IPv4Address GetIPAddress() const { return ipAddress; }
    int32_t GetDuration() const { return duration; }
    int32_t GetStartTime() const { return startTime; }

    // startTime + duration - now, in wrapping 32-bit arithmetic.
    int32_t GetRemainingTime(int64_t now) const;
    // Remaining time below 0: at exactly 0 the lease is still active.
    bool IsExpired(int64_t now) const { return GetRemainingTime(now) < 0; }
    // Makes the remaining time -1 at once; the duration stays.
    void Expire(int64_t now);
    // The first second after `now` at which IsExpired answers otherwise than
    // at `now`: one past the end of an active lease; for an expired one, the
    // moment its 32-bit remaining time wraps round to positive (up to some 68
    // years on).
    int64_t GetNextStateChange(int64_t now) const;

    // A table of leases as the lease file holds it: a group of the rows'
    // serialized forms, in order.
    static ByteString SerializeRows(const std::vector<Lease>& rows);
    // The reverse; raises FileReadingError for damaged data.
    static std::vector<Lease> UnserializeRows(const uint8_t* data, size_t size);

    ByteString Serialize() const override;
    // Raises FileReadingError and leaves the lease unchanged on damaged data.
    void Unserialize(const ByteString& serializedData) override;
    // The same from `size` bytes at `serializedData`, decoded in place.
    void Unserialize(const uint8_t* serializedData, size_t size);

private:
    int32_t startTime = 0;
    int32_t duration = 0;
    HardwareAddress hardwareAddress;
    IPv4Address ipAddress;
};
