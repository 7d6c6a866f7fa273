#include "allocation/FenwickTree.h"

#include "foundation/Precondition.h"

#include <bit>

namespace {

size_t LowestBit(size_t index)
{
    return index & (~index + 1);
}

} // namespace

void FenwickTree::Assign(const std::vector<uint32_t>& values)
{
    tree.assign(values.size() + 1, 0);
    for (size_t i = 1; i <= values.size(); ++i) {
        tree[i] += values[i - 1];
        const size_t parent = i + LowestBit(i);
        if (parent <= values.size()) {
            tree[parent] += tree[i];
        }
    }
}

void FenwickTree::PushBack(uint32_t value)
{
    const size_t index = tree.size();
    const size_t covered = LowestBit(index);
    // The new node covers (index - covered, index]: the new value and the
    // slots before it down to index - covered.
    tree.push_back(value + PrefixSum(index - 1) - PrefixSum(index - covered));
}

void FenwickTree::Add(size_t slot, int32_t delta)
{
    PRECONDITION(slot < Size());
    for (size_t i = slot + 1; i < tree.size(); i += LowestBit(i)) {
        tree[i] = static_cast<uint32_t>(static_cast<int64_t>(tree[i]) + delta);
    }
}

uint32_t FenwickTree::PrefixSum(size_t count) const
{
    PRECONDITION(count <= Size());
    uint32_t sum = 0;
    for (size_t i = count; i > 0; i -= LowestBit(i)) {
        sum += tree[i];
    }
    return sum;
}

size_t FenwickTree::FindRank(uint32_t rank) const
{
    PRECONDITION(rank < Total());
    // Descends from the largest power of two: `position` only ever grows
    // over slots whose sum stays within `rank`.
    size_t position = 0;
    for (size_t step = std::bit_floor(Size()); step > 0; step /= 2) {
        if (position + step <= Size() && tree[position + step] <= rank) {
            position += step;
            rank -= tree[position];
        }
    }
    return position;
}
