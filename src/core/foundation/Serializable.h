#pragma once

#include "foundation/ByteString.h"

#include <vector>

// Base of the values that go into the lease file, and the group encoding.
//
// A group is a sequence of item records without header, count or terminator:
//
//   offset 0   4 bytes   size of the item, least significant byte first
//   offset 4   size      the item's bytes (may itself be a group)
//
// An item of size 0 is read and dropped, so it does not survive a round trip.
class Serializable {
public:
    virtual ~Serializable() = default;

    virtual ByteString Serialize() const = 0;
    virtual void Unserialize(const ByteString& serializedData) = 0;

    static ByteString SerializeGroup(const std::vector<ByteString>& items);
    // Raises FileReadingError, and yields nothing, when a size field runs past
    // the end of the group or fewer than four bytes remain for one: a damaged
    // group is refused whole, never read beyond its end.
    static std::vector<ByteString> UnserializeGroup(const ByteString& serializedGroup);
};
