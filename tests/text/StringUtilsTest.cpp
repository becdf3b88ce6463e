#include <UtilsLib/text/StringUtils.h>

#include <gtest/gtest.h>

using UtilsLib::StringUtils;

TEST(StringUtilsTest, CleanCutsAtTheFirstZeroByte)
{
    std::string text("abc\0def", 7);
    StringUtils::Clean(text);
    EXPECT_EQ(text, "abc");
}
