#include "foundation/AppException.h"
#include "foundation/Tools.h"

#include "support/RaisedCode.h"

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

} // namespace

TEST(ToolsTest, TrimSplitLowerAndPrefix)
{
    EXPECT_EQ(Trimmed("  a b  "), "a b");
    EXPECT_EQ(Trimmed(" \tx\t "), "\tx\t"); // only blanks
    EXPECT_EQ(Trimmed("    "), "");

    EXPECT_EQ(Tools::Split("a..b", '.'), (Items{"a", "b"}));
    EXPECT_EQ(Tools::Split("..a...", '.'), (Items{"", "a", ""}));
    EXPECT_EQ(Tools::Split("", '.'), (Items{""}));
    EXPECT_EQ(Tools::Split("...", '.'), (Items{"", ""}));
    EXPECT_EQ(Tools::SplitBySpace("a\tb  c"), (Items{"a\tb", "c"}));

    std::string text = "AbC-09 Xyz\xC5\xBB"; // bytes above 127 pass through
    Tools::ToLower(text);
    EXPECT_EQ(text, "abc-09 xyz\xC5\xBB");
    EXPECT_TRUE(Tools::StartsWith("/usrlocal", "/usr"));
    EXPECT_FALSE(Tools::StartsWith("/us", "/usr"));
}

TEST(ToolsTest, IntegersTextsAndPowersOfTwo)
{
    EXPECT_EQ(Tools::StringToInt("007"), 7);
    EXPECT_EQ(Tools::StringToInt("000000000000000000002147483647"), INT32_MAX);
    // Signs, blanks and values beyond 32 bits are refused, never wrapped.
    for (const char* text : {"-7", "+7", "7 ", " 7", "", "1a", "0x10", "1.5", "2147483648", "4294967297",
                             "99999999999999999999999"}) {
        EXPECT_EQ(CodeRaisedBy([&] { Tools::StringToInt(text); }), AppException::StringNotValidInteger) << text;
    }

    for (int shift = 0; shift < 32; ++shift) {
        const uint32_t power = uint32_t{1} << shift;
        EXPECT_TRUE(Tools::IsPowerOfTwo(power)) << power;
        EXPECT_FALSE(shift > 1 && Tools::IsPowerOfTwo(power + 1)) << power + 1;
    }
    EXPECT_FALSE(Tools::IsPowerOfTwo(0));
    EXPECT_FALSE(Tools::IsPowerOfTwo(0xC0000000u));
}

TEST(ToolsTest, ParameterExistsComparesWholeTrimmedLowerCasedArguments)
{
    const char* const arguments[] = {"/usr/bin/Tarnvel", " -M ", "- s", "-s"};
    EXPECT_TRUE(Tools::ParameterExists(3, arguments, "  -m"));
    EXPECT_TRUE(Tools::ParameterExists(3, arguments, "/USR/BIN/TARNVEL")); // index 0 counts
    EXPECT_FALSE(Tools::ParameterExists(3, arguments, "-s"));              // beyond the count
    EXPECT_FALSE(Tools::ParameterExists(3, arguments, "-"));
    EXPECT_TRUE(Tools::ParameterExists(4, arguments, "-s"));
}

TEST(AppExceptionTest, TextsByCodeWithUnassignedAndUnknownCodes)
{
    EXPECT_EQ(AppException(AppException::ReceiveError).GetMessage(), "Receive error, listeing will be stopped");
    EXPECT_EQ(AppException::GetMessageForCode(42), "The file has unsupported End Of Line style");
    for (const int code : {7, 8, 43, -1}) {
        EXPECT_EQ(AppException::GetMessageForCode(code), "Unknown error") << code;
    }
}
