#include <UtilsLib/files/ScopedFiles.h>

#include <UtilsLib/platform/UniqueFileHandle.h>

#include <tests/files/RecordingWatcher.h>
#include <tests/support/ChildProcess.h>
#include <tests/support/FieldsOf.h>
#include <tests/support/ImportPatch.h>
#include <tests/support/OpenFile.h>
#include <tests/support/OpenHandles.h>
#include <tests/support/TempFolder.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>

using testing::ElementsAre;
using testing::IsEmpty;
using TestSupport::ChildProcess;
using TestSupport::ErrorOfOpening;
using TestSupport::FieldsOf;
using TestSupport::ImportPatch;
using TestSupport::kShareAll;
using TestSupport::LastErrorText;
using TestSupport::OpenFile;
using TestSupport::OpenHandles;
using UtilsLib::File;
using UtilsLib::ScopedFiles;
using UtilsLib::Platform::UniqueFileHandle;

namespace
{

/// Three files and a set of them. The watcher spoils the last error, as anything that a host does there may.
class ScopedFilesTest : public testing::Test
{
protected:
    ScopedFilesTest()
    {
        for (const char* const name : {"a.dat", "b.dat", "c.dat"})
        {
            m_folder.Write(name, name);
        }
        m_watcher.then = [] { SetLastError(ERROR_GEN_FAILURE); };
    }
    ~ScopedFilesTest() override
    {
        m_watcher.then = nullptr; // what a test has set may look at its variables
    }

    std::shared_ptr<File> Get(const std::string& name) const
    {
        return m_set.GetFile(m_folder / name);
    }
    bool AllClosed() const
    {
        return !Get("a.dat")->IsOpen() && !Get("b.dat")->IsOpen() && !Get("c.dat")->IsOpen();
    }
    /// Another process holds the file, for reading only, and shares nothing.
    std::unique_ptr<ChildProcess> HoldElsewhere(const std::string& name) const
    {
        auto holder = std::make_unique<ChildProcess>("child_hold_file", "\"" + (m_folder / name) + "\" 2147483648 0");
        EXPECT_TRUE(holder->WaitUntilReady());
        return holder;
    }

    const TestSupport::TempFolder m_folder;
    RecordingWatcher m_watcher;
    ScopedFiles m_set{&m_watcher, m_folder.Path(), {"a.dat", "b.dat", "c.dat"}};
};

struct Fields
{
    UtilsLib::IFileWatcher* watcher;
    std::vector<std::shared_ptr<File>> files;
};

/// What the caller logged: the text after the line's prefix.
std::string Message(const std::string& line)
{
    const std::string end = "), ";
    const std::size_t at = line.find(end);
    return at == std::string::npos ? line : line.substr(at + end.size());
}

BOOL WINAPI RefuseToClose(HANDLE)
{
    SetLastError(ERROR_BUSY);
    return FALSE;
}

} // namespace

TEST_F(ScopedFilesTest, AnEmptySetSucceedsAtEverything)
{
    ScopedFiles set(&m_watcher);

    EXPECT_TRUE(set.OpenWrite());
    EXPECT_TRUE(set.LockFilesDenyWrite());
    set.Close();
    set.Remove("a.dat");

    EXPECT_EQ(set.GetFile("a.dat"), nullptr);
    EXPECT_EQ(set.GetFile(""), nullptr);
}

TEST_F(ScopedFilesTest, ThePathsAreFolderSeparatorAndName)
{
    const ScopedFiles set(&m_watcher, "C:\\Data", {"One.dat", "sub\\Two.dat"});

    ASSERT_NE(set.GetFile("c:\\data\\one.dat"), nullptr);
    EXPECT_EQ(set.GetFile("c:\\data\\one.dat")->GetPath(), "c:\\data\\one.dat");
    ASSERT_NE(set.GetFile("c:\\data\\sub\\two.dat"), nullptr);
    EXPECT_EQ(set.GetFile("c:\\data"), nullptr);
}

TEST_F(ScopedFilesTest, APathIsInTheSetOnceWhateverItsCase)
{
    ScopedFiles set(&m_watcher);
    set.Add("X:\\One.DAT");
    const std::shared_ptr<File> first = set.GetFile("x:\\one.dat");
    set.Add("x:\\one.dat");
    set.Add("X:\\ONE.dat");
    set.Add("x:\\\\one.dat"); // another text, whatever it names

    EXPECT_EQ(set.GetFile("x:\\ONE.DAT"), first);
    EXPECT_NE(set.GetFile("x:\\\\one.dat"), first);
    set.Remove("x:\\One.dat");
    EXPECT_EQ(set.GetFile("x:\\one.dat"), nullptr);
}

