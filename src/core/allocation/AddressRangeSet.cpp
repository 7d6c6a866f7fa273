#include "allocation/AddressRangeSet.h"

#include "foundation/Precondition.h"

#include <limits>

namespace {

constexpr uint32_t LAST_ADDRESS = std::numeric_limits<uint32_t>::max();

} // namespace

std::map<uint32_t, uint32_t>::const_iterator AddressRangeSet::RunOf(uint32_t address) const
{
    auto run = runs.upper_bound(address);
    if (run == runs.begin()) {
        return runs.end();
    }
    --run;
    return run->second >= address ? run : runs.end();
}

bool AddressRangeSet::Contains(uint32_t address) const
{
    return RunOf(address) != runs.end();
}

void AddressRangeSet::Insert(uint32_t address)
{
    if (Contains(address)) {
        return;
    }
    auto next = runs.upper_bound(address);
    const bool joinsNext = next != runs.end() && next->first == address + 1;
    auto previous = next == runs.begin() ? runs.end() : std::prev(next);
    const bool joinsPrevious = previous != runs.end() && previous->second + 1 == address;
    if (joinsPrevious) {
        previous->second = joinsNext ? next->second : address;
        if (joinsNext) {
            runs.erase(next);
        }
    } else if (joinsNext) {
        const uint32_t last = next->second;
        runs.erase(next);
        runs.emplace(address, last);
    } else {
        runs.emplace(address, address);
    }
}

void AddressRangeSet::Erase(uint32_t address)
{
    const auto found = RunOf(address);
    if (found == runs.end()) {
        return;
    }
    const uint32_t first = found->first;
    const uint32_t last = found->second;
    runs.erase(found);
    if (first < address) {
        runs.emplace(first, address - 1);
    }
    if (address < last) {
        runs.emplace(address + 1, last);
    }
}

void AddressRangeSet::Assign(const std::vector<uint32_t>& addresses)
{
    runs.clear();
    auto hint = runs.end();
    for (size_t i = 0; i < addresses.size();) {
        size_t end = i + 1;
        while (end < addresses.size() && addresses[end - 1] != LAST_ADDRESS &&
               addresses[end] == addresses[end - 1] + 1) {
            ++end;
        }
        // Invariant: ascending without repeats, so the runs come out apart.
        PRECONDITION(end == addresses.size() || addresses[end] > addresses[end - 1]);
        hint = runs.emplace_hint(hint, addresses[i], addresses[end - 1]);
        ++hint;
        i = end;
    }
}

std::optional<uint32_t> AddressRangeSet::LowestMissing(uint32_t first, uint32_t last) const
{
    if (first > last) {
        return std::nullopt;
    }
    const auto run = RunOf(first);
    if (run == runs.end()) {
        return first;
    }
    // Runs never touch, so the address after a run is missing from the set.
    if (run->second >= last) {
        return std::nullopt;
    }
    return run->second + 1;
}
