#include "wire/MessageOptions.h"

#include "support/RaisedCode.h"

#include <gtest/gtest.h>

#include <functional>
#include <set>

namespace {

const IPv4Address FIRST_DNS(192, 168, 0, 2);
const IPv4Address SECOND_DNS(192, 168, 0, 3);

} // namespace

TEST(MessageOptionsTest, GettersRefuseAbsentOptions)
{
    MessageOptions options;
    const std::function<void()> reads[] = {
        [&] { options.GetSubnetMask(); },          [&] { options.GetRouter(); },
        [&] { options.GetDNSAddress1(); },         [&] { options.GetHostName(); },
        [&] { options.GetBroadcastAddress(); },    [&] { options.GetRequestedIPAddress(); },
        [&] { options.GetIPAddressLeaseTime(); },  [&] { options.GetMessageType(); },
        [&] { options.GetServerIdentifier(); },    [&] { options.GetParameterRequestList(); },
        [&] { options.GetMaximumDHCPMessageSize(); }, [&] { options.GetClientIdentifier(); },
    };
    for (size_t i = 0; i < std::size(reads); ++i) {
        EXPECT_EQ(CodeRaisedBy(reads[i]), AppException::OptionNotPresent) << "getter " << i;
    }
    options.SetMessageType(DHCPREQUEST);
    options.RemoveOption(53);
    EXPECT_EQ(CodeRaisedBy([&] { options.GetMessageType(); }), AppException::OptionNotPresent);
}

TEST(MessageOptionsTest, TheTwoDNSAddressesShareOneFlag)
{
    MessageOptions options;
    options.SetDNSAddress1(FIRST_DNS);
    EXPECT_EQ(options.GetDNSAddress2(), IPv4Address());
    options.SetDNSAddress2(SECOND_DNS);
    EXPECT_EQ(options.GetDNSAddress2(), SECOND_DNS);
    // Removing option 6 forgets both, so a later first address stands alone.
    options.RemoveOption(6);
    EXPECT_FALSE(options.IsOptionPresent(6));
    options.SetDNSAddress1(FIRST_DNS);
    EXPECT_EQ(options.GetDNSAddress2(), IPv4Address());

    // From settings, a second address alone moves up; none clears the flag.
    options.SetDNSAddresses(IPv4Address(), SECOND_DNS);
    EXPECT_EQ(options.GetDNSAddress1(), SECOND_DNS);
    EXPECT_EQ(options.GetDNSAddress2(), IPv4Address());
    options.SetDNSAddresses(IPv4Address(), IPv4Address());
    EXPECT_FALSE(options.IsOptionPresent(6));
}

TEST(MessageOptionsTest, StandardCodesAndRawOptionFlags)
{
    const std::set<int> standard = {0, 1, 3, 6, 12, 28, 50, 51, 53, 54, 55, 57, 61, 255};
    for (int code = 0; code < 256; ++code) {
        EXPECT_EQ(MessageOptions::IsStandardOption(static_cast<uint8_t>(code)), standard.count(code) == 1) << code;
    }

    MessageOptions options;
    options.SetMessageType(DHCPOFFER);
    options.SetRawOptions({RawOption("66", "1 2"), RawOption("66", "3"), RawOption("150", "4")});
    ASSERT_NE(options.FindRawOption(66), nullptr);
    EXPECT_EQ(options.FindRawOption(66)->GetData(), (ByteString{1, 2}));
    EXPECT_EQ(options.FindRawOption(67), nullptr);
    // The old list's flags go, the new list's come, also for a standard code:
    // replacing a list that held 53 clears the flag of the typed field too.
    options.SetRawOptions({RawOption("150", "5"), RawOption("53", "9")});
    EXPECT_FALSE(options.IsOptionPresent(66));
    EXPECT_TRUE(options.IsOptionPresent(150) && options.IsOptionPresent(53));
    options.SetRawOptions({});
    EXPECT_FALSE(options.IsOptionPresent(150) || options.IsOptionPresent(53));
}

TEST(MessageOptionsDeathTest, SettersRefuseValuesOutsideTheirRange)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(MessageOptions().SetSubnetMask(33), "precondition");
    EXPECT_DEATH(MessageOptions().SetMessageType(9), "precondition");
    EXPECT_DEATH(MessageOptions().SetMaximumDHCPMessageSize(575), "precondition");
    EXPECT_DEATH(MessageOptions().SetDNSAddress2(SECOND_DNS), "precondition");
}