TEST_F(ScopedFilesTest, TheFieldsStandInTheirOrder)
{
    const Fields& fields = FieldsOf<Fields>(m_set);

    EXPECT_EQ(fields.watcher, &m_watcher);
    EXPECT_THAT(fields.files, ElementsAre(Get("a.dat"), Get("b.dat"), Get("c.dat")));
}

TEST_F(ScopedFilesTest, AddOpensNothing)
{
    m_set.Add(m_folder / "new.dat");

    EXPECT_FALSE(Get("new.dat")->IsOpen());
    EXPECT_FALSE(m_folder.Exists("new.dat"));
    EXPECT_THAT(m_watcher.calls, IsEmpty());
}

TEST_F(ScopedFilesTest, RemoveKeepsTheOrderOfTheOthers)
{
    m_set.Remove(m_folder / "A.DAT");
    m_set.Remove(m_folder / "none.dat");
    m_set.Add(m_folder / "a.dat");

    EXPECT_TRUE(m_set.OpenWrite()) << LastErrorText("OpenWrite");

    EXPECT_THAT(m_watcher.calls, ElementsAre("open 0 b.dat 3221225472 0 4 128", "open 0 c.dat 3221225472 0 4 128",
                                             "open 0 a.dat 3221225472 0 4 128"));
}

TEST_F(ScopedFilesTest, ARemovedFileThatNobodySharesIsClosed)
{
    ASSERT_TRUE(m_set.OpenWrite());
    const std::shared_ptr<File> shared = Get("b.dat");
    m_watcher.calls.clear();

    m_set.Remove(m_folder / "a.dat");
    m_set.Remove(m_folder / "b.dat");

    EXPECT_THAT(m_watcher.calls, ElementsAre("close 0 a.dat"));
    EXPECT_TRUE(shared->IsOpen());
}

TEST_F(ScopedFilesTest, OpenWriteOpensAllForTheCallerAlone)
{
    m_set.Add(m_folder / "new.dat");

    EXPECT_TRUE(m_set.OpenWrite()) << LastErrorText("OpenWrite");

    EXPECT_THAT(m_watcher.calls, ElementsAre("open 0 a.dat 3221225472 0 4 128", "open 0 b.dat 3221225472 0 4 128",
                                             "open 0 c.dat 3221225472 0 4 128", "open 0 new.dat 3221225472 0 4 128"));
    for (const char* const name : {"a.dat", "b.dat", "c.dat", "new.dat"})
    {
        EXPECT_TRUE(Get(name)->IsWritable()) << name;
        EXPECT_EQ(ErrorOfOpening(m_folder / name, GENERIC_READ), DWORD{ERROR_SHARING_VIOLATION}) << name;
    }
    char text[6] = "";
    unsigned long count = 0;
    EXPECT_TRUE(Get("b.dat")->Read(text, 5, count));
    EXPECT_STREQ(text, "b.dat"); // as it was
    EXPECT_TRUE(Get("b.dat")->Write(text, 5, count));
}

TEST_F(ScopedFilesTest, OpenWriteOfAFileHeldElsewhereLeavesAllClosedAndTheErrorToTheCaller)
{
    const auto holder = HoldElsewhere("b.dat");
    SetLastError(0);

    EXPECT_FALSE(m_set.OpenWrite());

    EXPECT_EQ(GetLastError(), DWORD{ERROR_SHARING_VIOLATION});
    EXPECT_TRUE(AllClosed());
    EXPECT_THAT(m_watcher.calls, ElementsAre("open 0 a.dat 3221225472 0 4 128", "close 0 a.dat"));
    EXPECT_EQ(ErrorOfOpening(m_folder / "a.dat", GENERIC_WRITE), 0u);
}

