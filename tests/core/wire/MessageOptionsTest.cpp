#include "wire/MessageOptions.h"

#include "support/RaisedCode.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>

TEST(MessageOptionsTest, GettersRefuseAbsentOptions)
{
    MessageOptions options;
    options.SetMessageType(DHCPREQUEST);
    options.RemoveOption(53);
    const std::function<void()> reads[] = {[&] { options.GetMessageType(); }, [&] { options.GetRequestedIPAddress(); },
                                           [&] { options.GetServerIdentifier(); }, [&] { options.GetHostName(); },
                                           [&] { options.GetParameterRequestList(); }};
    for (size_t i = 0; i < std::size(reads); ++i) {
        EXPECT_EQ(CodeRaisedBy(reads[i]), AppException::OptionNotPresent) << "getter " << i;
    }
}

TEST(MessageOptionsTest, TheTwoDNSAddressesShareOneFlag)
{
    const IPv4Address first(192, 168, 0, 2);
    const IPv4Address second(192, 168, 0, 3);
    MessageOptions options;
    options.SetDNSAddress1(first);
    EXPECT_EQ(options.GetDNSAddress2(), IPv4Address());
    options.SetDNSAddress2(second);
    EXPECT_EQ(options.GetDNSAddress2(), second);
    // Removing option 6 forgets both, so a later first address stands alone.
    options.RemoveOption(6);
    EXPECT_FALSE(options.IsOptionPresent(6));
    options.SetDNSAddress1(first);
    EXPECT_EQ(options.GetDNSAddress2(), IPv4Address());
    // From settings, a second address alone moves up; none clears the flag.
    options.SetDNSAddresses(IPv4Address(), second);
    EXPECT_EQ(options.GetDNSAddress1(), second);
    EXPECT_EQ(options.GetDNSAddress2(), IPv4Address());
    options.SetDNSAddresses(IPv4Address(), IPv4Address());
    EXPECT_FALSE(options.IsOptionPresent(6));
}

TEST(MessageOptionsTest, RawOptionsAndTheirFlags)
{
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

TEST(RawOptionTest, CodeAndDataStringsAndTheirFailureCodes)
{
    RawOption option("0", "1");
    EXPECT_EQ(option.GetCode(), 0);
    option.SetCodeString("007");
    EXPECT_EQ(option.GetCodeString(), "7");
    option.SetCodeString("254");
    for (const std::string bad : {"255", "", " 4", "4 ", "-1", "+4", "4a", "0x10", "99999999999"}) {
        EXPECT_EQ(CodeRaisedBy([&] { option.SetCodeString(bad); }), AppException::CodeStringNotValid) << bad;
        EXPECT_EQ(option.GetCode(), 254) << bad; // kept on rejection
    }

    // Two blanks between numbers are one separator, and come back as one.
    option.SetDataString("0  254");
    EXPECT_EQ(option.GetData(), (ByteString{0, 254}));
    EXPECT_EQ(option.GetDataString(), "0 254");
    option.SetDataString("007");
    EXPECT_EQ(option.GetDataString(), "7");
    // A blank at either end leaves an empty item; blanks alone are not empty.
    for (const std::string bad : {"1 255", " 1", "1 ", "   ", "1\t2", "1,2", "-1", "a"}) {
        EXPECT_EQ(CodeRaisedBy([&] { option.SetDataString(bad); }), AppException::DataStringNotValid) << bad;
        EXPECT_EQ(option.GetData(), ByteString{7}) << bad;
    }
    EXPECT_EQ(CodeRaisedBy([&] { option.SetDataString(""); }), AppException::RawOptionDataEmpty);
    std::string items = "254";
    for (int count = 1; count < 254; ++count) {
        items += " 254";
    }
    option.SetDataString(items);
    EXPECT_EQ(option.ToBytes().size(), 256u);
    EXPECT_EQ(option.ToBytes()[1], 254);
    // The count is judged before any item, so 255 items of garbage are too long.
    EXPECT_EQ(CodeRaisedBy([&] { option.SetDataString(items + " 1"); }), AppException::RawOptionDataTooLong);
    EXPECT_EQ(CodeRaisedBy([&] { option.SetDataString(items + " x"); }), AppException::RawOptionDataTooLong);
    EXPECT_EQ(option.GetData().size(), 254u);

    // The constructor reports the code first.
    EXPECT_EQ(CodeRaisedBy([] { RawOption("255", ""); }), AppException::CodeStringNotValid);
    EXPECT_EQ(CodeRaisedBy([] { RawOption("4", "1 x"); }), AppException::DataStringNotValid);
    EXPECT_EQ(RawOption("004", "192  168 1 100").ToBytes(), (ByteString{4, 4, 192, 168, 1, 100}));
}
