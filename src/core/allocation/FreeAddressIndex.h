#pragma once

#include "allocation/AddressRangeSet.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <optional>
#include <queue>
#include <unordered_map>
#include <utility>
#include <vector>

class LeaseTable;
class ReservationTable;

// The addresses that are certainly not available to a new client: reserved
// ones and those with a lease row that has not expired. It knows nothing of
// the pool, which Settings may move at any time, nor of open transactions,
// which change behind the address manager's back; GetFreeAddress takes its
// candidates from here in ascending order and confirms each one with the one
// exact availability test.
//
// Leases expire by the clock, without any call. So each address with rows is
// due for a recheck at the first second at which its answer could change (a
// min-queue ordered by that time), and Update rechecks the addresses that
// have come due before the index is asked. The knowledge of an address holds
// from the moment it was checked until its recheck, as long as the clock only
// moves forward; when it goes back, the index is rebuilt.
//
// Not thread-safe: AddressManager holds the lease lock around every call.
class FreeAddressIndex {
public:
    // Forgets everything; the next Update rebuilds the index from the tables.
    void Invalidate() { valid = false; }
    // Makes the index exact at `now`.
    void Update(const LeaseTable& leases, const ReservationTable& reservations, int64_t now);
    // Takes note of a change of the rows or the reservation of `address`,
    // made at `now` and already in the tables.
    void Refresh(uint32_t address, const LeaseTable& leases, const ReservationTable& reservations, int64_t now);
    // The lowest address of [first, last] that is not known to be taken.
    // Only meaningful right after Update.
    std::optional<uint32_t> LowestUntaken(uint32_t first, uint32_t last) const;

private:
    using DueEntry = std::pair<int64_t, uint32_t>; // recheck time, address
    // When an address must be looked at again, and the time of its entry in
    // `due`. A renewal moves the recheck later without a new entry: the old,
    // earlier one comes due first and is then put back at the real time. So
    // the queue keeps about one entry per address however often leases are
    // renewed, and never needs rebuilding for them.
    struct RecheckTime {
        int64_t time;
        int64_t queuedAt;
    };
    static constexpr int64_t NOT_QUEUED = std::numeric_limits<int64_t>::max();

    void Rebuild(const LeaseTable& leases, const ReservationTable& reservations, int64_t now);
    // Looks at the address afresh at `now`.
    void Recheck(uint32_t address, const LeaseTable& leases, const ReservationTable& reservations, int64_t now);
    void Schedule(uint32_t address, int64_t time);
    void Enqueue(uint32_t address, RecheckTime& recheck, int64_t time);
    void DropStaleEntriesIfMany();

    bool valid = false;
    // The latest time at which any address was checked.
    int64_t checkedAt = 0;
    // Invariant, while valid: an address is in `taken` exactly when it is
    // reserved or, at the time of its last check, had a row not expired.
    AddressRangeSet taken;
    // Invariant, while valid: exactly the addresses with rows, each with the
    // second at which it must be looked at again; `due` holds an entry at
    // queuedAt for each, and queuedAt <= time. Entries of `due` at another
    // time than their address's queuedAt are stale and skipped.
    std::unordered_map<uint32_t, RecheckTime> recheckTimes;
    std::priority_queue<DueEntry, std::vector<DueEntry>, std::greater<>> due;
};