TEST_F(ScopedFilesTest, OpenWriteLogsItsFailureOnceAndLockFilesDenyWriteNothing)
{
    const auto holder = HoldElsewhere("b.dat");
    const std::string arguments = "\"" + (m_folder / "a.log") + "\" \"" + m_folder.Path() + "\" A.dat B.dat C.dat";

    EXPECT_EQ(TestSupport::RunChild("child_open_write", arguments).exitCode, DWORD{ERROR_SHARING_VIOLATION});

    const std::string line = m_folder.Read("a.log");
    EXPECT_THAT(line, testing::HasSubstr(", (1:4), "));
    EXPECT_EQ(Message(line), "ScopedFiles::OpenWrite(" + Get("b.dat")->GetPath() + ") Failed 32\r\n");
}

TEST_F(ScopedFilesTest, SuccessLogsNothing)
{
    const std::string arguments = "\"" + (m_folder / "a.log") + "\" \"" + m_folder.Path() + "\" a.dat b.dat new.dat";
    m_folder.Write("new.dat", "");

    EXPECT_EQ(TestSupport::RunChild("child_open_write", arguments).exitCode, 0u);

    EXPECT_EQ(m_folder.Read("a.log"), "");
}

TEST_F(ScopedFilesTest, OpenWriteCanBeTriedAgainAfterAFailure)
{
    {
        const auto holder = HoldElsewhere("c.dat");
        EXPECT_FALSE(m_set.OpenWrite());
        holder->LetGo();
        EXPECT_TRUE(holder->WaitForExit());
    }

    EXPECT_TRUE(m_set.OpenWrite()) << LastErrorText("OpenWrite");
}

TEST_F(ScopedFilesTest, LockFilesDenyWriteLetsOthersReadOnly)
{
    EXPECT_TRUE(m_set.LockFilesDenyWrite()) << LastErrorText("LockFilesDenyWrite");

    EXPECT_THAT(m_watcher.calls, ElementsAre("open 0 a.dat 2147483648 1 3 128", "open 0 b.dat 2147483648 1 3 128",
                                             "open 0 c.dat 2147483648 1 3 128"));
    for (const char* const name : {"a.dat", "b.dat", "c.dat"})
    {
        EXPECT_FALSE(Get(name)->IsWritable()) << name;
        EXPECT_EQ(ErrorOfOpening(m_folder / name, GENERIC_READ), 0u) << name;
        EXPECT_EQ(ErrorOfOpening(m_folder / name, GENERIC_WRITE), DWORD{ERROR_SHARING_VIOLATION}) << name;
        EXPECT_EQ(ErrorOfOpening(m_folder / name, DELETE), DWORD{ERROR_SHARING_VIOLATION}) << name;
    }
}

TEST_F(ScopedFilesTest, LockFilesDenyWriteTakesTheReadOnlyAndOtherMarksAwayForGood)
{
    constexpr DWORD kMarks = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM;
    const std::string path = m_folder / "b.dat";
    ASSERT_TRUE(SetFileAttributesA(path.c_str(), kMarks));

    EXPECT_TRUE(m_set.LockFilesDenyWrite()) << LastErrorText("LockFilesDenyWrite");
    m_set.Close();

    EXPECT_EQ(GetFileAttributesA(path.c_str()) & kMarks, 0u);
}

TEST_F(ScopedFilesTest, LockFilesDenyWriteOfAMissingFileLeavesAllClosed)
{
    m_set.Add(m_folder / "missing.dat");
    SetLastError(0);

    EXPECT_FALSE(m_set.LockFilesDenyWrite());

    EXPECT_EQ(GetLastError(), DWORD{ERROR_FILE_NOT_FOUND});
    EXPECT_TRUE(AllClosed());
    EXPECT_FALSE(m_folder.Exists("missing.dat"));
    EXPECT_EQ(m_watcher.calls.size(), 6u);
}

TEST_F(ScopedFilesTest, LockFilesDenyWriteOfAFileThatIsWrittenElsewhereFails)
{
    const UniqueFileHandle writer = OpenFile(m_folder / "b.dat", GENERIC_WRITE);
    ASSERT_TRUE(writer) << LastErrorText("CreateFileA");
    SetLastError(0);

    EXPECT_FALSE(m_set.LockFilesDenyWrite());

    EXPECT_EQ(GetLastError(), DWORD{ERROR_SHARING_VIOLATION});
    EXPECT_TRUE(AllClosed());
    EXPECT_THAT(m_watcher.calls, ElementsAre("open 0 a.dat 2147483648 1 3 128", "close 0 a.dat"));
}

