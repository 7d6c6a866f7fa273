#include "foundation/AppException.h"
#include "foundation/Tools.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

namespace {

using Items = std::vector<std::string>;

std::string Trimmed(std::string text)
{
    Tools::Trim(text);
    return text;
}

void ExpectNotAnInteger(const std::string& text)
{
    try {
        Tools::StringToInt(text);
        ADD_FAILURE() << "accepted \"" << text << "\"";
    } catch (const AppException& exception) {
        EXPECT_EQ(exception.GetCode(), AppException::StringNotValidInteger) << text;
    }
}

} // namespace

TEST(ToolsStringsTest, TrimRemovesOnlyBlanksAtEitherEnd)
{
    EXPECT_EQ(Trimmed("  a b  "), "a b");
    EXPECT_EQ(Trimmed("\ta b\t"), "\ta b\t");
    EXPECT_EQ(Trimmed(" \tx\t "), "\tx\t");
    EXPECT_EQ(Trimmed("    "), "");
    EXPECT_EQ(Trimmed(""), "");
    EXPECT_EQ(Trimmed("x"), "x");
}

TEST(ToolsStringsTest, SplitFoldsSeparatorRunsAndKeepsEmptyEnds)
{
    EXPECT_EQ(Tools::Split("a..b", '.'), (Items{"a", "b"}));
    EXPECT_EQ(Tools::Split(".a", '.'), (Items{"", "a"}));
    EXPECT_EQ(Tools::Split("a.", '.'), (Items{"a", ""}));
    EXPECT_EQ(Tools::Split("..a...", '.'), (Items{"", "a", ""}));
    EXPECT_EQ(Tools::Split("abc", '.'), (Items{"abc"}));
    EXPECT_EQ(Tools::Split("", '.'), (Items{""}));
    EXPECT_EQ(Tools::Split("...", '.'), (Items{"", ""}));
    EXPECT_EQ(Tools::SplitBySpace("dns1  10.0.0.1 x"), (Items{"dns1", "10.0.0.1", "x"}));
    EXPECT_EQ(Tools::SplitBySpace("a\tb"), (Items{"a\tb"}));
}

TEST(ToolsStringsTest, CountLowerAndPrefix)
{
    EXPECT_EQ(Tools::CountChar("1.2.3.4", '.'), 3);
    EXPECT_EQ(Tools::CountChar("", '.'), 0);

    std::string text = "AbC-09 Xyz";
    Tools::ToLower(text);
    EXPECT_EQ(text, "abc-09 xyz");
    std::string utf8 = "\xC5\xBB"; // bytes above 127 pass through unchanged
    Tools::ToLower(utf8);
    EXPECT_EQ(utf8, "\xC5\xBB");

    EXPECT_TRUE(Tools::StartsWith("/usr/bin", "/usr"));
    EXPECT_TRUE(Tools::StartsWith("/usrlocal", "/usr"));
    EXPECT_TRUE(Tools::StartsWith("anything", ""));
    EXPECT_TRUE(Tools::StartsWith("", ""));
    EXPECT_FALSE(Tools::StartsWith("/Usr/bin", "/usr"));
    EXPECT_FALSE(Tools::StartsWith("/us", "/usr"));
    EXPECT_FALSE(Tools::StartsWith("", "/"));
}

TEST(ToolsStringsTest, StringToIntAcceptsPlainDecimalDigitsOnly)
{
    EXPECT_EQ(Tools::StringToInt("007"), 7);
    EXPECT_EQ(Tools::StringToInt("0"), 0);
    EXPECT_EQ(Tools::StringToInt("86400"), 86400);
    EXPECT_EQ(Tools::StringToInt("2147483647"), INT32_MAX);
    EXPECT_EQ(Tools::StringToInt("000000000000000000002147483647"), INT32_MAX);

    for (const char* text : {"-7", "+7", "7 ", " 7", "", " ", "1a", "0x10", "1.5", "\t1"}) {
        ExpectNotAnInteger(text);
    }
    // Too large for 32 bits: refused rather than wrapped into a small value.
    for (const char* text : {"2147483648", "4294967297", "99999999999999999999999"}) {
        ExpectNotAnInteger(text);
    }
}

TEST(ToolsStringsTest, IntToStringAndPowersOfTwo)
{
    EXPECT_EQ(Tools::IntToString(0), "0");
    EXPECT_EQ(Tools::IntToString(-42), "-42");
    EXPECT_EQ(Tools::IntToString(4294967296), "4294967296");
    EXPECT_EQ(Tools::IntToString(INT64_MIN), "-9223372036854775808");

    for (int shift = 0; shift < 32; ++shift) {
        const uint32_t power = uint32_t{1} << shift;
        EXPECT_TRUE(Tools::IsPowerOfTwo(power)) << power;
        if (shift > 1) {
            EXPECT_FALSE(Tools::IsPowerOfTwo(power + 1)) << power + 1;
            EXPECT_FALSE(Tools::IsPowerOfTwo(power - 1)) << power - 1;
        }
    }
    EXPECT_FALSE(Tools::IsPowerOfTwo(0));
    EXPECT_FALSE(Tools::IsPowerOfTwo(3));
    EXPECT_FALSE(Tools::IsPowerOfTwo(0xFFFFFFFFu));
    EXPECT_FALSE(Tools::IsPowerOfTwo(0xC0000000u));
}

TEST(ToolsStringsTest, ParameterExistsComparesWholeTrimmedLowerCasedArguments)
{
    const char* const arguments[] = {"/usr/bin/Tarnvel", " -M ", "-sx", "- s", "-s"};
    // Only the first four are given; "-s" at index 4 lies beyond the count.
    const int count = 4;

    EXPECT_TRUE(Tools::ParameterExists(count, arguments, "-m"));
    EXPECT_TRUE(Tools::ParameterExists(count, arguments, "  -M"));
    EXPECT_TRUE(Tools::ParameterExists(count, arguments, "/USR/BIN/TARNVEL"));
    EXPECT_TRUE(Tools::ParameterExists(count, arguments, "- s"));
    EXPECT_FALSE(Tools::ParameterExists(count, arguments, "-s"));
    EXPECT_FALSE(Tools::ParameterExists(count, arguments, "-"));
    EXPECT_FALSE(Tools::ParameterExists(count, arguments, "tarnvel"));
    EXPECT_TRUE(Tools::ParameterExists(5, arguments, "-s"));
    EXPECT_FALSE(Tools::ParameterExists(0, arguments, "/usr/bin/tarnvel"));
}
