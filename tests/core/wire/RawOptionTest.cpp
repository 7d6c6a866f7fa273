#include "wire/RawOption.h"

#include "foundation/AppException.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>

namespace {

int CodeOf(const std::function<void()>& action)
{
    try {
        action();
    } catch (const AppException& exception) {
        return exception.GetCode();
    }
    return -1;
}

std::string Items(int count, const std::string& item)
{
    std::string text;
    for (int i = 0; i < count; ++i) {
        text += (i > 0 ? " " : "") + item;
    }
    return text;
}

} // namespace

TEST(RawOptionTest, CodeStringAcceptsZeroTo254AndKeepsTheOldCodeOnRejection)
{
    RawOption option("254", "1");
    EXPECT_EQ(option.GetCode(), 254);
    option.SetCodeString("0");
    EXPECT_EQ(option.GetCode(), 0);
    EXPECT_EQ(option.GetCodeString(), "0");
    option.SetCodeString("007");
    EXPECT_EQ(option.GetCode(), 7);
    EXPECT_EQ(option.GetCodeString(), "7");

    for (const std::string bad : {"255", "", " 4", "4 ", "-1", "+4", "4a", "0x10", "99999999999"}) {
        EXPECT_EQ(CodeOf([&] { option.SetCodeString(bad); }), AppException::CodeStringNotValid) << '"' << bad << '"';
        EXPECT_EQ(option.GetCode(), 7) << '"' << bad << '"';
    }
}

TEST(RawOptionTest, DataStringRulesAndTheirFailureCodes)
{
    RawOption option("4", "0 254");
    EXPECT_EQ(option.GetData(), (ByteString{0, 254}));

    // Two blanks between numbers are one separator, and come back as one.
    option.SetDataString("1  2");
    EXPECT_EQ(option.GetData(), (ByteString{1, 2}));
    EXPECT_EQ(option.GetDataString(), "1 2");
    option.SetDataString("007");
    EXPECT_EQ(option.GetData(), ByteString{7});
    EXPECT_EQ(option.GetDataString(), "7");

    // A blank at either end leaves an empty item; blanks alone are not empty.
    for (const std::string bad : {"1 255", " 1", "1 ", "   ", "1\t2", "1,2", "-1", "a"}) {
        EXPECT_EQ(CodeOf([&] { option.SetDataString(bad); }), AppException::DataStringNotValid) << '"' << bad << '"';
        EXPECT_EQ(option.GetData(), ByteString{7}) << '"' << bad << '"';
    }
    EXPECT_EQ(CodeOf([&] { option.SetDataString(""); }), AppException::RawOptionDataEmpty);

    option.SetDataString(Items(254, "254"));
    EXPECT_EQ(option.GetData().size(), 254u);
    EXPECT_EQ(option.ToBytes().size(), 256u);
    EXPECT_EQ(option.ToBytes()[1], 254);
    // The count is judged before any item, so 255 items of garbage are too long.
    EXPECT_EQ(CodeOf([&] { option.SetDataString(Items(255, "1")); }), AppException::RawOptionDataTooLong);
    EXPECT_EQ(CodeOf([&] { option.SetDataString(Items(255, "x")); }), AppException::RawOptionDataTooLong);
    EXPECT_EQ(option.GetData().size(), 254u);
}

TEST(RawOptionTest, ConstructorReportsTheCodeFirstAndWireFormIsCodeLengthData)
{
    EXPECT_EQ(CodeOf([] { RawOption("255", ""); }), AppException::CodeStringNotValid);
    EXPECT_EQ(CodeOf([] { RawOption("4", ""); }), AppException::RawOptionDataEmpty);
    EXPECT_EQ(CodeOf([] { RawOption("4", "1 x"); }), AppException::DataStringNotValid);

    const RawOption timeServer("4", "192 168 1 100");
    EXPECT_EQ(timeServer.GetCodeString(), "4");
    EXPECT_EQ(timeServer.GetDataString(), "192 168 1 100");
    EXPECT_EQ(timeServer.ToBytes(), (ByteString{4, 4, 192, 168, 1, 100}));
    EXPECT_EQ(timeServer, RawOption("004", "192  168 1 100"));
    EXPECT_FALSE(timeServer == RawOption("5", "192 168 1 100"));
}
