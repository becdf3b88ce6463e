#include <UtilsLib/platform/LastErrorKeeper.h>

#include <UtilsLib/WindowsTypes.h>

#include <gtest/gtest.h>

using UtilsLib::Platform::LastErrorKeeper;

TEST(LastErrorKeeperTest, PutsBackTheErrorOfItsConstruction)
{
    SetLastError(ERROR_SHARING_VIOLATION);
    {
        const LastErrorKeeper keep;
        SetLastError(ERROR_FILE_NOT_FOUND);
        EXPECT_EQ(keep.Value(), static_cast<unsigned long>(ERROR_SHARING_VIOLATION));
    }

    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SHARING_VIOLATION));
}
