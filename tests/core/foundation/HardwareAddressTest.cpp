#include "foundation/AppException.h"
#include "foundation/HardwareAddress.h"

#include "support/RaisedCode.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

namespace {

const uint8_t MAC[6] = {0x00, 0x1a, 0x2b, 0x3c, 0x4d, 0x5e};

} // namespace

TEST(HardwareAddressTest, ParserIgnoresColonsAndBlanksAnywhereAndAcceptsEitherCase)
{
    const HardwareAddress expected(MAC, 6, HardwareAddress::Ethernet10Mb);
    for (const char* text : {"00:1a:2b:3c:4d:5e", "001a2b3c4d5e", "00 1a 2b 3c 4d 5e", "001a:2b 3c4d:5e",
                             "  00:1A:2B:3C:4D:5E  ", "0:01a2:b3c4d:5e:", "001A2b3C4d5E"}) {
        const HardwareAddress parsed{std::string(text)};
        EXPECT_EQ(parsed, expected) << text;
        EXPECT_EQ(parsed.GetLength(), 6) << text;
        EXPECT_EQ(parsed.GetType(), uint32_t{HardwareAddress::Ethernet10Mb}) << text;
    }
    const HardwareAddress parsed("ff:FF:00:80:7f:01");
    EXPECT_EQ(parsed[0], 0xff);
    EXPECT_EQ(parsed[3], 0x80);
    EXPECT_EQ(parsed[4], 0x7f);
    EXPECT_EQ(parsed[5], 0x01);
}

TEST(HardwareAddressTest, ParserRejectsWrongDigitCountsAndForeignCharacters)
{
    const char* const rejected[] = {
        "",
        ":: ::",
        "001a2b3c4d5",       // 11 digits
        "001a2b3c4d5e6",     // 13 digits
        "00:1a:2b:3c:4d",
        "00-11-22-33-44-55", // hyphens stay and fail
        "00:1a:2b:3c:4d:5g",
        "\t001a2b3c4d5e",     // only blanks are removed
        "0x1a2b3c4d5e",
        "00.1a.2b.3c.4d.5e",
    };
    for (const char* text : rejected) {
        EXPECT_EQ(CodeRaisedBy([&] { HardwareAddress{std::string(text)}; }),
                  AppException::HardwareAddressStringNotValid)
            << text;
    }
}

TEST(HardwareAddressTest, TextFormIsLowerCaseHexPairsJoinedByColons)
{
    EXPECT_EQ(HardwareAddress().ToString(), "");
    EXPECT_EQ(HardwareAddress("00:1a:2b:3c:4d:5e").ToString(), "00:1a:2b:3c:4d:5e");
    EXPECT_EQ(HardwareAddress("AABBCCDDEEFF").ToString(), "aa:bb:cc:dd:ee:ff");

    const uint8_t one[1] = {0x0f};
    EXPECT_EQ(HardwareAddress(one, 1, 6).ToString(), "0f");

    uint8_t sixteen[HardwareAddress::MAX_LENGTH];
    for (int i = 0; i < HardwareAddress::MAX_LENGTH; ++i) {
        sixteen[i] = static_cast<uint8_t>(i * 17);
    }
    const std::string text = HardwareAddress(sixteen, HardwareAddress::MAX_LENGTH, HardwareAddress::ATM_3).ToString();
    EXPECT_EQ(text.size(), 47u);
    EXPECT_EQ(text.substr(0, 9), "00:11:22:");
    EXPECT_EQ(text.substr(text.size() - 5), "ee:ff");
}

TEST(HardwareAddressTest, EqualityNeedsSameLengthBytesAndType)
{
    const HardwareAddress ethernet(MAC, 6, 1);
    EXPECT_FALSE(ethernet == HardwareAddress(MAC, 6, 6));
    EXPECT_FALSE(ethernet == HardwareAddress(MAC, 5, 1));
    const uint8_t other[6] = {0x00, 0x1a, 0x2b, 0x3c, 0x4d, 0x5f};
    EXPECT_FALSE(ethernet == HardwareAddress(other, 6, 1));
    EXPECT_TRUE(ethernet == HardwareAddress(MAC, 6, 1));

    HardwareAddress copy = ethernet;
    EXPECT_TRUE(copy == ethernet);
    copy = HardwareAddress(other, 6, 1);
    EXPECT_FALSE(copy == ethernet);

    // Shrinking through SetAddress leaves no trace of the longer value.
    HardwareAddress address(MAC, 6, 1);
    address.SetAddress(MAC, 2, 1);
    EXPECT_EQ(address.GetLength(), 2);
    EXPECT_EQ(address.ToString(), "00:1a");
    EXPECT_TRUE(address == HardwareAddress(MAC, 2, 1));
    address.SetAddress(nullptr, 0, 1);
    EXPECT_EQ(address.GetLength(), 0);
    EXPECT_EQ(address.ToString(), "");
}

TEST(HardwareAddressTest, SerializedFormIsTypeLittleEndianThenBytes)
{
    const uint8_t bytes[6] = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55};
    EXPECT_EQ(HardwareAddress(bytes, 6, HardwareAddress::Ethernet10Mb).Serialize(),
              (ByteString{1, 0, 0, 0, 0, 17, 34, 51, 68, 85}));

    uint8_t sixteen[HardwareAddress::MAX_LENGTH] = {9, 8, 7};
    for (const HardwareAddress& original :
         {HardwareAddress(bytes, 6, 6), HardwareAddress(sixteen, 16, HardwareAddress::ATM_3), HardwareAddress(bytes, 0, 1)}) {
        HardwareAddress copy("ffffffffffff");
        copy.Unserialize(original.Serialize());
        EXPECT_TRUE(copy == original) << original.ToString();
        EXPECT_EQ(copy.GetType(), original.GetType());
    }

    // The stored type is taken as it is, without a range test.
    HardwareAddress unusual;
    unusual.Unserialize(ByteString{4, 3, 2, 1, 0xaa});
    EXPECT_EQ(unusual.GetType(), 0x01020304u);
    EXPECT_EQ(unusual.ToString(), "aa");

    // Data a damaged file could hold is refused and leaves the value alone.
    HardwareAddress kept("00:1a:2b:3c:4d:5e");
    EXPECT_EQ(CodeRaisedBy([&] { kept.Unserialize(ByteString{1, 0, 0}); }), AppException::FileReadingError);
    EXPECT_EQ(CodeRaisedBy([&] { kept.Unserialize(ByteString(4 + HardwareAddress::MAX_LENGTH + 1, 1)); }),
              AppException::FileReadingError);
    EXPECT_EQ(kept.ToString(), "00:1a:2b:3c:4d:5e");
    EXPECT_EQ(kept.GetType(), 1u);
}
