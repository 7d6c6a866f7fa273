#pragma once

#include "log/LogItem.h"
#include "log/LogSnapshot.h"

#include <cstddef>
#include <memory>
#include <type_traits>
#include <vector>

// The items of a run, in order of adding, in blocks of a fixed number of
// items. Appending never moves an item already stored, so the list grows
// without the copy of everything and the doubled reserve that a single
// array needs; it costs sizeof(LogItem) per item, and one allocation for
// each block. Blocks are shared with snapshots, which read the items without
// a copy (LogSnapshot). Not thread-safe: LogManager holds its lock.
class LogItemList {
public:
    static constexpr size_t ITEMS_PER_BLOCK = 4096;

    size_t Size() const { return size; }
    void Append(const LogItem& item);
    // Copies of the items from `first`, `count` of them, appended to `copies`.
    // Precondition: first + count <= Size().
    void CopyTo(std::vector<LogItem>& copies, size_t first, size_t count) const;
    // Makes `snapshot` show every item stored now, adding only the blocks it
    // lacks. Precondition: `snapshot` was made empty or by this list.
    void Extend(LogSnapshot& snapshot) const;

private:
    // Blocks hold raw storage; an item is placed in it when appended. Items
    // need no destruction, so a block is freed as it stands.
    static_assert(std::is_trivially_copyable_v<LogItem> && std::is_trivially_destructible_v<LogItem>);
    struct Block {
        alignas(LogItem) std::byte storage[ITEMS_PER_BLOCK * sizeof(LogItem)];
    };

    // The items stored in block `blockIndex`, as an array.
    const LogItem* ItemsOfBlock(size_t blockIndex) const;

    std::vector<std::shared_ptr<Block>> blocks;
    size_t size = 0;
};
