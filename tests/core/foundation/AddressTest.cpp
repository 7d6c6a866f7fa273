#include "foundation/HardwareAddress.h"
#include "foundation/IPv4Address.h"

#include "support/RaisedCode.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

namespace {

const uint8_t MAC[6] = {0x00, 0x1a, 0x2b, 0x3c, 0x4d, 0x5e};

} // namespace

TEST(IPv4AddressTest, ParserAndTextForm)
{
    const struct {
        const char* text;
        IPv4Address expected;
    } accepted[] = {
        {"", {}}, {"      ", {}}, {"  1.2.3.4   ", {1, 2, 3, 4}}, {"1...2.3.4", {1, 2, 3, 4}},
        {"010.001.000.007", {10, 1, 0, 7}},                      // decimal, not octal
        {"   255.255.255.255   ", {255, 255, 255, 255}},         // blanks do not count to 15
    };
    for (const auto& row : accepted) {
        EXPECT_EQ(IPv4Address(std::string(row.text)), row.expected) << row.text;
    }
    for (const char* text : {"1.2.3", "1.2.3.4.5", ".1.2.3", "1.2.3.", "256.0.0.1", "1234", "1.2.3.-4", "1.2.3.+4",
                             "1,2,3,4", "0x1.2.3.4", "1.2. 3.4", "\t1.2.3.4", // only blanks are trimmed
                             "1.2.3.999999999",                               // 15 characters, huge item
                             "0000.000.0000.00"}) {                           // 16 characters, each 0
        EXPECT_EQ(CodeRaisedBy([&] { IPv4Address{std::string(text)}; }), AppException::IPAddressStringNotValid)
            << text;
    }
    EXPECT_EQ(IPv4Address("192.168.100.200").ToString(), "192.168.100.200");
    EXPECT_EQ(IPv4Address(256 + 10, -1, 512, 7).ToString(), "10.255.0.7"); // the low eight bits
}

TEST(IPv4AddressTest, OrderMasksAndBroadcast)
{
    EXPECT_LT(IPv4Address("9.255.255.255"), IPv4Address("10.0.0.0"));
    EXPECT_GT(IPv4Address("128.0.0.0"), IPv4Address("127.255.255.255")); // octets unsigned

    EXPECT_EQ(IPv4Address::FromSubnetMaskLength(0), IPv4Address());
    for (uint8_t length = 1; length <= 32; ++length) {
        const IPv4Address mask = IPv4Address::FromSubnetMaskLength(length);
        EXPECT_TRUE(mask.IsSubnetMask()) << int{length};
        EXPECT_EQ(mask.GetSubnetMaskLength(), length);
    }
    for (const char* notMask : {"0.0.0.0", "255.0.255.0", "0.0.0.1", "255.255.255.253"}) {
        EXPECT_FALSE(IPv4Address(notMask).IsSubnetMask()) << notMask;
        EXPECT_EQ(CodeRaisedBy([&] { IPv4Address(notMask).GetSubnetMaskLength(); }), AppException::NotASubnetMask)
            << notMask;
    }

    EXPECT_EQ(IPv4Address("192.168.0.10").GetBroadcastAddress(23), IPv4Address("192.168.1.255"));
    EXPECT_EQ(IPv4Address("10.1.2.3").GetBroadcastAddress(32), IPv4Address("10.1.2.3"));
    EXPECT_EQ(IPv4Address("10.1.2.3").GetBroadcastAddress(0), IPv4Address("255.255.255.255"));
}

TEST(HardwareAddressTest, ParserTextFormAndEquality)
{
    // Colons and blanks anywhere are ignored; 12 hex digits of either case remain.
    for (const char* text : {"00:1a:2b:3c:4d:5e", "001a2b3c4d5e", "  00 1A:2B 3C:4D:5E  ", "0:01a2:b3c4d:5e:"}) {
        const HardwareAddress parsed{std::string(text)};
        EXPECT_EQ(parsed, HardwareAddress(MAC, 6, HardwareAddress::Ethernet10Mb)) << text;
        EXPECT_EQ(parsed.ToString(), "00:1a:2b:3c:4d:5e") << text;
    }
    for (const char* text : {"", ":: ::", "001a2b3c4d5", "001a2b3c4d5e6", "00-11-22-33-44-55", "00:1a:2b:3c:4d:5g",
                             "\t001a2b3c4d5e", "0x1a2b3c4d5e"}) {
        EXPECT_EQ(CodeRaisedBy([&] { HardwareAddress{std::string(text)}; }),
                  AppException::HardwareAddressStringNotValid)
            << text;
    }
    uint8_t sixteen[HardwareAddress::MAX_LENGTH];
    for (int i = 0; i < HardwareAddress::MAX_LENGTH; ++i) {
        sixteen[i] = static_cast<uint8_t>(i * 17);
    }
    EXPECT_EQ(HardwareAddress(sixteen, 16, HardwareAddress::ATM_3).ToString(),
              "00:11:22:33:44:55:66:77:88:99:aa:bb:cc:dd:ee:ff");
    // Equal only when length, bytes and type agree.
    const HardwareAddress ethernet(MAC, 6, 1);
    EXPECT_FALSE(ethernet == HardwareAddress(MAC, 6, 6));
    EXPECT_FALSE(ethernet == HardwareAddress(MAC, 5, 1));
    EXPECT_FALSE(ethernet == HardwareAddress("00:1a:2b:3c:4d:5f"));
    // The lease file tests cover the stored form and its damage; an empty
    // address (hlen 0: a client known by option 61 alone) comes back too.
    HardwareAddress copy(MAC, 6, 1);
    copy.Unserialize(HardwareAddress(MAC, 0, 1).Serialize());
    EXPECT_EQ(copy, HardwareAddress(MAC, 0, 1));
}
