#include "foundation/Serializable.h"
#include "foundation/Tools.h"

#include "support/RaisedCode.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

namespace {

using Items = std::vector<ByteString>;

} // namespace

TEST(SerializableTest, GroupRecordsAreLittleEndianSizeThenBytesAndEmptyItemsVanish)
{
    const ByteString group = Serializable::SerializeGroup({{1, 2, 3}, {}, {9}});
    EXPECT_EQ(group, (ByteString{3, 0, 0, 0, 1, 2, 3, 0, 0, 0, 0, 1, 0, 0, 0, 9}));
    EXPECT_EQ(Serializable::UnserializeGroup(group), (Items{{1, 2, 3}, {9}}));
    EXPECT_TRUE(Serializable::UnserializeGroup({}).empty());

    // Sizes above one byte, and a group nested in a group.
    const ByteString big(65537, 7);
    const ByteString withBig = Serializable::SerializeGroup({{5}, big});
    EXPECT_EQ(ByteString(withBig.begin() + 5, withBig.begin() + 9), (ByteString{1, 0, 1, 0}));
    const Items outer = Serializable::UnserializeGroup(Serializable::SerializeGroup({withBig, {0xee}}));
    ASSERT_EQ(outer.size(), 2u);
    EXPECT_EQ(Serializable::UnserializeGroup(outer[0]), (Items{{5}, big}));
}

TEST(SerializableTest, DamagedGroupsAreRefusedWhole)
{
    const ByteString valid = Serializable::SerializeGroup({{1, 2, 3}, {4}});
    ByteString cut = valid;
    cut.pop_back();
    std::vector<ByteString> damaged = {
        cut,                                        // the last item one byte short
        {4, 0, 0, 0, 1, 2, 3},                      //
        {0xff, 0xff, 0xff, 0xff, 1, 2, 3},          // almost 4 GiB
        {1, 0, 0, 0, 9, 0xfc, 0xff, 0xff, 0xff, 1}, // a size that would wrap a position
        {0, 0, 0, 0x80},
    };
    // One to three bytes, too few for a size field, alone or behind valid records.
    for (size_t extra = 1; extra <= 3; ++extra) {
        damaged.emplace_back(extra, 0);
        damaged.push_back(valid);
        damaged.back().insert(damaged.back().end(), extra, 0);
    }
    for (size_t i = 0; i < damaged.size(); ++i) {
        EXPECT_EQ(CodeRaisedBy([&] { Serializable::UnserializeGroup(damaged[i]); }), AppException::FileReadingError)
            << "row " << i;
    }
}

TEST(SerializableTest, Int64BytesAreTwosComplementLeastSignificantFirst)
{
    EXPECT_EQ(Tools::Int64ToBytes(0x0102030405060708), (ByteString{8, 7, 6, 5, 4, 3, 2, 1}));
    EXPECT_EQ(Tools::Int64ToBytes(-2), (ByteString{254, 255, 255, 255, 255, 255, 255, 255}));
    for (const int64_t value : {int64_t{0}, int64_t{-1}, int64_t{1767225600}, INT64_MIN, INT64_MAX}) {
        EXPECT_EQ(Tools::BytesToInt64(Tools::Int64ToBytes(value)), value);
    }
}
