#include "foundation/AppException.h"

#include <gtest/gtest.h>

TEST(AppExceptionTest, TextsByCodeWithUnassignedAndOutOfRangeCodesUnknown)
{
    EXPECT_EQ(AppException::GetMessageForCode(AppException::ReceiveError), "Receive error, listeing will be stopped");
    EXPECT_EQ(AppException::GetMessageForCode(AppException::UnsupportedEOLStyle),
              "The file has unsupported End Of Line style");
    EXPECT_EQ(AppException::GetMessageForCode(AppException::CannotGetKnownDirectory),
              "Cannot get Windows known directory");
    for (const int code : {7, 8, 43, -1, 1000}) {
        EXPECT_EQ(AppException::GetMessageForCode(code), "Unknown error") << code;
    }
    const AppException original(AppException::CannotBindSocket);
    const AppException copy = original;
    EXPECT_EQ(copy.GetCode(), 2);
    EXPECT_EQ(copy.GetMessage(), "Cannot bind the socket");
}
