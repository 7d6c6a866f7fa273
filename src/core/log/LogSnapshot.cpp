#include "log/LogSnapshot.h"

#include "foundation/Precondition.h"
#include "log/LogItemList.h"

const LogItem& LogSnapshot::operator[](size_t index) const
{
    PRECONDITION(index < size);
    return blocks[index / LogItemList::ITEMS_PER_BLOCK].get()[index % LogItemList::ITEMS_PER_BLOCK];
}
