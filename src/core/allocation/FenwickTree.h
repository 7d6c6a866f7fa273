#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

// Counts over a growing sequence of slots, each 0 or more, with prefix sums
// and the search for the slot of a given rank in O(log n). The lease table
// uses it to turn a slot into a row position and back while erased rows
// wait for compaction.
class FenwickTree {
public:
    size_t Size() const { return tree.size() - 1; }
    uint32_t Total() const { return PrefixSum(Size()); }

    // Replaces all slots by `values`, in O(n).
    void Assign(const std::vector<uint32_t>& values);
    // Adds a slot at the end.
    void PushBack(uint32_t value);
    // Room for `count` slots, so that growing to them moves nothing.
    void Reserve(size_t count) { tree.reserve(count + 1); }
    // Precondition: slot < Size(); the count of the slot stays non-negative.
    void Add(size_t slot, int32_t delta);
    // Sum of the slots [0, count). Precondition: count <= Size().
    uint32_t PrefixSum(size_t count) const;
    // The slot s with PrefixSum(s) <= rank < PrefixSum(s + 1).
    // Precondition: rank < Total().
    size_t FindRank(uint32_t rank) const;

private:
    // 1-based: tree[i] holds the sum of the slots (i - lowbit(i), i].
    std::vector<uint32_t> tree = std::vector<uint32_t>(1, 0);
};
