#include "allocation/FreeAddressIndex.h"

#include "allocation/LeaseTable.h"
#include "allocation/ReservationTable.h"

#include <algorithm>

namespace {

// Stale queue entries are dropped once they outnumber the live ones by this
// many, so that renewals cannot grow the queue without bound.
constexpr size_t STALE_ENTRY_ALLOWANCE = 1024;

} // namespace

void FreeAddressIndex::Update(const LeaseTable& leases, const ReservationTable& reservations, int64_t now)
{
    // An earlier time can make an expired row active again: start afresh.
    if (!valid || now < checkedAt) {
        Rebuild(leases, reservations, now);
        return;
    }
    while (!due.empty() && due.top().first <= now) {
        const auto [time, address] = due.top();
        due.pop();
        const auto scheduled = recheckTimes.find(address);
        if (scheduled == recheckTimes.end() || scheduled->second.queuedAt != time) {
            continue; // stale
        }
        scheduled->second.queuedAt = NOT_QUEUED;
        if (scheduled->second.time <= now) {
            Recheck(address, leases, reservations, now);
        } else {
            Enqueue(address, scheduled->second, scheduled->second.time); // renewed meanwhile
        }
    }
    checkedAt = now;
    DropStaleEntriesIfMany();
}

void FreeAddressIndex::Refresh(uint32_t address, const LeaseTable& leases, const ReservationTable& reservations,
                               int64_t now)
{
    if (!valid) {
        return;
    }
    if (now < checkedAt) {
        valid = false;
        return;
    }
    Recheck(address, leases, reservations, now);
    checkedAt = now;
    DropStaleEntriesIfMany();
}

std::optional<uint32_t> FreeAddressIndex::LowestUntaken(uint32_t first, uint32_t last) const
{
    return taken.LowestMissing(first, last);
}

void FreeAddressIndex::Rebuild(const LeaseTable& leases, const ReservationTable& reservations, int64_t now)
{
    std::vector<uint32_t> takenAddresses;
    takenAddresses.reserve(leases.IPAddressCount() + reservations.Size());
    std::vector<DueEntry> entries;
    entries.reserve(leases.IPAddressCount());
    recheckTimes.clear();
    recheckTimes.reserve(leases.IPAddressCount());
    leases.ForEachIPAddress([&](uint32_t value) {
        const IPv4Address address = IPv4Address::FromUint32(value);
        if (leases.HasActiveLease(address, now)) {
            takenAddresses.push_back(value);
        }
        const int64_t time = leases.NextStateChange(address, now);
        recheckTimes.emplace(value, RecheckTime{time, time});
        entries.emplace_back(time, value);
    });
    for (size_t row = 0; row < reservations.Size(); ++row) {
        takenAddresses.push_back(reservations.At(row).GetIPAddress().ToUint32());
    }
    std::sort(takenAddresses.begin(), takenAddresses.end());
    takenAddresses.erase(std::unique(takenAddresses.begin(), takenAddresses.end()), takenAddresses.end());
    taken.Assign(takenAddresses);
    due = decltype(due)(std::greater<>(), std::move(entries));
    checkedAt = now;
    valid = true;
}

void FreeAddressIndex::Recheck(uint32_t value, const LeaseTable& leases, const ReservationTable& reservations,
                               int64_t now)
{
    const IPv4Address address = IPv4Address::FromUint32(value);
    const bool isTaken =
        reservations.FindByIPAddress(address) != ReservationTable::NONE || leases.HasActiveLease(address, now);
    if (isTaken) {
        taken.Insert(value);
    } else {
        taken.Erase(value);
    }
    Schedule(value, leases.NextStateChange(address, now));
}

void FreeAddressIndex::Schedule(uint32_t address, int64_t time)
{
    if (time == LeaseTable::NEVER) {
        // No rows: only a reservation can take the address, and that does
        // not change by itself.
        recheckTimes.erase(address);
        return;
    }
    const auto [entry, added] = recheckTimes.try_emplace(address, RecheckTime{time, NOT_QUEUED});
    entry->second.time = time;
    if (time < entry->second.queuedAt) {
        Enqueue(address, entry->second, time);
    }
}

void FreeAddressIndex::Enqueue(uint32_t address, RecheckTime& recheck, int64_t time)
{
    recheck.queuedAt = time;
    due.emplace(time, address);
}

void FreeAddressIndex::DropStaleEntriesIfMany()
{
    if (due.size() <= 2 * recheckTimes.size() + STALE_ENTRY_ALLOWANCE) {
        return;
    }
    std::vector<DueEntry> entries;
    entries.reserve(recheckTimes.size());
    for (auto& [address, recheck] : recheckTimes) {
        recheck.queuedAt = recheck.time;
        entries.emplace_back(recheck.time, address);
    }
    due = decltype(due)(std::greater<>(), std::move(entries));
}
