#pragma once

#include "allocation/Lease.h"
#include "foundation/IPv4Address.h"

#include <cstdint>
#include <unordered_map>
#include <vector>

// The lease table as a replay needs it, and nothing more: the four changes a
// journal record can make, each in constant time, and the rows in table
// order at the end. A journal of 4 MiB holds some 140,000 records; redoing
// them on a LeaseTable would also keep its hardware-address index and its
// position tree up to date at every step, for nothing.
//
// Rows are never moved while the replay runs: an erased row is only marked,
// and Rows() skips the marked ones.
class LeaseReplayTable {
public:
    LeaseReplayTable() = default;
    explicit LeaseReplayTable(std::vector<Lease> rows) { Assign(std::move(rows)); }

    void Append(const Lease& lease);
    void EraseFirstByIPAddress(const IPv4Address& address);
    void ExpireFirstByIPAddress(const IPv4Address& address, int64_t now);
    void Assign(std::vector<Lease> newRows);

    // The live rows, in table order.
    std::vector<Lease> Rows() const;
    size_t Size() const { return liveRows; }

private:
    // Invariant: live has one entry per row; rowsByAddress lists, for each
    // address, the indexes of its live rows in ascending order.
    std::vector<Lease> rows;
    std::vector<uint8_t> live;
    size_t liveRows = 0;
    std::unordered_map<uint32_t, std::vector<uint32_t>> rowsByAddress;
};
