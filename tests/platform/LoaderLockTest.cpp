#include <UtilsLib/platform/LoaderLock.h>

#include <UtilsLib/WindowsTypes.h>

#include <tests/support/HeldLoader.h>

#include <gtest/gtest.h>

using TestSupport::HeldLoader;
using UtilsLib::Platform::WaitForLoader;

TEST(LoaderLockTest, FreeLoaderIsLeftFree)
{
    EXPECT_TRUE(WaitForLoader(5'000));

    const HeldLoader other; // takes the lock, so nobody kept it
}

TEST(LoaderLockTest, WaitEndsAtItsLimit)
{
    const HeldLoader other;
    const unsigned long long start = GetTickCount64();

    EXPECT_FALSE(WaitForLoader(200));

    EXPECT_GE(GetTickCount64() - start, 190u);
}

TEST(LoaderLockTest, FreedLoaderIsFree)
{
    {
        const HeldLoader other;
        EXPECT_FALSE(WaitForLoader(0));
    }
    EXPECT_TRUE(WaitForLoader(5'000));
}
