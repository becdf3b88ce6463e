#include <UtilsLib/files/ScopedFileLock.h>

#include <UtilsLib/platform/UniqueFileHandle.h>

#include <tests/support/ChildProcess.h>
#include <tests/support/FieldsOf.h>
#include <tests/support/ImportPatch.h>
#include <tests/support/OpenFile.h>
#include <tests/support/OpenHandles.h>
#include <tests/support/TempFolder.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <optional>

using testing::ElementsAre;
using TestSupport::ChildProcess;
using TestSupport::FieldsOf;
using TestSupport::ImportPatch;
using TestSupport::LastErrorText;
using TestSupport::OpenFile;
using TestSupport::OpenHandles;
using TestSupport::TempFolder;
using UtilsLib::ScopedFileLock;
using UtilsLib::Platform::UniqueFileHandle;

namespace
{

/// The error of trying to write the file, 0 when it can be written.
DWORD ErrorOfWriting(const std::string& path)
{
    return TestSupport::ErrorOfOpening(path, GENERIC_WRITE);
}

struct Fields
{
    std::string folder;
    std::vector<std::string> names;
    std::vector<HANDLE> handles;
};

std::vector<HANDLE> g_closed;

BOOL WINAPI NoteClosed(HANDLE handle)
{
    g_closed.push_back(handle);
    return CloseHandle(handle);
}

} // namespace

TEST(ScopedFileLockTest, AnEmptyListSucceedsAndHoldsNothing)
{
    ScopedFileLock lock("c:\\no such folder", {});

    EXPECT_TRUE(lock.LockFilesDenyWrite());
}

TEST(ScopedFileLockTest, TakesNoHandleBeforeItIsAsked)
{
    TempFolder folder;
    folder.Write("a.dat", "1");

    const ScopedFileLock lock(folder.Path(), {"a.dat"});

    EXPECT_EQ(ErrorOfWriting(folder / "a.dat"), 0u);
}

TEST(ScopedFileLockTest, OthersMayReadButNeitherWriteNorDeleteUntilItIsGone)
{
    TempFolder folder;
    folder.Write("a.dat", "1");
    folder.Write("sub\\b.dat", "2");
    std::optional<ScopedFileLock> lock(std::in_place, folder.Path(), std::vector<std::string>{"a.dat", "sub\\b.dat"});

    ASSERT_TRUE(lock->LockFilesDenyWrite()) << LastErrorText("LockFilesDenyWrite");

    for (const char* const name : {"a.dat", "sub\\b.dat"})
    {
        EXPECT_EQ(ErrorOfWriting(folder / name), DWORD{ERROR_SHARING_VIOLATION}) << name;
        EXPECT_FALSE(DeleteFileA((folder / name).c_str())) << name;
        EXPECT_TRUE(OpenFile(folder / name, GENERIC_READ)) << LastErrorText(name);
    }

    lock.reset();

    EXPECT_EQ(ErrorOfWriting(folder / "a.dat"), 0u);
    EXPECT_EQ(ErrorOfWriting(folder / "sub\\b.dat"), 0u);
}

TEST(ScopedFileLockTest, TheFieldsStandInTheirOrderAndTheHandlesAreClosedInTheirs)
{
    TempFolder folder;
    folder.Write("a.dat", "1");
    folder.Write("b.dat", "2");
    const ImportPatch noteClosed("KERNEL32.dll", "CloseHandle", &NoteClosed);
    std::vector<HANDLE> held;
    {
        ScopedFileLock lock(folder.Path(), {"b.dat", "a.dat"});
        const Fields& fields = FieldsOf<Fields>(lock);
        EXPECT_EQ(fields.folder, folder.Path());
        EXPECT_THAT(fields.names, ElementsAre("b.dat", "a.dat"));
        ASSERT_TRUE(lock.LockFilesDenyWrite()) << LastErrorText("LockFilesDenyWrite");
        held = fields.handles;
        g_closed.clear();
    }

    EXPECT_EQ(held.size(), 2u);
    EXPECT_EQ(g_closed, held);
}

