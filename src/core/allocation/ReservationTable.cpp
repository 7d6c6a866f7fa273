#include "allocation/ReservationTable.h"

#include "foundation/Precondition.h"

const AddressReservation& ReservationTable::At(size_t index) const
{
    PRECONDITION(index < rows.size());
    return rows[index];
}

size_t ReservationTable::FindByHardwareAddress(const HardwareAddress& hardwareAddress) const
{
    const auto entry = positionByHardwareAddress.find(hardwareAddress);
    return entry == positionByHardwareAddress.end() ? NONE : entry->second;
}

size_t ReservationTable::FindByIPAddress(const IPv4Address& address) const
{
    const auto entry = positionByIPAddress.find(address.ToUint32());
    return entry == positionByIPAddress.end() ? NONE : entry->second;
}

void ReservationTable::Append(const AddressReservation& reservation)
{
    const size_t position = rows.size();
    const bool newClient = positionByHardwareAddress.emplace(reservation.GetHardwareAddress(), position).second;
    const bool newAddress = positionByIPAddress.emplace(reservation.GetIPAddress().ToUint32(), position).second;
    PRECONDITION(newClient && newAddress);
    rows.push_back(reservation);
}

void ReservationTable::Replace(size_t index, const AddressReservation& reservation)
{
    PRECONDITION(index < rows.size());
    rows[index] = reservation;
    Reindex();
}

void ReservationTable::Remove(size_t index)
{
    PRECONDITION(index < rows.size());
    rows.erase(rows.begin() + static_cast<std::ptrdiff_t>(index));
    Reindex();
}

void ReservationTable::Reindex()
{
    positionByHardwareAddress.clear();
    positionByIPAddress.clear();
    for (size_t position = 0; position < rows.size(); ++position) {
        const bool newClient = positionByHardwareAddress.emplace(rows[position].GetHardwareAddress(), position).second;
        const bool newAddress = positionByIPAddress.emplace(rows[position].GetIPAddress().ToUint32(), position).second;
        // Invariant: hardware and IP addresses are unique among the rows.
        PRECONDITION(newClient && newAddress);
    }
}
