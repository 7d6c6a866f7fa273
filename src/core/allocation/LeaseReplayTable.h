#pragma once

#include "allocation/Lease.h"
#include "foundation/IPv4Address.h"

#include <cstdint>
#include <limits>
#include <unordered_map>
#include <vector>

// The lease table as a replay needs it, and nothing more: the four changes a
// journal record can make, each in constant time, and the rows in table
// order at the end. A journal of 4 MiB holds some 140,000 records; redoing
// them on a LeaseTable would also keep its hardware-address index and its
// position tree up to date at every step, for nothing.
//
// Rows are never moved while the replay runs: an erased row is only marked,
// and Rows() skips the marked ones. The live rows of one address form a
// chain in table order (first, then nextOfSameAddress), so that no address
// costs an allocation of its own.
class LeaseReplayTable {
public:
    LeaseReplayTable() = default;
    explicit LeaseReplayTable(std::vector<Lease> rows) { Assign(std::move(rows)); }

    // Room for `extra` more rows, before a run of appends.
    void ReserveMore(size_t extra);
    void Append(const Lease& lease);
    void EraseFirstByIPAddress(const IPv4Address& address);
    void ExpireFirstByIPAddress(const IPv4Address& address, int64_t now);
    void Assign(std::vector<Lease> newRows);

    // The live rows, in table order.
    std::vector<Lease> Rows() const;
    size_t Size() const { return liveRows; }

private:
    static constexpr uint32_t NONE = std::numeric_limits<uint32_t>::max();
    struct Chain {
        uint32_t first = NONE;
        uint32_t last = NONE;
    };

    // Invariant: live and nextOfSameAddress have one entry per row; the chain
    // of each address runs through exactly its live rows, ascending.
    std::vector<Lease> rows;
    std::vector<uint8_t> live;
    std::vector<uint32_t> nextOfSameAddress;
    size_t liveRows = 0;
    std::unordered_map<uint32_t, Chain> chains;
};
