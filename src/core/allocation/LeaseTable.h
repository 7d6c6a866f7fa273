#pragma once

#include "allocation/HardwareAddressHash.h"
#include "allocation/Lease.h"
#include "foundation/HardwareAddress.h"
#include "foundation/IPv4Address.h"

#include <cstddef>
#include <cstdint>
#include <unordered_map>
#include <vector>

// The rows of the lease table in table order, with indexes by IP address and
// by hardware address. Not thread-safe: AddressManager holds the lock.
//
// Rows are kept in a vector, so a position is a plain index. Each row also
// carries a serial number that only grows (a new row gets a larger one), so
// the serials are sorted in table order and an erase never has to renumber
// the indexes: they name rows by serial, and a serial finds its position by
// binary search.
//
// AddLease keeps one row per IP address, but a lease file may hold several;
// the indexes therefore keep every row of a key, in table order, and "first
// row" always means the one nearest the front.
class LeaseTable {
public:
    static constexpr int NOT_FOUND = -1;

    size_t Size() const { return rows.size(); }
    // Precondition: index < Size().
    const Lease& At(size_t index) const;
    const std::vector<Lease>& Rows() const { return rows; }

    // Position of the first row of this client, or NOT_FOUND.
    int FindFirstByHardwareAddress(const HardwareAddress& hardwareAddress) const;
    // Position of the first row with this address, or NOT_FOUND.
    int FindFirstByIPAddress(const IPv4Address& address) const;
    // Some row with this address has not expired at `now`.
    bool HasActiveLease(const IPv4Address& address, int64_t now) const;

    void Append(const Lease& lease);
    // Erases the first row with this address and closes the gap; nothing
    // when there is none.
    void EraseFirstByIPAddress(const IPv4Address& address);
    // Ends the lease of the first row with this address, if any.
    void ExpireFirstByIPAddress(const IPv4Address& address, int64_t now);
    // Replaces every row by `newRows`, in their order.
    void Assign(std::vector<Lease> newRows);

private:
    using Serial = uint64_t;
    // Serials of the rows of one key, ascending (so in table order).
    using SerialList = std::vector<Serial>;

    size_t PositionOf(Serial serial) const;
    void IndexRow(const Lease& lease, Serial serial);
    void UnindexRow(const Lease& lease, Serial serial);

    // Invariant: rows.size() == serials.size(), serials strictly ascending,
    // and both indexes hold exactly the serials of the rows with their key.
    std::vector<Lease> rows;
    std::vector<Serial> serials;
    Serial nextSerial = 0;
    std::unordered_map<uint32_t, SerialList> rowsByIPAddress;
    std::unordered_map<HardwareAddress, SerialList, HardwareAddressHash> rowsByHardwareAddress;
};