TEST_F(ScopedFilesTest, OpeningAnOpenSetFailsAndClosesIt)
{
    ASSERT_TRUE(m_set.LockFilesDenyWrite());
    EXPECT_FALSE(m_set.LockFilesDenyWrite());
    EXPECT_TRUE(AllClosed());
    ASSERT_TRUE(m_set.LockFilesDenyWrite());
    m_watcher.calls.clear();

    EXPECT_FALSE(m_set.OpenWrite());

    EXPECT_TRUE(AllClosed());
    EXPECT_THAT(m_watcher.calls, ElementsAre("close 0 a.dat", "close 0 b.dat", "close 0 c.dat"));
}

TEST_F(ScopedFilesTest, OneFileThatIsOpenAlreadyFailsTheWholeSet)
{
    ASSERT_TRUE(Get("b.dat")->Open(GENERIC_READ, kShareAll, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL));
    EXPECT_FALSE(m_set.LockFilesDenyWrite());
    EXPECT_TRUE(AllClosed());
    ASSERT_TRUE(Get("c.dat")->Open(GENERIC_READ, kShareAll, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL));

    EXPECT_FALSE(m_set.OpenWrite());

    EXPECT_TRUE(AllClosed());
}

TEST_F(ScopedFilesTest, CloseClosesWhatIsOpenAndSkipsTheRest)
{
    ASSERT_TRUE(m_set.OpenWrite());
    ASSERT_TRUE(Get("b.dat")->Close());
    m_watcher.calls.clear();

    m_set.Close();
    m_set.Close();

    EXPECT_THAT(m_watcher.calls, ElementsAre("close 0 a.dat", "close 0 c.dat"));
    EXPECT_EQ(m_watcher.lastOwner, GetCurrentThreadId());
    EXPECT_TRUE(AllClosed());
    EXPECT_EQ(ErrorOfOpening(m_folder / "a.dat", GENERIC_WRITE), 0u);
}

TEST_F(ScopedFilesTest, AFileThatTheSystemDoesNotCloseStaysOpen)
{
    ASSERT_TRUE(m_set.OpenWrite());
    m_watcher.calls.clear();
    {
        const ImportPatch refuse("KERNEL32.dll", "CloseHandle", &RefuseToClose);
        m_set.Close();
    }

    EXPECT_TRUE(Get("a.dat")->IsOpen());
    EXPECT_THAT(m_watcher.calls, IsEmpty());
}

TEST_F(ScopedFilesTest, TheDestructorClosesWhatNobodyShares)
{
    const unsigned long before = OpenHandles();
    ASSERT_TRUE(m_set.LockFilesDenyWrite());
    const std::shared_ptr<File> shared = Get("b.dat");
    m_watcher.calls.clear();

    m_set = ScopedFiles(&m_watcher);

    EXPECT_THAT(m_watcher.calls, ElementsAre("close 0 a.dat", "close 0 c.dat"));
    EXPECT_TRUE(shared->IsOpen());
    EXPECT_EQ(OpenHandles(), before + 1);
}

// Kept: a copy refers to the same files.
TEST_F(ScopedFilesTest, CopiesShareTheFiles)
{
    {
        ScopedFiles copy(m_set);
        EXPECT_EQ(copy.GetFile(m_folder / "a.dat"), Get("a.dat"));
        ASSERT_TRUE(copy.OpenWrite());
        copy.Add(m_folder / "new.dat");
    }

    EXPECT_TRUE(Get("a.dat")->IsOpen()); // still in this set
    EXPECT_EQ(Get("new.dat"), nullptr);
    m_set.Close();
    EXPECT_TRUE(AllClosed());
}

TEST_F(ScopedFilesTest, AWatcherMayChangeTheSetWhileItIsTold)
{
    m_watcher.then = [this] {
        m_set.Remove(m_folder / "a.dat");
        m_set.Add(m_folder / ("later" + std::to_string(m_watcher.calls.size()) + ".dat"));
    };
    EXPECT_TRUE(m_set.LockFilesDenyWrite()) << LastErrorText("LockFilesDenyWrite");
    EXPECT_EQ(Get("a.dat"), nullptr);
    m_watcher.then = [this] { m_set.Remove(m_folder / "c.dat"); };

    m_set.Close();

    EXPECT_FALSE(Get("b.dat")->IsOpen());
    EXPECT_EQ(Get("c.dat"), nullptr);
    EXPECT_FALSE(Get("later1.dat")->IsOpen());
}
