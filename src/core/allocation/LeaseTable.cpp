#include "allocation/LeaseTable.h"

#include "foundation/Precondition.h"

#include <algorithm>
#include <iterator>

namespace {

// Compaction waits for at least this many marked slots, so that a small
// table is not copied again and again.
constexpr size_t MIN_SLOTS_TO_COMPACT = 64;

template <typename Index, typename Key, typename Serial>
void RemoveSerial(Index& index, const Key& key, Serial serial)
{
    const auto entry = index.find(key);
    // Invariant: every row is indexed under its key.
    PRECONDITION(entry != index.end());
    if (entry->second.Remove(serial)) {
        index.erase(entry);
    }
}

} // namespace

bool LeaseTable::SerialList::Remove(Serial serial)
{
    if (serial == first) {
        if (more.empty()) {
            return true;
        }
        first = more.front();
        more.erase(more.begin());
        return false;
    }
    const auto found = std::lower_bound(more.begin(), more.end(), serial);
    PRECONDITION(found != more.end() && *found == serial);
    more.erase(found);
    return false;
}

const Lease& LeaseTable::At(size_t index) const
{
    PRECONDITION(index < liveRows);
    return rowsBySlot[liveSlots.FindRank(static_cast<uint32_t>(index))];
}

std::vector<Lease> LeaseTable::Rows() const
{
    std::vector<Lease> rows;
    rows.reserve(liveRows);
    for (size_t slot = 0; slot < rowsBySlot.size(); ++slot) {
        if (live[slot] != 0) {
            rows.push_back(rowsBySlot[slot]);
        }
    }
    return rows;
}

int LeaseTable::FindFirstByHardwareAddress(const HardwareAddress& hardwareAddress) const
{
    const auto entry = rowsByHardwareAddress.find(hardwareAddress);
    return entry == rowsByHardwareAddress.end() ? NOT_FOUND : static_cast<int>(PositionOf(entry->second.Front()));
}

bool LeaseTable::HasActiveLease(const IPv4Address& address, int64_t now) const
{
    const auto entry = rowsByIPAddress.find(address.ToUint32());
    if (entry == rowsByIPAddress.end()) {
        return false;
    }
    bool active = false;
    entry->second.ForEach([&](Serial serial) { active = active || !rowsBySlot[SlotOf(serial)].IsExpired(now); });
    return active;
}

int64_t LeaseTable::NextStateChange(const IPv4Address& address, int64_t now) const
{
    const auto entry = rowsByIPAddress.find(address.ToUint32());
    if (entry == rowsByIPAddress.end()) {
        return NEVER;
    }
    // The answer for the address can change only when that of a row does.
    int64_t next = NEVER;
    entry->second.ForEach(
        [&](Serial serial) { next = std::min(next, rowsBySlot[SlotOf(serial)].GetNextStateChange(now)); });
    return next;
}

void LeaseTable::Append(const Lease& lease)
{
    ++version;
    const Serial serial = nextSerial++;
    rowsBySlot.push_back(lease);
    serials.push_back(serial);
    live.push_back(1);
    liveSlots.PushBack(1);
    ++liveRows;
    IndexRow(lease, serial);
}

void LeaseTable::Reserve(size_t rows)
{
    // A load replaces the rows by a vector just large enough, so the room is
    // judged afresh from the rows' capacity every time.
    if (rowsBySlot.capacity() >= rows) {
        return;
    }
    rowsBySlot.reserve(rows);
    serials.reserve(rows);
    live.reserve(rows);
    liveSlots.Reserve(rows);
    rowsByIPAddress.reserve(rows);
    rowsByHardwareAddress.reserve(rows);
}

bool LeaseTable::EraseFirstByIPAddress(const IPv4Address& address)
{
    const auto entry = rowsByIPAddress.find(address.ToUint32());
    if (entry == rowsByIPAddress.end()) {
        return false;
    }
    ++version;
    const Serial serial = entry->second.Front();
    const size_t slot = SlotOf(serial);
    UnindexRow(rowsBySlot[slot], serial);
    live[slot] = 0;
    liveSlots.Add(slot, -1);
    --liveRows;
    CompactIfSparse();
    return true;
}

bool LeaseTable::ExpireFirstByIPAddress(const IPv4Address& address, int64_t now)
{
    const auto entry = rowsByIPAddress.find(address.ToUint32());
    if (entry == rowsByIPAddress.end()) {
        return false;
    }
    ++version;
    // Expire changes neither key, so the indexes stay as they are.
    rowsBySlot[SlotOf(entry->second.Front())].Expire(now);
    return true;
}

void LeaseTable::Assign(std::vector<Lease> newRows)
{
    ++version;
    rowsBySlot = std::move(newRows);
    liveRows = rowsBySlot.size();
    serials.resize(liveRows);
    live.assign(liveRows, 1);
    liveSlots.Assign(std::vector<uint32_t>(liveRows, 1));
    rowsByIPAddress.clear();
    rowsByHardwareAddress.clear();
    rowsByIPAddress.reserve(liveRows);
    rowsByHardwareAddress.reserve(liveRows);
    for (size_t slot = 0; slot < liveRows; ++slot) {
        serials[slot] = nextSerial++;
        IndexRow(rowsBySlot[slot], serials[slot]);
    }
}

size_t LeaseTable::SlotOf(Serial serial) const
{
    const auto found = std::lower_bound(serials.begin(), serials.end(), serial);
    // Invariant: the indexes name only serials of live slots.
    PRECONDITION(found != serials.end() && *found == serial);
    return static_cast<size_t>(std::distance(serials.begin(), found));
}

size_t LeaseTable::PositionOf(Serial serial) const
{
    return liveSlots.PrefixSum(SlotOf(serial));
}

void LeaseTable::IndexRow(const Lease& lease, Serial serial)
{
    // Serials grow, so appending keeps each list ascending.
    const auto addIndexed = [serial](auto& index, const auto& key) {
        const auto [entry, added] = index.try_emplace(key, serial);
        if (!added) {
            entry->second.PushBack(serial);
        }
    };
    addIndexed(rowsByIPAddress, lease.GetIPAddress().ToUint32());
    addIndexed(rowsByHardwareAddress, lease.GetHardwareAddress());
}

void LeaseTable::UnindexRow(const Lease& lease, Serial serial)
{
    RemoveSerial(rowsByIPAddress, lease.GetIPAddress().ToUint32(), serial);
    RemoveSerial(rowsByHardwareAddress, lease.GetHardwareAddress(), serial);
}

void LeaseTable::CompactIfSparse()
{
    const size_t marked = rowsBySlot.size() - liveRows;
    if (marked <= std::max(liveRows, MIN_SLOTS_TO_COMPACT)) {
        return;
    }
    // Live slots move to the front in their order; their serials go with
    // them and stay ascending, so the indexes need no change.
    size_t kept = 0;
    for (size_t slot = 0; slot < rowsBySlot.size(); ++slot) {
        if (live[slot] != 0) {
            if (kept != slot) {
                rowsBySlot[kept] = std::move(rowsBySlot[slot]);
                serials[kept] = serials[slot];
            }
            ++kept;
        }
    }
    rowsBySlot.erase(rowsBySlot.begin() + static_cast<std::ptrdiff_t>(kept), rowsBySlot.end());
    serials.resize(kept);
    live.assign(kept, 1);
    liveSlots.Assign(std::vector<uint32_t>(kept, 1));
}
