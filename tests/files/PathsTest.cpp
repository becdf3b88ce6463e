#include <UtilsLib/files/Paths.h>

#include <gtest/gtest.h>

using UtilsLib::Paths;

TEST(PathsTest, GetPathIsTheLoweredPartBeforeTheLastSeparator)
{
    EXPECT_EQ(Paths::GetPath("C:\\Data\\File.TXT"), "c:\\data");
    EXPECT_EQ(Paths::GetPath("File.TXT"), "");
}
