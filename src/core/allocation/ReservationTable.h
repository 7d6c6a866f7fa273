#pragma once

#include "allocation/AddressReservation.h"
#include "allocation/HardwareAddressHash.h"

#include <cstddef>
#include <cstdint>
#include <unordered_map>
#include <vector>

// The rows of the reservation table in the order of adding, with indexes by
// hardware address and by IP address. Not thread-safe; the table changes only
// while the server is stopped.
//
// Invariant: no two rows share a hardware address, and no two share an IP
// address (AddressManager checks every new row before it enters), so each
// index maps a key to the one row that has it.
class ReservationTable {
public:
    static constexpr size_t NONE = static_cast<size_t>(-1);

    size_t Size() const { return rows.size(); }
    // Precondition: index < Size().
    const AddressReservation& At(size_t index) const;

    // Position of the row of this client or of this address, or NONE.
    size_t FindByHardwareAddress(const HardwareAddress& hardwareAddress) const;
    size_t FindByIPAddress(const IPv4Address& address) const;

    // Preconditions: the row clashes with no row (but the replaced one).
    void Append(const AddressReservation& reservation);
    void Replace(size_t index, const AddressReservation& reservation);
    // Closes the gap; the rows behind move up by one.
    void Remove(size_t index);

private:
    void Reindex();

    std::vector<AddressReservation> rows;
    std::unordered_map<HardwareAddress, size_t, HardwareAddressHash> positionByHardwareAddress;
    std::unordered_map<uint32_t, size_t> positionByIPAddress;
};
