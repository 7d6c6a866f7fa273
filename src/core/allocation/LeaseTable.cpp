#include "allocation/LeaseTable.h"

#include "foundation/Precondition.h"

#include <algorithm>
#include <iterator>

namespace {

template <typename Index, typename Key, typename Serial>
void RemoveSerial(Index& index, const Key& key, Serial serial)
{
    const auto entry = index.find(key);
    PRECONDITION(entry != index.end());
    auto& serials = entry->second;
    const auto found = std::lower_bound(serials.begin(), serials.end(), serial);
    // Invariant: every row is indexed under its key.
    PRECONDITION(found != serials.end() && *found == serial);
    serials.erase(found);
    if (serials.empty()) {
        index.erase(entry);
    }
}

} // namespace

const Lease& LeaseTable::At(size_t index) const
{
    PRECONDITION(index < rows.size());
    return rows[index];
}

int LeaseTable::FindFirstByHardwareAddress(const HardwareAddress& hardwareAddress) const
{
    const auto entry = rowsByHardwareAddress.find(hardwareAddress);
    return entry == rowsByHardwareAddress.end() ? NOT_FOUND : static_cast<int>(PositionOf(entry->second.front()));
}

int LeaseTable::FindFirstByIPAddress(const IPv4Address& address) const
{
    const auto entry = rowsByIPAddress.find(address.ToUint32());
    return entry == rowsByIPAddress.end() ? NOT_FOUND : static_cast<int>(PositionOf(entry->second.front()));
}

bool LeaseTable::HasActiveLease(const IPv4Address& address, int64_t now) const
{
    const auto entry = rowsByIPAddress.find(address.ToUint32());
    if (entry == rowsByIPAddress.end()) {
        return false;
    }
    return std::any_of(entry->second.begin(), entry->second.end(),
                       [&](Serial serial) { return !rows[PositionOf(serial)].IsExpired(now); });
}

void LeaseTable::Append(const Lease& lease)
{
    const Serial serial = nextSerial++;
    rows.push_back(lease);
    serials.push_back(serial);
    IndexRow(lease, serial);
}

void LeaseTable::EraseFirstByIPAddress(const IPv4Address& address)
{
    const int position = FindFirstByIPAddress(address);
    if (position == NOT_FOUND) {
        return;
    }
    UnindexRow(rows[position], serials[position]);
    rows.erase(rows.begin() + position);
    serials.erase(serials.begin() + position);
}

void LeaseTable::ExpireFirstByIPAddress(const IPv4Address& address, int64_t now)
{
    const int position = FindFirstByIPAddress(address);
    if (position != NOT_FOUND) {
        // Expire changes neither key, so the indexes stay as they are.
        rows[position].Expire(now);
    }
}

void LeaseTable::Assign(std::vector<Lease> newRows)
{
    rows = std::move(newRows);
    serials.clear();
    rowsByIPAddress.clear();
    rowsByHardwareAddress.clear();
    serials.reserve(rows.size());
    rowsByIPAddress.reserve(rows.size());
    for (const Lease& lease : rows) {
        const Serial serial = nextSerial++;
        serials.push_back(serial);
        IndexRow(lease, serial);
    }
}

size_t LeaseTable::PositionOf(Serial serial) const
{
    const auto found = std::lower_bound(serials.begin(), serials.end(), serial);
    // Invariant: the indexes name only serials of rows in the table.
    PRECONDITION(found != serials.end() && *found == serial);
    return static_cast<size_t>(std::distance(serials.begin(), found));
}

void LeaseTable::IndexRow(const Lease& lease, Serial serial)
{
    // Serials grow, so push_back keeps each list ascending.
    rowsByIPAddress[lease.GetIPAddress().ToUint32()].push_back(serial);
    rowsByHardwareAddress[lease.GetHardwareAddress()].push_back(serial);
}

void LeaseTable::UnindexRow(const Lease& lease, Serial serial)
{
    RemoveSerial(rowsByIPAddress, lease.GetIPAddress().ToUint32(), serial);
    RemoveSerial(rowsByHardwareAddress, lease.GetHardwareAddress(), serial);
}
