#include <UtilsLib/files/FileHelper.h>

#include <UtilsLib/platform/UniqueFileHandle.h>

#include <tests/support/ImportPatch.h>
#include <tests/support/OpenFile.h>
#include <tests/support/OpenHandles.h>
#include <tests/support/TempFolder.h>

#include <gtest/gtest.h>

using TestSupport::LastErrorText;
using TestSupport::OpenFile;
using TestSupport::OpenHandles;
using TestSupport::TempFolder;
using UtilsLib::FileHelper;
using UtilsLib::Platform::UniqueFileHandle;

namespace
{

/// Without taking room on the disk.
void MakeFile(const std::string& path, long long size)
{
    const UniqueFileHandle file(CreateFileA(path.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_ALWAYS, 0, nullptr));
    LARGE_INTEGER end;
    end.QuadPart = size;
    ASSERT_TRUE(SetFilePointerEx(file.Get(), end, nullptr, FILE_BEGIN) && SetEndOfFile(file.Get()))
        << LastErrorText("SetEndOfFile");
}

BOOL WINAPI NoSize(HANDLE, LARGE_INTEGER* size)
{
    size->QuadPart = 77;
    SetLastError(ERROR_GEN_FAILURE);
    return FALSE;
}

} // namespace

// Kept: the low 32 bits with their sign.
TEST(FileHelperTest, TheSizeIsRightBelowTwoGiBAndNarrowedFromThereOn)
{
    TempFolder folder;
    const struct
    {
        long long size;
        unsigned long long answer;
    } cases[] = {
        {0, 0},
        {1, 1},
        {0x7FFFFFFF, 0x7FFFFFFF},
        {0x80000000, 0xFFFFFFFF80000000},
        {0xFFFFFFFF, 0xFFFFFFFFFFFFFFFF},
        {0x100000000, 0},
        {0x100000005, 5},
        {0x180000000, 0xFFFFFFFF80000000},
    };
    for (const auto& [size, answer] : cases)
    {
        MakeFile(folder / "a.dat", size);
        EXPECT_EQ(FileHelper::GetFileSize(folder / "a.dat"), answer) << size;
    }
}

TEST(FileHelperTest, WhatCannotBeOpenedHasSizeZeroAndTheReasonStays)
{
    TempFolder folder;

    EXPECT_EQ(FileHelper::GetFileSize(folder / "missing.dat"), 0u);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_FILE_NOT_FOUND});
    EXPECT_EQ(FileHelper::GetFileSize(folder.Path()), 0u);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_ACCESS_DENIED});
    EXPECT_EQ(FileHelper::GetFileSize(""), 0u);
    EXPECT_FALSE(folder.Exists("missing.dat"));
}

TEST(FileHelperTest, AReaderBesideIsToleratedAWriterIsNot)
{
    TempFolder folder;
    folder.Write("a.dat", "12345");
    {
        const UniqueFileHandle reader = OpenFile(folder / "a.dat", GENERIC_READ, FILE_SHARE_READ);
        EXPECT_EQ(FileHelper::GetFileSize(folder / "a.dat"), 5u);
    }
    const UniqueFileHandle writer = OpenFile(folder / "a.dat", GENERIC_WRITE);

    EXPECT_EQ(FileHelper::GetFileSize(folder / "a.dat"), 0u);

    EXPECT_EQ(GetLastError(), DWORD{ERROR_SHARING_VIOLATION});
}

TEST(FileHelperTest, ASizeThatTheSystemRefusesIsZeroAndTheHandleIsClosed)
{
    TempFolder folder;
    folder.Write("a.dat", "12345");
    const unsigned long before = OpenHandles();
    const TestSupport::ImportPatch noSize("KERNEL32.dll", "GetFileSizeEx", &NoSize);

    EXPECT_EQ(FileHelper::GetFileSize(folder / "a.dat"), 0u);

    EXPECT_EQ(GetLastError(), DWORD{ERROR_GEN_FAILURE});
    EXPECT_EQ(OpenHandles(), before);
}
