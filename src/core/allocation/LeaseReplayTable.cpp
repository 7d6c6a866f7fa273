#include "allocation/LeaseReplayTable.h"

void LeaseReplayTable::Append(const Lease& lease)
{
    rowsByAddress[lease.GetIPAddress().ToUint32()].push_back(static_cast<uint32_t>(rows.size()));
    rows.push_back(lease);
    live.push_back(1);
    ++liveRows;
}

void LeaseReplayTable::EraseFirstByIPAddress(const IPv4Address& address)
{
    const auto entry = rowsByAddress.find(address.ToUint32());
    if (entry == rowsByAddress.end() || entry->second.empty()) {
        return;
    }
    // The list is nearly always one index long; an emptied list keeps its
    // room for the next row of the address.
    live[entry->second.front()] = 0;
    entry->second.erase(entry->second.begin());
    --liveRows;
}

void LeaseReplayTable::ExpireFirstByIPAddress(const IPv4Address& address, int64_t now)
{
    const auto entry = rowsByAddress.find(address.ToUint32());
    if (entry != rowsByAddress.end() && !entry->second.empty()) {
        rows[entry->second.front()].Expire(now);
    }
}

void LeaseReplayTable::Assign(std::vector<Lease> newRows)
{
    rows = std::move(newRows);
    live.assign(rows.size(), 1);
    liveRows = rows.size();
    rowsByAddress.clear();
    rowsByAddress.reserve(rows.size());
    for (size_t index = 0; index < rows.size(); ++index) {
        rowsByAddress[rows[index].GetIPAddress().ToUint32()].push_back(static_cast<uint32_t>(index));
    }
}

std::vector<Lease> LeaseReplayTable::Rows() const
{
    std::vector<Lease> result;
    result.reserve(liveRows);
    for (size_t index = 0; index < rows.size(); ++index) {
        if (live[index] != 0) {
            result.push_back(rows[index]);
        }
    }
    return result;
}
