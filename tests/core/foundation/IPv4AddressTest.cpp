#include "foundation/AppException.h"
#include "foundation/IPv4Address.h"

#include "support/RaisedCode.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

namespace {

} // namespace

TEST(IPv4AddressTest, ParsesDottedTextBlanksEmptyTextRunsOfDotsAndLeadingZeros)
{
    EXPECT_EQ(IPv4Address(""), IPv4Address());
    EXPECT_EQ(IPv4Address("      "), IPv4Address(0, 0, 0, 0));
    EXPECT_EQ(IPv4Address("  1.2.3.4   "), IPv4Address(1, 2, 3, 4));
    EXPECT_EQ(IPv4Address("1...2.3.4"), IPv4Address(1, 2, 3, 4));
    EXPECT_EQ(IPv4Address("1.2..3..4"), IPv4Address(1, 2, 3, 4));
    EXPECT_EQ(IPv4Address("010.001.000.007"), IPv4Address(10, 1, 0, 7));
    EXPECT_EQ(IPv4Address("0.0.0.0"), IPv4Address());
    // 15 characters exactly, and blanks around it do not count.
    EXPECT_EQ(IPv4Address("255.255.255.255"), IPv4Address(255, 255, 255, 255));
    EXPECT_EQ(IPv4Address("   255.255.255.255   "), IPv4Address(255, 255, 255, 255));
    EXPECT_EQ(IPv4Address("192.168.100.200").ToString(), "192.168.100.200");
}

TEST(IPv4AddressTest, RejectsBadTexts)
{
    const char* const rejected[] = {
        "1.2.3",             // three items
        "1.2.3.4.5",         // five items
        ".1.2.3",            // empty first item
        "1.2.3.",            // empty last item
        ".",                 // two empty items
        "256.0.0.1",         // above 255
        "1.2.3.999999999",   // 15 characters, huge item
        "0000.0000.0000.00", // 17 characters though every number is 0
        "0000.000.0000.00",  // 16 characters
        "1.2.3.-4",
        "1.2.3.+4",
        "1,2,3,4",
        "a.b.c.d",
        "0x1.2.3.4",
        "\t1.2.3.4",         // only blanks are trimmed
        "1.2.3.4\n",
        "1.2. 3.4",
        "1234",
    };
    for (const char* text : rejected) {
        EXPECT_EQ(CodeRaisedBy([&] { IPv4Address{std::string(text)}; }), AppException::IPAddressStringNotValid)
            << text;
    }
}

TEST(IPv4AddressTest, ConstructionFromIntegersKeepsLowEightBits)
{
    const IPv4Address address(256 + 10, -1, 512, 7);
    EXPECT_EQ(address.ToString(), "10.255.0.7");
    EXPECT_EQ(address[0], 10);
    EXPECT_EQ(address[1], 255);
    EXPECT_EQ(address[3], 7);
    EXPECT_EQ(IPv4Address().ToString(), "0.0.0.0");
    EXPECT_TRUE(IPv4Address().IsZero());
    EXPECT_FALSE(IPv4Address(0, 0, 0, 1).IsZero());
    EXPECT_FALSE(IPv4Address(128, 0, 0, 0).IsZero());
}

TEST(IPv4AddressTest, OrdersNumericallyWithUnsignedOctets)
{
    const IPv4Address low("9.255.255.255");
    const IPv4Address high("10.0.0.0");
    EXPECT_TRUE(low < high);
    EXPECT_TRUE(low <= high);
    EXPECT_TRUE(high > low);
    EXPECT_TRUE(high >= low);
    EXPECT_TRUE(low != high);
    EXPECT_FALSE(low == high);
    EXPECT_FALSE(high < low);

    EXPECT_GT(IPv4Address("128.0.0.0"), IPv4Address("127.255.255.255"));
    EXPECT_GT(IPv4Address("10.0.0.200"), IPv4Address("10.0.0.100"));
    EXPECT_LT(IPv4Address("10.0.1.0"), IPv4Address("10.0.0.255") + 2);
    EXPECT_TRUE(IPv4Address("1.2.3.4") <= IPv4Address(1, 2, 3, 4));
    EXPECT_TRUE(IPv4Address("1.2.3.4") >= IPv4Address(1, 2, 3, 4));
}

TEST(IPv4AddressTest, SubnetMaskTestLengthAndMaskFromLength)
{
    EXPECT_EQ(IPv4Address("255.255.255.0").GetSubnetMaskLength(), 24);
    EXPECT_EQ(IPv4Address("255.255.255.255").GetSubnetMaskLength(), 32);
    EXPECT_EQ(IPv4Address("128.0.0.0").GetSubnetMaskLength(), 1);
    EXPECT_EQ(IPv4Address("255.255.240.0").GetSubnetMaskLength(), 20);

    for (const char* notMask : {"0.0.0.0", "255.0.255.0", "0.0.0.1", "255.255.255.253", "127.0.0.0", "1.2.3.4"}) {
        const IPv4Address address(notMask);
        EXPECT_FALSE(address.IsSubnetMask()) << notMask;
        EXPECT_EQ(CodeRaisedBy([&] { address.GetSubnetMaskLength(); }), AppException::NotASubnetMask) << notMask;
    }

    EXPECT_EQ(IPv4Address::FromSubnetMaskLength(0), IPv4Address());
    EXPECT_EQ(IPv4Address::FromSubnetMaskLength(1).ToString(), "128.0.0.0");
    EXPECT_EQ(IPv4Address::FromSubnetMaskLength(24).ToString(), "255.255.255.0");
    EXPECT_EQ(IPv4Address::FromSubnetMaskLength(31).ToString(), "255.255.255.254");
    EXPECT_EQ(IPv4Address::FromSubnetMaskLength(32).ToString(), "255.255.255.255");
    for (uint8_t length = 1; length <= 32; ++length) {
        const IPv4Address mask = IPv4Address::FromSubnetMaskLength(length);
        EXPECT_TRUE(mask.IsSubnetMask()) << int{length};
        EXPECT_EQ(mask.GetSubnetMaskLength(), length);
    }
}

