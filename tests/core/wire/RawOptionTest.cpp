#include "wire/RawOption.h"

#include "support/RaisedCode.h"

#include <gtest/gtest.h>

#include <string>

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
