#include <UtilsLib/files/BatchFile.h>

#include <UtilsLib/WindowsTypes.h>

#include <tests/support/FieldsOf.h>
#include <tests/support/ImportPatch.h>
#include <tests/support/OpenHandles.h>
#include <tests/support/TempFolder.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <string>
#include <vector>

using testing::ElementsAre;
using testing::IsEmpty;
using TestSupport::FieldsOf;
using TestSupport::ImportPatch;
using TestSupport::OpenHandles;
using UtilsLib::BatchFile;

namespace
{

std::string TempFolderPath()
{
    char folder[MAX_PATH] = "";
    GetTempPathA(MAX_PATH, folder);
    return folder;
}

std::vector<std::string> g_started; // the files given to the shell
bool g_closed = false;              // nobody held the file when it was started

HINSTANCE WINAPI NoteStart(HWND owner, LPCSTR verb, LPCSTR file, LPCSTR parameters, LPCSTR folder, INT show)
{
    EXPECT_EQ(owner, nullptr);
    EXPECT_EQ(verb, nullptr);
    EXPECT_EQ(parameters, nullptr);
    EXPECT_EQ(folder, nullptr);
    EXPECT_EQ(show, 1);
    g_started.emplace_back(file);
    const HANDLE alone = CreateFileA(file, GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    g_closed = alone != INVALID_HANDLE_VALUE;
    CloseHandle(alone);
    return nullptr; // a failure, which nobody is told of
}

struct Fields
{
    std::string name;
    std::vector<std::string> lines;
    std::shared_ptr<UtilsLib::ScopedTempFile> file;
};

/// A name of the test's own, whose file is gone before and after; the shell is a stand-in.
class BatchFileTest : public testing::Test
{
protected:
    BatchFileTest()
    {
        g_started.clear();
        DeleteFileA(m_path.c_str());
    }
    ~BatchFileTest() override
    {
        DeleteFileA(m_path.c_str());
    }

    std::string Content() const
    {
        return TestSupport::ContentOf(m_path);
    }

    const std::string m_name = "utilslib_batch_test_" + std::to_string(GetCurrentProcessId()) + ".bat";
    const std::string m_path = TempFolderPath() + m_name;
    const ImportPatch m_shell{"SHELL32.dll", "ShellExecuteA", &NoteStart};
};

} // namespace

TEST_F(BatchFileTest, MakesTheFileAtOnceAndLeavesItBehind)
{
    const unsigned long before = OpenHandles();
    {
        BatchFile batch(m_name);
        EXPECT_NE(GetFileAttributesA(m_path.c_str()), INVALID_FILE_ATTRIBUTES);
        batch.PushOp("echo 1");
        EXPECT_EQ(Content(), "");
        EXPECT_EQ(OpenHandles(), before + 1);
    }

    EXPECT_EQ(OpenHandles(), before);
    EXPECT_NE(GetFileAttributesA(m_path.c_str()), INVALID_FILE_ATTRIBUTES);
    EXPECT_THAT(g_started, IsEmpty());
}

TEST_F(BatchFileTest, WritesEachLineWithAWindowsLineEndClosesAndStartsTheFile)
{
    BatchFile batch(m_name);
    batch.PushOp("echo 1");
    batch.PushOp("");
    batch.PushOp("echo 100%%");

    batch.Execute();

    EXPECT_EQ(Content(), "echo 1\r\n\r\necho 100%%\r\n");
    EXPECT_THAT(g_started, ElementsAre(TempFolderPath() + "\\" + m_name));
    EXPECT_TRUE(g_closed);
}

TEST_F(BatchFileTest, TheFieldsStandInTheirOrder)
{
    BatchFile batch(m_name);
    const BatchFile copy(batch);
    batch.PushOp("echo 1");

    const Fields& fields = FieldsOf<Fields>(batch);
    EXPECT_EQ(fields.name, "");
    EXPECT_THAT(fields.lines, ElementsAre("echo 1"));
    ASSERT_NE(fields.file, nullptr);
    EXPECT_EQ(fields.file->GetFilename(), TempFolderPath() + "\\" + m_name);
    EXPECT_EQ(FieldsOf<Fields>(copy).file, fields.file);
}

// Kept: the stored lines change and the closed file is started as it is.
TEST_F(BatchFileTest, ASecondExecuteWritesNothingAndStartsAgain)
{
    BatchFile batch(m_name);
    batch.PushOp("echo 1");
    batch.Execute();
    batch.PushOp("echo 2");

    batch.Execute();

    EXPECT_EQ(Content(), "echo 1\r\n");
    EXPECT_EQ(g_started.size(), 2u);
    EXPECT_THAT(FieldsOf<Fields>(batch).lines, ElementsAre("echo 1\r\n\r\n", "echo 2\r\n"));
}

TEST_F(BatchFileTest, ALongerOldFileKeepsItsTail)
{
    std::ofstream(m_path, std::ios::binary) << "an old line\r\nanother\r\n";
    BatchFile batch(m_name);
    batch.PushOp("new");

    batch.Execute();

    EXPECT_EQ(Content(), "new\r\nd line\r\nanother\r\n");
}

TEST_F(BatchFileTest, AnEmptyListStartsTheFileUnchanged)
{
    std::ofstream(m_path, std::ios::binary) << "old\r\n";
    BatchFile batch(m_name);

    batch.Execute();

    EXPECT_EQ(Content(), "old\r\n");
    EXPECT_EQ(g_started.size(), 1u);
}

TEST_F(BatchFileTest, ReadersAndWritersMayHaveTheFileOpenBeside)
{
    std::ofstream beside(m_path, std::ios::binary);
    beside << "old" << std::flush;
    BatchFile batch(m_name);
    EXPECT_EQ(Content(), "old");
    beside.close();
    batch.PushOp("new");

    batch.Execute();

    EXPECT_EQ(Content(), "new\r\n");
}

TEST_F(BatchFileTest, AFileThatCannotBeMadeIsHarmless)
{
    const unsigned long before = OpenHandles();
    {
        BatchFile batch("no folder\\a.bat");
        batch.PushOp("echo 1");
        batch.Execute();
        batch.Execute();
    }

    EXPECT_EQ(OpenHandles(), before);
    EXPECT_EQ(g_started.size(), 2u);
}

// Kept: copies share the one temporary file, but each has its own lines.
TEST_F(BatchFileTest, ACopySharesTheFile)
{
    BatchFile batch(m_name);
    batch.PushOp("echo 1");
    BatchFile copy(batch);
    copy.PushOp("echo 2");

    copy.Execute();
    batch.Execute();

    EXPECT_EQ(Content(), "echo 1\r\necho 2\r\n");
    EXPECT_EQ(g_started.size(), 2u);
}
