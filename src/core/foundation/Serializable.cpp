#include "foundation/Serializable.h"

#include "foundation/GroupReader.h"
#include "foundation/LittleEndian.h"
#include "foundation/Precondition.h"

#include <limits>

ByteString Serializable::SerializeGroup(const std::vector<ByteString>& items)
{
    size_t total = 0;
    for (const ByteString& item : items) {
        // The size field of a record is 32 bits wide.
        PRECONDITION(item.size() <= std::numeric_limits<uint32_t>::max());
        total += 4 + item.size();
    }
    ByteString group;
    group.reserve(total);
    for (const ByteString& item : items) {
        uint8_t size[4];
        LittleEndian::Put(size, item.size(), 4);
        group.insert(group.end(), size, size + 4);
        group.insert(group.end(), item.begin(), item.end());
    }
    return group;
}

std::vector<ByteString> Serializable::UnserializeGroup(const ByteString& serializedGroup)
{
    std::vector<ByteString> items;
    GroupReader reader(serializedGroup.data(), serializedGroup.size());
    const uint8_t* item = nullptr;
    size_t size = 0;
    while (reader.Next(item, size)) {
        items.emplace_back(item, item + size);
    }
    return items;
}
