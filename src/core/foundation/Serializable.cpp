#include "foundation/Serializable.h"

#include "foundation/AppException.h"
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
        const auto size = static_cast<uint32_t>(item.size());
        for (int i = 0; i < 4; ++i) {
            group.push_back(static_cast<uint8_t>(size >> (8 * i)));
        }
        group.insert(group.end(), item.begin(), item.end());
    }
    return group;
}

std::vector<ByteString> Serializable::UnserializeGroup(const ByteString& serializedGroup)
{
    std::vector<ByteString> items;
    size_t position = 0;
    while (position < serializedGroup.size()) {
        // Invariant: position <= size, so the subtraction cannot wrap.
        if (serializedGroup.size() - position < 4) {
            throw AppException(AppException::FileReadingError);
        }
        uint32_t size = 0;
        for (int i = 3; i >= 0; --i) {
            size = (size << 8) | serializedGroup[position + i];
        }
        position += 4;
        if (size > serializedGroup.size() - position) {
            throw AppException(AppException::FileReadingError);
        }
        if (size > 0) {
            items.emplace_back(serializedGroup.begin() + position, serializedGroup.begin() + position + size);
        }
        position += size;
    }
    return items;
}