TEST(IPv4AddressTest, AdditionCarriesThroughOctetsAndRefusesOverflow)
{
    EXPECT_EQ(IPv4Address("10.0.0.255") + 1, IPv4Address("10.0.1.0"));
    EXPECT_EQ(IPv4Address("192.168.0.255") + 1, IPv4Address("192.168.1.0"));
    EXPECT_EQ(IPv4Address("0.255.255.255") + 1, IPv4Address("1.0.0.0"));
    EXPECT_EQ(IPv4Address("10.0.1.0") + -1, IPv4Address("10.0.0.255"));
    EXPECT_EQ(IPv4Address("10.0.0.5") + 0, IPv4Address("10.0.0.5"));
    EXPECT_EQ(IPv4Address() + INT32_MAX, IPv4Address("127.255.255.255"));
    EXPECT_EQ(IPv4Address("128.0.0.0") + INT32_MIN, IPv4Address());
    EXPECT_EQ(IPv4Address("255.255.255.254") + 1, IPv4Address("255.255.255.255"));

    const auto overflow = AppException::IPv4AddressValueOverflow;
    EXPECT_EQ(CodeRaisedBy([] { IPv4Address("255.255.255.255") + 1; }), overflow);
    EXPECT_EQ(CodeRaisedBy([] { IPv4Address() + -1; }), overflow);
    EXPECT_EQ(CodeRaisedBy([] { IPv4Address("127.255.255.255") + INT32_MIN; }), overflow);
    EXPECT_EQ(CodeRaisedBy([] { IPv4Address("128.0.0.1") + INT32_MAX; }), overflow);

    IPv4Address address("255.255.255.250");
    address += 5;
    EXPECT_EQ(address, IPv4Address("255.255.255.255"));
    EXPECT_EQ(CodeRaisedBy([&] { address += 1; }), overflow);
    EXPECT_EQ(address, IPv4Address("255.255.255.255"));
    address += -255;
    EXPECT_EQ(address, IPv4Address("255.255.255.0"));
}

TEST(IPv4AddressTest, BroadcastAddressSetsHostBitsAndTellsSubnetsApart)
{
    const IPv4Address broadcast = IPv4Address("192.168.1.10").GetBroadcastAddress(24);
    EXPECT_EQ(broadcast, IPv4Address("192.168.1.255"));
    EXPECT_EQ(IPv4Address("192.168.1.200").GetBroadcastAddress(24), broadcast);
    EXPECT_NE(IPv4Address("192.168.2.1").GetBroadcastAddress(24), broadcast);
    EXPECT_EQ(IPv4Address("192.168.0.10").GetBroadcastAddress(23), IPv4Address("192.168.1.255"));
    EXPECT_EQ(IPv4Address("10.1.2.3").GetBroadcastAddress(8), IPv4Address("10.255.255.255"));
    EXPECT_EQ(IPv4Address("10.1.2.3").GetBroadcastAddress(32), IPv4Address("10.1.2.3"));
    EXPECT_EQ(IPv4Address("10.1.2.2").GetBroadcastAddress(31), IPv4Address("10.1.2.3"));
    EXPECT_EQ(IPv4Address("10.1.2.3").GetBroadcastAddress(0), IPv4Address("255.255.255.255"));
}

TEST(IPv4AddressTest, SerializedFormIsTheFourOctetsInOrder)
{
    EXPECT_EQ(IPv4Address("1.2.3.4").Serialize(), (ByteString{1, 2, 3, 4}));
    EXPECT_EQ(IPv4Address("255.0.128.7").Serialize(), (ByteString{255, 0, 128, 7}));

    const IPv4Address original("172.16.254.1");
    IPv4Address copy("9.9.9.9");
    copy.Unserialize(original.Serialize());
    EXPECT_EQ(copy, original);

    copy.Unserialize(ByteString{10, 0, 0, 1, 99});
    EXPECT_EQ(copy, IPv4Address("10.0.0.1"));

    // Short data from a damaged file is refused and leaves the value alone.
    EXPECT_EQ(CodeRaisedBy([&] { copy.Unserialize(ByteString{1, 2, 3}); }), AppException::FileReadingError);
    EXPECT_EQ(CodeRaisedBy([&] { copy.Unserialize(ByteString{}); }), AppException::FileReadingError);
    EXPECT_EQ(copy, IPv4Address("10.0.0.1"));
}
