#include <UtilsLib/system/HelperUtils.h>

#include <tests/support/ChildProcess.h>

#include <gtest/gtest.h>

using UtilsLib::HelperUtils;

TEST(HelperUtilsTest, BinaryPathIsTheRunningProgram)
{
    EXPECT_EQ(HelperUtils::GetBinaryPath(), TestSupport::ProgramFolder() + "\\system_tests.exe");
}
