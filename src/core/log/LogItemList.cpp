#include "log/LogItemList.h"

#include "foundation/Precondition.h"

#include <algorithm>
#include <new>

void LogItemList::Append(const LogItem& item)
{
    const size_t offset = size % ITEMS_PER_BLOCK;
    if (offset == 0) {
        blocks.push_back(std::make_shared_for_overwrite<Block>());
    }
    ::new (blocks.back()->storage + offset * sizeof(LogItem)) LogItem(item);
    ++size;
}

void LogItemList::CopyTo(std::vector<LogItem>& copies, size_t first, size_t count) const
{
    PRECONDITION(first <= size && count <= size - first);
    copies.reserve(copies.size() + count);
    // A run of items within one block at a time.
    size_t index = first;
    const size_t end = first + count;
    while (index < end) {
        const size_t runLength = std::min(end - index, ITEMS_PER_BLOCK - index % ITEMS_PER_BLOCK);
        const LogItem* run = ItemsOfBlock(index / ITEMS_PER_BLOCK) + index % ITEMS_PER_BLOCK;
        copies.insert(copies.end(), run, run + runLength);
        index += runLength;
    }
}

void LogItemList::Extend(LogSnapshot& snapshot) const
{
    PRECONDITION(snapshot.size <= size && snapshot.blocks.size() <= blocks.size());
    for (size_t block = snapshot.blocks.size(); block < blocks.size(); ++block) {
        // Shares the ownership of the block, points at its items.
        snapshot.blocks.emplace_back(blocks[block], ItemsOfBlock(block));
    }
    snapshot.size = size;
}

const LogItem* LogItemList::ItemsOfBlock(size_t blockIndex) const
{
    return std::launder(reinterpret_cast<const LogItem*>(blocks[blockIndex]->storage));
}
