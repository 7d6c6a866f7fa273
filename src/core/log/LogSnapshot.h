#pragma once

#include "log/LogItem.h"

#include <cstddef>
#include <memory>
#include <vector>

class LogItemList;

// The first Size() items of a log, readable without the log's lock. It holds
// the log's own blocks of items, shared, not copies of the items: a block is
// freed when neither the log nor any snapshot holds it any more.
//
// Invariant: the items below Size() never change. The log writes an item once,
// behind everything a snapshot can see, so reading them races with nothing;
// only making a snapshot larger takes the lock (LogManager::ExtendSnapshot).
class LogSnapshot {
public:
    size_t Size() const { return size; }
    // Precondition: index < Size().
    const LogItem& operator[](size_t index) const;

private:
    friend class LogItemList;

    // Each points at the first item of one block of the list, in order.
    std::vector<std::shared_ptr<const LogItem>> blocks;
    size_t size = 0;
};
