#include "foundation/AppException.h"
#include "foundation/Serializable.h"
#include "foundation/Tools.h"

#include "support/RaisedCode.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

TEST(ToolsTest, StringsIntegersAndArguments)
{
    using Items = std::vector<std::string>;
    std::string text = " \tx\t ";
    Tools::Trim(text);
    EXPECT_EQ(text, "\tx\t"); // only blanks
    EXPECT_EQ(Tools::Split("..a...b", '.'), (Items{"", "a", "b"}));
    EXPECT_EQ(Tools::Split("a.", '.'), (Items{"a", ""}));
    EXPECT_EQ(Tools::Split("", '.'), (Items{""}));
    EXPECT_EQ(Tools::SplitBySpace("a\tb  c"), (Items{"a\tb", "c"}));
    text = "AbC-09 Xyz\xC5\xBB"; // bytes above 127 pass through
    Tools::ToLower(text);
    EXPECT_EQ(text, "abc-09 xyz\xC5\xBB");

    EXPECT_EQ(Tools::StringToInt("000000000000000000002147483647"), INT32_MAX);
    // Signs, blanks and values beyond 32 bits are refused, never wrapped.
    for (const char* bad : {"-7", "+7", "7 ", " 7", "", "1a", "0x10", "2147483648", "4294967297"}) {
        EXPECT_EQ(CodeRaisedBy([&] { Tools::StringToInt(bad); }), AppException::StringNotValidInteger) << bad;
    }

    // Whole trimmed lower-cased arguments, index 0 included, up to the count.
    const char* const arguments[] = {"/usr/bin/Tarnvel", " -M ", "- s", "-s"};
    EXPECT_TRUE(Tools::ParameterExists(3, arguments, "  -m"));
    EXPECT_TRUE(Tools::ParameterExists(3, arguments, "/USR/BIN/TARNVEL"));
    EXPECT_FALSE(Tools::ParameterExists(3, arguments, "-s"));
    EXPECT_TRUE(Tools::ParameterExists(4, arguments, "-s"));

    EXPECT_EQ(AppException(AppException::ReceiveError).GetMessage(), "Receive error, listeing will be stopped");
    EXPECT_EQ(AppException::GetMessageForCode(42), "The file has unsupported End Of Line style");
    for (const int code : {7, 8, 44, -1}) {
        EXPECT_EQ(AppException::GetMessageForCode(code), "Unknown error") << code;
    }
}

TEST(SerializableTest, GroupsAndInt64Bytes)
{
    using Items = std::vector<ByteString>;
    // Little-endian size then bytes; empty items vanish.
    const ByteString group = Serializable::SerializeGroup({{1, 2, 3}, {}, {9}});
    EXPECT_EQ(group, (ByteString{3, 0, 0, 0, 1, 2, 3, 0, 0, 0, 0, 1, 0, 0, 0, 9}));
    EXPECT_EQ(Serializable::UnserializeGroup(group), (Items{{1, 2, 3}, {9}}));
    EXPECT_TRUE(Serializable::UnserializeGroup({}).empty());
    const ByteString big(65537, 7);
    const ByteString withBig = Serializable::SerializeGroup({{5}, big});
    EXPECT_EQ(ByteString(withBig.begin() + 5, withBig.begin() + 9), (ByteString{1, 0, 1, 0}));
    EXPECT_EQ(Serializable::UnserializeGroup(withBig), (Items{{5}, big}));

    // Damaged groups are refused whole.
    ByteString cut = group;
    cut.pop_back();
    std::vector<ByteString> damaged = {
        cut, {0xff, 0xff, 0xff, 0xff, 1, 2, 3}, {1, 0, 0, 0, 9, 0xfc, 0xff, 0xff, 0xff, 1}, // the last wraps a position
    };
    // One to three bytes, too few for a size field, alone or behind valid records.
    for (size_t extra = 1; extra <= 3; ++extra) {
        damaged.emplace_back(extra, 0);
        damaged.push_back(group);
        damaged.back().insert(damaged.back().end(), extra, 0);
    }
    for (size_t i = 0; i < damaged.size(); ++i) {
        EXPECT_EQ(CodeRaisedBy([&] { Serializable::UnserializeGroup(damaged[i]); }), AppException::FileReadingError)
            << "row " << i;
    }

    // Two's complement, least significant byte first.
    EXPECT_EQ(Tools::Int64ToBytes(0x0102030405060708), (ByteString{8, 7, 6, 5, 4, 3, 2, 1}));
    EXPECT_EQ(Tools::Int64ToBytes(-2), (ByteString{254, 255, 255, 255, 255, 255, 255, 255}));
    for (const int64_t value : {int64_t{-1}, int64_t{1767225600}, INT64_MIN, INT64_MAX}) {
        EXPECT_EQ(Tools::BytesToInt64(Tools::Int64ToBytes(value)), value);
    }
}
