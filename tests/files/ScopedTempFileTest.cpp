#include <UtilsLib/files/ScopedTempFile.h>

#include <UtilsLib/platform/UniqueFileHandle.h>

#include <tests/support/ChildProcess.h>
#include <tests/support/FieldsOf.h>
#include <tests/support/ImportPatch.h>
#include <tests/support/OpenFile.h>
#include <tests/support/OpenHandles.h>
#include <tests/support/TempFolder.h>

#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <optional>

using TestSupport::ChildProcess;
using TestSupport::FieldsOf;
using TestSupport::ImportPatch;
using TestSupport::kShareAll;
using TestSupport::LastErrorText;
using TestSupport::OpenHandles;
using UtilsLib::ScopedTempFile;
using UtilsLib::Platform::UniqueFileHandle;

namespace
{

constexpr unsigned long kWrite = GENERIC_WRITE;

std::string TempFolderPath()
{
    char folder[MAX_PATH] = "";
    GetTempPathA(MAX_PATH, folder);
    return folder; // with a separator at its end
}

bool Exists(const std::string& path)
{
    return GetFileAttributesA(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

/// A name of the test's own, whose file is gone before and after.
class ScopedTempFileTest : public testing::Test
{
protected:
    ScopedTempFileTest()
    {
        DeleteFileA(m_path.c_str());
    }
    ~ScopedTempFileTest() override
    {
        DeleteFileA(m_path.c_str());
    }

    void WriteOld(const std::string& text) const
    {
        std::ofstream(m_path, std::ios::binary) << text;
    }
    std::string Content() const
    {
        return TestSupport::ContentOf(m_path);
    }

    const std::string m_name = "utilslib_temp_file_test_" + std::to_string(GetCurrentProcessId()) + ".dat";
    const std::string m_path = TempFolderPath() + m_name;
};

struct Fields
{
    HANDLE handle;
    std::string path;
    bool deleteFile;
};

void Write(ScopedTempFile& file, std::string text)
{
    file.Write(text.data(), static_cast<unsigned int>(text.size()));
}

DWORD WINAPI NoTempPath(DWORD, LPSTR)
{
    return 0;
}

DWORD g_length = 0;

/// As the system: a folder that does not fit is answered with the size that it needs.
DWORD WINAPI LongTempPath(DWORD size, LPSTR buffer)
{
    EXPECT_EQ(size, 260u);
    const std::string folder = "Z:\\" + std::string(g_length - 4, 'x') + "\\";
    if (folder.size() >= size)
    {
        return static_cast<DWORD>(folder.size() + 1);
    }
    folder.copy(buffer, folder.size());
    buffer[folder.size()] = '\0';
    return static_cast<DWORD>(folder.size());
}

} // namespace

// Kept: the temporary folder ends with a separator, and one more is put between.
TEST_F(ScopedTempFileTest, ThePathHasADoubledSeparatorBeforeTheName)
{
    ScopedTempFile file(m_name, kWrite, kShareAll);

    EXPECT_EQ(file.GetFilename(), TempFolderPath() + "\\" + m_name);
    EXPECT_TRUE(Exists(m_path));
}

TEST_F(ScopedTempFileTest, TheFieldsStandInTheirOrder)
{
    ScopedTempFile file(m_name, kWrite, kShareAll);
    const Fields& fields = FieldsOf<Fields>(file);
    LARGE_INTEGER size = {};
    EXPECT_TRUE(GetFileSizeEx(fields.handle, &size)) << LastErrorText("GetFileSizeEx");
    EXPECT_EQ(fields.path, file.GetFilename());
    EXPECT_TRUE(fields.deleteFile);

    file.SetDelete(false);
    file.Close();

    EXPECT_FALSE(fields.deleteFile);
    EXPECT_EQ(fields.handle, INVALID_HANDLE_VALUE);
}

TEST_F(ScopedTempFileTest, ANewFileHasNoMarks)
{
    const ScopedTempFile file(m_name, kWrite, kShareAll);

    constexpr DWORD kMarks = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM;
    EXPECT_EQ(GetFileAttributesA(m_path.c_str()) & kMarks, 0u);
}

TEST_F(ScopedTempFileTest, TheFileIsDeletedAtScopeEnd)
{
    const unsigned long before = OpenHandles();
    {
        const ScopedTempFile file(m_name, kWrite, kShareAll);
        EXPECT_TRUE(Exists(m_path));
        EXPECT_EQ(OpenHandles(), before + 1);
    }

    EXPECT_FALSE(Exists(m_path));
    EXPECT_EQ(OpenHandles(), before);
}

TEST_F(ScopedTempFileTest, TheFileIsDeletedAlsoWhenItDoesNotShareDeletion)
{
    {
        const ScopedTempFile file(m_name, kWrite, 0);
    }

    EXPECT_FALSE(Exists(m_path));
}

TEST_F(ScopedTempFileTest, SetDeleteKeepsTheFileOrNot)
{
    {
        ScopedTempFile file(m_name, kWrite, kShareAll);
        Write(file, "kept");
        file.SetDelete(false);
    }
    EXPECT_EQ(Content(), "kept");
    {
        ScopedTempFile file(m_name, kWrite, kShareAll);
        file.SetDelete(false);
        file.SetDelete(true);
    }
    EXPECT_FALSE(Exists(m_path));
}

TEST_F(ScopedTempFileTest, WritesOneAfterTheOtherAndKeepsTheTailOfAnOldFile)
{
    WriteOld("0123456789");
    ScopedTempFile file(m_name, kWrite, kShareAll);

    Write(file, "ab");
    Write(file, "");
    Write(file, std::string("c\0", 2));

    EXPECT_EQ(Content(), std::string("abc\0", 4) + "456789");
}

TEST_F(ScopedTempFileTest, ClosedItStaysOnDiskAndWritesNothingMore)
{
    const unsigned long before = OpenHandles();
    std::optional<ScopedTempFile> file(std::in_place, m_name, kWrite, 0ul);
    Write(*file, "ab");

    file->Close();
    file->Close();
    Write(*file, "cd");

    EXPECT_EQ(OpenHandles(), before);
    EXPECT_EQ(Content(), "ab");
    file.reset();
    EXPECT_FALSE(Exists(m_path));
}

TEST_F(ScopedTempFileTest, ClosedItLeavesOtherHandlesAlone)
{
    ScopedTempFile file(m_name, kWrite, 0);
    file.Close();
    const std::string other = m_path + ".other";
    const UniqueFileHandle reused(CreateFileA(other.c_str(), GENERIC_WRITE, kShareAll, nullptr, CREATE_ALWAYS,
                                              FILE_FLAG_DELETE_ON_CLOSE, nullptr)); // often of the same value

    Write(file, "not into the other");
    file.Close();

    LARGE_INTEGER size = {};
    EXPECT_TRUE(GetFileSizeEx(reused.Get(), &size)) << LastErrorText("GetFileSizeEx");
    EXPECT_EQ(size.QuadPart, 0);
}

TEST_F(ScopedTempFileTest, TheAccessAndTheShareMaskAreTheCallers)
{
    ScopedTempFile reader(m_name, GENERIC_READ, FILE_SHARE_READ);
    Write(reader, "refused");
    const auto open = [this](DWORD access) {
        return UniqueFileHandle(
            CreateFileA(m_path.c_str(), access, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
    };

    EXPECT_TRUE(open(GENERIC_READ));
    EXPECT_FALSE(open(GENERIC_WRITE));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_SHARING_VIOLATION});
    EXPECT_EQ(Content(), "");
}

TEST_F(ScopedTempFileTest, AFailedCreationIsHarmless)
{
    WriteOld("held");
    ChildProcess holder("child_hold_file", "\"" + m_path + "\" 2147483648 1"); // generic read, sharing reading
    ASSERT_TRUE(holder.WaitUntilReady());
    const unsigned long before = OpenHandles();
    {
        ScopedTempFile file(m_name, kWrite, kShareAll);
        EXPECT_EQ(GetLastError(), DWORD{ERROR_SHARING_VIOLATION});
        EXPECT_EQ(OpenHandles(), before);
        Write(file, "refused");
        file.Close();
        EXPECT_EQ(file.GetFilename(), TempFolderPath() + "\\" + m_name);
    }
    EXPECT_EQ(Content(), "held");
    for (const char* const name : {"", "no folder\\a.dat", "a*.dat"})
    {
        ScopedTempFile file(name, kWrite, kShareAll);
        Write(file, "nowhere");
    }
    EXPECT_EQ(OpenHandles(), before);
}

TEST_F(ScopedTempFileTest, ANullBufferIsHarmless)
{
    ScopedTempFile file(m_name, kWrite, kShareAll);

    file.Write(nullptr, 4);

    EXPECT_EQ(Content(), "");
}

TEST_F(ScopedTempFileTest, WithoutATemporaryFolderThePathIsASeparatorAndTheName)
{
    {
        const ImportPatch none("KERNEL32.dll", "GetTempPathA", &NoTempPath);
        EXPECT_EQ(ScopedTempFile("no folder\\a.dat", kWrite, kShareAll).GetFilename(), "\\no folder\\a.dat");
    }
    const ImportPatch tooLong("KERNEL32.dll", "GetTempPathA", &LongTempPath);
    g_length = 259;
    EXPECT_EQ(ScopedTempFile("no folder\\a.dat", kWrite, kShareAll).GetFilename(),
              "Z:\\" + std::string(255, 'x') + "\\\\no folder\\a.dat");
    for (const DWORD length : {260u, 261u, 500u})
    {
        g_length = length;
        EXPECT_EQ(ScopedTempFile("no folder\\a.dat", kWrite, kShareAll).GetFilename(), "\\no folder\\a.dat") << length;
    }
}

TEST_F(ScopedTempFileTest, PathsOf259CharactersWork)
{
    const std::string name(259 - TempFolderPath().size() - 1, 'y');
    {
        ScopedTempFile file(name, kWrite, kShareAll);
        EXPECT_EQ(file.GetFilename().size(), 259u);
        EXPECT_TRUE(Exists(file.GetFilename())) << LastErrorText("CreateFileA");
    }

    EXPECT_FALSE(Exists(TempFolderPath() + name));
}

TEST_F(ScopedTempFileTest, TheLastErrorSurvivesTheDestructor)
{
    {
        const ScopedTempFile file(m_name, kWrite, kShareAll);
        const ScopedTempFile copy(file); // its closing and deleting fail, which changes the last error
        SetLastError(ERROR_DISK_FULL);
    }

    EXPECT_EQ(GetLastError(), DWORD{ERROR_DISK_FULL});
}

// Kept: the copy is member by member, the handle is not duplicated.
TEST_F(ScopedTempFileTest, ACopySharesTheHandleAndEachDeletes)
{
    ScopedTempFile file(m_name, kWrite, kShareAll);
    {
        ScopedTempFile copy(file);
        EXPECT_EQ(copy.GetFilename(), file.GetFilename());
        Write(copy, "ab");
        Write(file, "cd");
        EXPECT_EQ(Content(), "abcd");
        ScopedTempFile assigned("other_" + m_name, kWrite, kShareAll);
        assigned.Close();
        assigned = copy;
        assigned.SetDelete(false);
        assigned.Close();
    }

    EXPECT_FALSE(Exists(m_path)); // the copy's doing
    Write(file, "dead handle");
    EXPECT_TRUE(DeleteFileA((TempFolderPath() + "other_" + m_name).c_str())) << LastErrorText("DeleteFileA");
}
