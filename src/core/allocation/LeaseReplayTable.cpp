#include "allocation/LeaseReplayTable.h"

void LeaseReplayTable::ReserveMore(size_t extra)
{
    rows.reserve(rows.size() + extra);
    live.reserve(rows.size() + extra);
    nextOfSameAddress.reserve(rows.size() + extra);
}

void LeaseReplayTable::Append(const Lease& lease)
{
    const auto index = static_cast<uint32_t>(rows.size());
    rows.push_back(lease);
    live.push_back(1);
    nextOfSameAddress.push_back(NONE);
    ++liveRows;
    Chain& chain = chains[lease.GetIPAddress().ToUint32()];
    if (chain.first == NONE) {
        chain.first = index;
    } else {
        nextOfSameAddress[chain.last] = index;
    }
    chain.last = index;
}

void LeaseReplayTable::EraseFirstByIPAddress(const IPv4Address& address)
{
    const auto entry = chains.find(address.ToUint32());
    if (entry == chains.end() || entry->second.first == NONE) {
        return;
    }
    // An emptied chain stays, ready for the next row of the address.
    Chain& chain = entry->second;
    live[chain.first] = 0;
    --liveRows;
    chain.first = nextOfSameAddress[chain.first];
    if (chain.first == NONE) {
        chain.last = NONE;
    }
}

void LeaseReplayTable::ExpireFirstByIPAddress(const IPv4Address& address, int64_t now)
{
    const auto entry = chains.find(address.ToUint32());
    if (entry != chains.end() && entry->second.first != NONE) {
        rows[entry->second.first].Expire(now);
    }
}

void LeaseReplayTable::Assign(std::vector<Lease> newRows)
{
    const size_t count = newRows.size();
    rows.clear();
    live.clear();
    nextOfSameAddress.clear();
    chains.clear();
    liveRows = 0;
    chains.reserve(count);
    ReserveMore(count);
    for (const Lease& lease : newRows) {
        Append(lease);
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
