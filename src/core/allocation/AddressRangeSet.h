#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <vector>

// A set of IPv4 addresses (as 32-bit values) kept as maximal runs of
// consecutive addresses, so that the lowest address missing from the set
// within a range is found in O(log n), however long the runs.
class AddressRangeSet {
public:
    bool Contains(uint32_t address) const;
    void Insert(uint32_t address);
    void Erase(uint32_t address);
    void Clear() { runs.clear(); }
    // Replaces the set. Precondition: `addresses` ascending, without repeats.
    void Assign(const std::vector<uint32_t>& addresses);
    // The lowest address of [first, last] that is not in the set.
    std::optional<uint32_t> LowestMissing(uint32_t first, uint32_t last) const;
    size_t RunCount() const { return runs.size(); }

private:
    // The run that holds `address`, or runs.end().
    std::map<uint32_t, uint32_t>::const_iterator RunOf(uint32_t address) const;

    // First address of a run -> its last address. Invariant: runs neither
    // overlap nor touch (a run ending at x is never followed by one at x + 1).
    std::map<uint32_t, uint32_t> runs;
};
