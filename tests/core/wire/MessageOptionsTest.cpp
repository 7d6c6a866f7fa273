#include "wire/MessageOptions.h"

#include "foundation/AppException.h"

#include <gtest/gtest.h>

#include <functional>

namespace {

bool RaisesOptionNotPresent(const std::function<void()>& read)
{
    try {
        read();
    } catch (const AppException& exception) {
        return exception.GetCode() == AppException::OptionNotPresent;
    }
    return false;
}

const IPv4Address FIRST_DNS(192, 168, 0, 2);
const IPv4Address SECOND_DNS(192, 168, 0, 3);

} // namespace

TEST(MessageOptionsTest, GettersRefuseAbsentOptionsAndSettersRaiseTheirFlag)
{
    MessageOptions options;
    for (int code = 0; code < 256; ++code) {
        EXPECT_FALSE(options.IsOptionPresent(static_cast<uint8_t>(code))) << code;
    }
    EXPECT_TRUE(RaisesOptionNotPresent([&] { options.GetSubnetMask(); }));
    EXPECT_TRUE(RaisesOptionNotPresent([&] { options.GetRouter(); }));
    EXPECT_TRUE(RaisesOptionNotPresent([&] { options.GetDNSAddress1(); }));
    EXPECT_TRUE(RaisesOptionNotPresent([&] { options.GetDNSAddress2(); }));
    EXPECT_TRUE(RaisesOptionNotPresent([&] { options.GetHostName(); }));
    EXPECT_TRUE(RaisesOptionNotPresent([&] { options.GetBroadcastAddress(); }));
    EXPECT_TRUE(RaisesOptionNotPresent([&] { options.GetRequestedIPAddress(); }));
    EXPECT_TRUE(RaisesOptionNotPresent([&] { options.GetIPAddressLeaseTime(); }));
    EXPECT_TRUE(RaisesOptionNotPresent([&] { options.GetMessageType(); }));
    EXPECT_TRUE(RaisesOptionNotPresent([&] { options.GetServerIdentifier(); }));
    EXPECT_TRUE(RaisesOptionNotPresent([&] { options.GetParameterRequestList(); }));
    EXPECT_TRUE(RaisesOptionNotPresent([&] { options.GetMaximumDHCPMessageSize(); }));
    EXPECT_TRUE(RaisesOptionNotPresent([&] { options.GetClientIdentifier(); }));

    const uint8_t identifierBytes[] = {1, 0, 0x11, 0x22, 0x33, 0x44, 0x55};
    options.SetSubnetMask(24);
    options.SetRouter(IPv4Address(10, 0, 0, 1));
    options.SetHostName("host");
    options.SetBroadcastAddress(IPv4Address(10, 0, 0, 255));
    options.SetRequestedIPAddress(IPv4Address(10, 0, 0, 7));
    options.SetIPAddressLeaseTime(3600);
    options.SetMessageType(DHCPREQUEST);
    options.SetServerIdentifier(IPv4Address(10, 0, 0, 1));
    options.SetParameterRequestList({1, 3, 6});
    options.SetMaximumDHCPMessageSize(576);
    options.SetClientIdentifier(ClientIdentifier(sizeof identifierBytes, identifierBytes));
    for (const int code : {1, 3, 12, 28, 50, 51, 53, 54, 55, 57, 61}) {
        EXPECT_TRUE(options.IsOptionPresent(static_cast<uint8_t>(code))) << code;
    }
    EXPECT_EQ(options.GetSubnetMask(), 24);
    EXPECT_EQ(options.GetRouter(), IPv4Address(10, 0, 0, 1));
    EXPECT_EQ(options.GetHostName(), "host");
    EXPECT_EQ(options.GetBroadcastAddress(), IPv4Address(10, 0, 0, 255));
    EXPECT_EQ(options.GetRequestedIPAddress(), IPv4Address(10, 0, 0, 7));
    EXPECT_EQ(options.GetIPAddressLeaseTime(), 3600);
    EXPECT_EQ(options.GetMessageType(), DHCPREQUEST);
    EXPECT_EQ(options.GetServerIdentifier(), IPv4Address(10, 0, 0, 1));
    EXPECT_EQ(options.GetParameterRequestList(), (ByteString{1, 3, 6}));
    EXPECT_EQ(options.GetMaximumDHCPMessageSize(), 576);
    EXPECT_EQ(options.GetClientIdentifier(), ClientIdentifier(sizeof identifierBytes, identifierBytes));

    options.RemoveOption(53);
    EXPECT_FALSE(options.IsOptionPresent(53));
    EXPECT_TRUE(RaisesOptionNotPresent([&] { options.GetMessageType(); }));
}

