#pragma once

#include <cstddef>
#include <cstdint>

// Walks the items of a serialized group (see Serializable) in place, without
// copying them: what UnserializeGroup does, for readers that decode a large
// group item by item. Items of size 0 are skipped, as UnserializeGroup drops
// them. The bytes must outlive the reader and the items it gives out.
class GroupReader {
public:
    GroupReader(const uint8_t* data, size_t size) : data(data), size(size) {}

    // The next item, or false at the end of the group. Raises
    // FileReadingError when a size field runs past the end of the group or
    // fewer than four bytes remain for one; never reads beyond the end.
    bool Next(const uint8_t*& item, size_t& itemSize);

private:
    const uint8_t* data;
    size_t size;
    // Invariant: position <= size.
    size_t position = 0;
};
