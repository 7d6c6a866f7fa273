#include "foundation/ClientIdentifier.h"
#include "foundation/HardwareAddress.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

namespace {

const uint8_t MAC[6] = {0x00, 0x1a, 0x2b, 0x3c, 0x4d, 0x5e};

} // namespace

TEST(ClientIdentifierTest, FromHardwareAddressCarriesBytesWithoutType)
{
    const ClientIdentifier fromEthernet(HardwareAddress(MAC, 6, HardwareAddress::Ethernet10Mb));
    EXPECT_EQ(fromEthernet.GetLength(), 6);
    EXPECT_FALSE(fromEthernet.IsEmpty());
    for (int i = 0; i < 6; ++i) {
        EXPECT_EQ(fromEthernet[i], MAC[i]);
    }
    // The hardware type is not part of the identifier.
    EXPECT_TRUE(fromEthernet == ClientIdentifier(HardwareAddress(MAC, 6, 6)));

    // Option 61 of the same client usually has a type byte in front: not equal.
    const uint8_t withType[7] = {1, 0x00, 0x1a, 0x2b, 0x3c, 0x4d, 0x5e};
    const ClientIdentifier option61(7, withType);
    EXPECT_FALSE(fromEthernet == option61);
    EXPECT_TRUE(fromEthernet != option61);
    EXPECT_TRUE(fromEthernet == ClientIdentifier(6, MAC));
    EXPECT_FALSE(fromEthernet != ClientIdentifier(6, MAC));

    EXPECT_TRUE(ClientIdentifier(HardwareAddress()).IsEmpty());
    EXPECT_TRUE(ClientIdentifier().IsEmpty());
}

TEST(ClientIdentifierTest, OptionValuesCompareByLengthAndEveryByte)
{
    std::vector<uint8_t> longest(255);
    for (size_t i = 0; i < longest.size(); ++i) {
        longest[i] = static_cast<uint8_t>(i);
    }
    const ClientIdentifier full(255, longest.data());
    EXPECT_EQ(full.GetLength(), 255);
    EXPECT_EQ(full[254], 254);

    ClientIdentifier copy = full;
    EXPECT_TRUE(copy == full);
    longest[254] ^= 0xff;
    EXPECT_TRUE(ClientIdentifier(255, longest.data()) != full);
    // Same leading bytes, shorter: different.
    EXPECT_TRUE(ClientIdentifier(254, longest.data()) != full);

    copy = ClientIdentifier(2, MAC);
    EXPECT_EQ(copy.GetLength(), 2);
    EXPECT_TRUE(copy == ClientIdentifier(2, MAC));
    EXPECT_TRUE(copy != ClientIdentifier(3, MAC));
}

TEST(ClientIdentifierDeathTest, OneByteOrEmptyIdentifiersAreCallerMistakes)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(ClientIdentifier(1, MAC), "precondition failed");
    EXPECT_DEATH((void)(ClientIdentifier() == ClientIdentifier(6, MAC)), "precondition failed");
    EXPECT_DEATH((void)ClientIdentifier(6, MAC)[6], "precondition failed");
}