TEST(MessageOptionsTest, TheTwoDNSAddressesShareOneFlag)
{
    MessageOptions options;
    options.SetDNSAddress1(FIRST_DNS);
    EXPECT_TRUE(options.IsOptionPresent(6));
    EXPECT_EQ(options.GetDNSAddress2(), IPv4Address());
    options.SetDNSAddress2(SECOND_DNS);
    EXPECT_EQ(options.GetDNSAddress1(), FIRST_DNS);
    EXPECT_EQ(options.GetDNSAddress2(), SECOND_DNS);

    // Removing option 6 forgets both, so a later first address stands alone.
    options.RemoveOption(6);
    EXPECT_FALSE(options.IsOptionPresent(6));
    options.SetDNSAddress1(FIRST_DNS);
    EXPECT_EQ(options.GetDNSAddress2(), IPv4Address());

    MessageOptions zeroFirst;
    zeroFirst.SetDNSAddress1(IPv4Address());
    EXPECT_TRUE(zeroFirst.IsOptionPresent(6));

    MessageOptions fromSettings;
    fromSettings.SetDNSAddresses(IPv4Address(), SECOND_DNS);
    EXPECT_EQ(fromSettings.GetDNSAddress1(), SECOND_DNS);
    EXPECT_EQ(fromSettings.GetDNSAddress2(), IPv4Address());
    fromSettings.SetDNSAddresses(FIRST_DNS, SECOND_DNS);
    EXPECT_EQ(fromSettings.GetDNSAddress1(), FIRST_DNS);
    EXPECT_EQ(fromSettings.GetDNSAddress2(), SECOND_DNS);
    fromSettings.SetDNSAddresses(IPv4Address(), IPv4Address());
    EXPECT_FALSE(fromSettings.IsOptionPresent(6));
}

TEST(MessageOptionsTest, StandardCodesAndRawOptionFlags)
{
    for (int code = 0; code < 256; ++code) {
        const bool standard = code == 0 || code == 1 || code == 3 || code == 6 || code == 12 || code == 28 ||
                              code == 50 || code == 51 || code == 53 || code == 54 || code == 55 || code == 57 ||
                              code == 61 || code == 255;
        EXPECT_EQ(MessageOptions::IsStandardOption(static_cast<uint8_t>(code)), standard) << code;
    }

    MessageOptions options;
    options.SetMessageType(DHCPOFFER);
    options.SetRawOptions({RawOption("66", "1 2"), RawOption("66", "3"), RawOption("150", "4")});
    EXPECT_TRUE(options.IsOptionPresent(66));
    EXPECT_TRUE(options.IsOptionPresent(150));
    ASSERT_NE(options.FindRawOption(66), nullptr);
    EXPECT_EQ(options.FindRawOption(66)->GetData(), (ByteString{1, 2}));
    EXPECT_EQ(options.FindRawOption(67), nullptr);

    // The old list's flags go, the new list's come, also for a standard code:
    // replacing a list that held 53 clears the flag of the typed field too.
    options.SetRawOptions({RawOption("150", "5"), RawOption("53", "9")});
    EXPECT_FALSE(options.IsOptionPresent(66));
    EXPECT_TRUE(options.IsOptionPresent(150));
    EXPECT_TRUE(options.IsOptionPresent(53));
    options.SetRawOptions({});
    EXPECT_FALSE(options.IsOptionPresent(150));
    EXPECT_FALSE(options.IsOptionPresent(53));
    EXPECT_TRUE(options.GetRawOptions().empty());
}

TEST(MessageOptionsDeathTest, SettersRefuseValuesOutsideTheirRange)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(MessageOptions().SetSubnetMask(0), "precondition");
    EXPECT_DEATH(MessageOptions().SetSubnetMask(33), "precondition");
    EXPECT_DEATH(MessageOptions().SetMessageType(0), "precondition");
    EXPECT_DEATH(MessageOptions().SetMessageType(9), "precondition");
    EXPECT_DEATH(MessageOptions().SetMaximumDHCPMessageSize(575), "precondition");
    EXPECT_DEATH(MessageOptions().SetDNSAddress2(SECOND_DNS), "precondition");
    EXPECT_DEATH(
        {
            MessageOptions options;
            options.SetDNSAddress1(FIRST_DNS);
            options.SetDNSAddress2(SECOND_DNS);
            options.SetDNSAddress1(IPv4Address());
        },
        "precondition");
}
