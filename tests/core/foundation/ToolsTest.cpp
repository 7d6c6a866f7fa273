#include "foundation/Tools.h"

#include <gtest/gtest.h>

// The only guard of how "-m" and "-s" are found on the command line.
TEST(ToolsTest, ArgumentsAreWholeTrimmedAndLowerCased)
{
    // Whole trimmed lower-cased arguments, index 0 included, up to the count.
    const char* const arguments[] = {"/usr/bin/Tarnvel", " -M ", "- s", "-s"};
    EXPECT_TRUE(Tools::ParameterExists(3, arguments, "  -m"));
    EXPECT_TRUE(Tools::ParameterExists(3, arguments, "/USR/BIN/TARNVEL"));
    EXPECT_FALSE(Tools::ParameterExists(3, arguments, "-s"));
    EXPECT_TRUE(Tools::ParameterExists(4, arguments, "-s"));
}