TEST(ScopedFileLockTest, TheReadOnlyAndOtherMarksAreTakenAwayForGood)
{
    constexpr DWORD kMarks = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM;
    TempFolder folder;
    folder.Write("a.dat", "1");
    ASSERT_TRUE(SetFileAttributesA((folder / "a.dat").c_str(), kMarks));

    {
        ScopedFileLock lock(folder.Path(), {"a.dat"});
        EXPECT_TRUE(lock.LockFilesDenyWrite()) << LastErrorText("LockFilesDenyWrite");
    }

    EXPECT_EQ(GetFileAttributesA((folder / "a.dat").c_str()) & kMarks, 0u);
}

TEST(ScopedFileLockTest, AMissingSecondFileFailsAndLeavesTheFirstLockedAndTheThirdAlone)
{
    TempFolder folder;
    folder.Write("a.dat", "1");
    folder.Write("c.dat", "3");
    {
        ScopedFileLock lock(folder.Path(), {"a.dat", "b.dat", "c.dat"});
        SetLastError(0);

        EXPECT_FALSE(lock.LockFilesDenyWrite());

        EXPECT_EQ(GetLastError(), DWORD{ERROR_FILE_NOT_FOUND});
        EXPECT_EQ(ErrorOfWriting(folder / "a.dat"), DWORD{ERROR_SHARING_VIOLATION});
        EXPECT_FALSE(folder.Exists("b.dat"));
        EXPECT_EQ(ErrorOfWriting(folder / "c.dat"), 0u);
    }
    EXPECT_EQ(ErrorOfWriting(folder / "a.dat"), 0u);
}

TEST(ScopedFileLockTest, AFileThatAnotherProcessWritesFailsWithASharingViolation)
{
    TempFolder folder;
    folder.Write("a.dat", "1");
    ChildProcess writer("child_hold_file", "\"" + (folder / "a.dat") + "\" 1073741824 7"); // generic write, sharing all
    ASSERT_TRUE(writer.WaitUntilReady());
    ScopedFileLock lock(folder.Path(), {"a.dat"});
    SetLastError(0);

    EXPECT_FALSE(lock.LockFilesDenyWrite());

    EXPECT_EQ(GetLastError(), DWORD{ERROR_SHARING_VIOLATION});
}

TEST(ScopedFileLockTest, TheLastErrorSurvivesTheDestructor)
{
    TempFolder folder;
    folder.Write("a.dat", "1");
    {
        ScopedFileLock lock(folder.Path(), {"a.dat"});
        ASSERT_TRUE(lock.LockFilesDenyWrite());
        const ScopedFileLock copy(lock); // its closing fails, which changes the last error
        SetLastError(ERROR_SHARING_VIOLATION);
    }

    EXPECT_EQ(GetLastError(), DWORD{ERROR_SHARING_VIOLATION});
}

TEST(ScopedFileLockTest, ASecondCallTakesASecondHandleAndAllAreClosed)
{
    TempFolder folder;
    folder.Write("a.dat", "1");
    folder.Write("b.dat", "2");
    const unsigned long before = OpenHandles();
    {
        ScopedFileLock lock(folder.Path(), {"a.dat", "b.dat"});
        EXPECT_TRUE(lock.LockFilesDenyWrite());
        EXPECT_EQ(OpenHandles(), before + 2);

        EXPECT_TRUE(lock.LockFilesDenyWrite());

        EXPECT_EQ(OpenHandles(), before + 4);
    }
    EXPECT_EQ(OpenHandles(), before);
}

// Kept: copies share the handles, and whichever goes first lets the files go.
TEST(ScopedFileLockTest, ACopySharesTheHandles)
{
    TempFolder folder;
    folder.Write("a.dat", "1");
    const unsigned long before = OpenHandles();
    ScopedFileLock lock(folder.Path(), {"a.dat"});
    ASSERT_TRUE(lock.LockFilesDenyWrite());
    {
        const ScopedFileLock copy(lock);
        EXPECT_EQ(OpenHandles(), before + 1);
    }

    EXPECT_EQ(ErrorOfWriting(folder / "a.dat"), 0u);
}
