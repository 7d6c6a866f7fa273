#include "foundation/AppException.h"
#include "foundation/HardwareAddress.h"
#include "foundation/IPv4Address.h"
#include "foundation/Serializable.h"
#include "foundation/Tools.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

namespace {

using Items = std::vector<ByteString>;

int32_t CodeRaisedByUnserializing(const ByteString& group)
{
    try {
        Serializable::UnserializeGroup(group);
    } catch (const AppException& exception) {
        return exception.GetCode();
    }
    return -1;
}

} // namespace

TEST(SerializableTest, GroupRecordsAreLittleEndianSizeThenBytesAndEmptyItemsVanish)
{
    const ByteString group = Serializable::SerializeGroup({{1, 2, 3}, {}, {9}});
    EXPECT_EQ(group, (ByteString{3, 0, 0, 0, 1, 2, 3, 0, 0, 0, 0, 1, 0, 0, 0, 9}));
    EXPECT_EQ(Serializable::UnserializeGroup(group), (Items{{1, 2, 3}, {9}}));

    EXPECT_TRUE(Serializable::SerializeGroup({}).empty());
    EXPECT_TRUE(Serializable::UnserializeGroup({}).empty());
    EXPECT_EQ(Serializable::SerializeGroup({{}}), (ByteString{0, 0, 0, 0}));
    EXPECT_TRUE(Serializable::UnserializeGroup({0, 0, 0, 0, 0, 0, 0, 0}).empty());

    const ByteString item256(256, 0xab);
    const ByteString withBigItem = Serializable::SerializeGroup({item256});
    ASSERT_EQ(withBigItem.size(), 260u);
    EXPECT_EQ(ByteString(withBigItem.begin(), withBigItem.begin() + 4), (ByteString{0, 1, 0, 0}));
    EXPECT_EQ(Serializable::UnserializeGroup(withBigItem), (Items{item256}));

    const ByteString item65537(65537, 7);
    const ByteString withHugeItem = Serializable::SerializeGroup({{5}, item65537});
    EXPECT_EQ(ByteString(withHugeItem.begin() + 5, withHugeItem.begin() + 9), (ByteString{1, 0, 1, 0}));
    EXPECT_EQ(Serializable::UnserializeGroup(withHugeItem), (Items{{5}, item65537}));
}

TEST(SerializableTest, NestedGroupsReadBackLevelByLevel)
{
    const Items inner = {{1}, {2, 2}, {3, 3, 3}};
    const ByteString innerGroup = Serializable::SerializeGroup(inner);
    const ByteString outerGroup = Serializable::SerializeGroup({innerGroup, {0xee}, innerGroup});

    const Items outer = Serializable::UnserializeGroup(outerGroup);
    ASSERT_EQ(outer.size(), 3u);
    EXPECT_EQ(outer[1], (ByteString{0xee}));
    EXPECT_EQ(Serializable::UnserializeGroup(outer[0]), inner);
    EXPECT_EQ(Serializable::UnserializeGroup(outer[2]), inner);

    // A record of the kind the lease file holds: values, each one item.
    const IPv4Address ip("192.168.1.20");
    const HardwareAddress mac("00:11:22:33:44:55");
    const ByteString record = Serializable::SerializeGroup({mac.Serialize(), ip.Serialize(), Tools::Int64ToBytes(-5)});
    const Items fields = Serializable::UnserializeGroup(Serializable::UnserializeGroup(
        Serializable::SerializeGroup({record, record}))[1]);
    ASSERT_EQ(fields.size(), 3u);
    HardwareAddress macBack;
    macBack.Unserialize(fields[0]);
    IPv4Address ipBack;
    ipBack.Unserialize(fields[1]);
    EXPECT_TRUE(macBack == mac);
    EXPECT_EQ(ipBack, ip);
    EXPECT_EQ(Tools::BytesToInt64(fields[2]), -5);
}

TEST(SerializableTest, DamagedGroupsAreRefusedWhole)
{
    const ByteString valid = Serializable::SerializeGroup({{1, 2, 3}, {4}});
    const auto damaged = AppException::FileReadingError;

    // One to three bytes too few for a size field, alone or behind valid records.
    for (size_t extra = 1; extra <= 3; ++extra) {
        EXPECT_EQ(CodeRaisedByUnserializing(ByteString(extra, 0)), damaged) << extra;
        ByteString trailing = valid;
        trailing.insert(trailing.end(), extra, 0);
        EXPECT_EQ(CodeRaisedByUnserializing(trailing), damaged) << extra;
    }

    // A size field that runs past the end, by one byte or by almost 4 GiB.
    ByteString cut = valid;
    cut.pop_back();
    EXPECT_EQ(CodeRaisedByUnserializing(cut), damaged);
    EXPECT_EQ(CodeRaisedByUnserializing({4, 0, 0, 0, 1, 2, 3}), damaged);
    EXPECT_EQ(CodeRaisedByUnserializing({0xff, 0xff, 0xff, 0xff, 1, 2, 3}), damaged);
    EXPECT_EQ(CodeRaisedByUnserializing({1, 0, 0, 0, 9, 0xfc, 0xff, 0xff, 0xff, 1}), damaged);
    EXPECT_EQ(CodeRaisedByUnserializing({0, 0, 0, 0x80}), damaged);
}

TEST(SerializableTest, Int64BytesAreTwosComplementLeastSignificantFirst)
{
    EXPECT_EQ(Tools::Int64ToBytes(-1), ByteString(8, 255));
    EXPECT_EQ(Tools::Int64ToBytes(1), (ByteString{1, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(Tools::Int64ToBytes(0x0102030405060708), (ByteString{8, 7, 6, 5, 4, 3, 2, 1}));
    EXPECT_EQ(Tools::Int64ToBytes(INT64_MIN), (ByteString{0, 0, 0, 0, 0, 0, 0, 0x80}));
    EXPECT_EQ(Tools::Int64ToBytes(256), (ByteString{0, 1, 0, 0, 0, 0, 0, 0}));

    for (const int64_t value : {int64_t{0}, int64_t{-1}, int64_t{1}, int64_t{86400}, int64_t{1767225600},
                                INT64_MIN, INT64_MAX, int64_t{-4294967296}}) {
        EXPECT_EQ(Tools::BytesToInt64(Tools::Int64ToBytes(value)), value);
    }

    // A 32-bit value is stored sign-extended; the reader keeps the low 32 bits.
    const int32_t duration = -2;
    EXPECT_EQ(Tools::Int64ToBytes(duration), (ByteString{254, 255, 255, 255, 255, 255, 255, 255}));
    EXPECT_EQ(static_cast<int32_t>(Tools::BytesToInt64(Tools::Int64ToBytes(duration))), duration);
    EXPECT_EQ(static_cast<int32_t>(Tools::BytesToInt64(Tools::Int64ToBytes(INT32_MIN))), INT32_MIN);
}
