#include <UtilsLib/system/HelperUtils.h>

#include <UtilsLib/platform/UniqueFileHandle.h>

#include <tests/support/ChildProcess.h>
#include <tests/support/ImportPatch.h>
#include <tests/support/OpenHandles.h>
#include <tests/support/TempFolder.h>

#include <shellapi.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <filesystem>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using TestSupport::ImportPatch;
using TestSupport::LastErrorText;
using UtilsLib::HelperUtils;
using namespace std::string_literals;

namespace
{

struct ShellCall
{
    SHFILEOPSTRUCTA operation;
    std::string list; // with both zero bytes at its end
};

std::vector<ShellCall> g_shellCalls;

int WINAPI RecordShellCall(SHFILEOPSTRUCTA* operation)
{
    const char* end = operation->pFrom;
    while (end[0] != '\0' || end[1] != '\0')
    {
        ++end;
    }
    g_shellCalls.push_back({*operation, std::string(operation->pFrom, end + 2)});
    return 0;
}

/// What is asked of the shell for a deletion, which does not take place.
std::vector<ShellCall> CallsOfDeleting(const std::string& path, bool permanently = true)
{
    const ImportPatch record("SHELL32.dll", "SHFileOperationA", &RecordShellCall);
    g_shellCalls.clear();
    HelperUtils::DeleteDirectory(path, permanently);
    return g_shellCalls;
}

/// Folders named "link" are junctions.
BOOL WINAPI FindNextWithJunctions(HANDLE search, WIN32_FIND_DATAW* entry)
{
    const BOOL found = FindNextFileW(search, entry);
    if (found && std::wcscmp(entry->cFileName, L"link") == 0)
    {
        entry->dwFileAttributes |= FILE_ATTRIBUTE_REPARSE_POINT;
    }
    return found;
}

/// New memory is full of letters.
void* AllocateUsed(std::size_t size)
{
    void* const memory = std::malloc(size);
    return memory == nullptr ? nullptr : std::memset(memory, 'x', size);
}

int WINAPI ReportSuccess(SHFILEOPSTRUCTA*)
{
    return 0;
}

int WINAPI DeleteAndReportFailure(SHFILEOPSTRUCTA* operation)
{
    RemoveDirectoryA(operation->pFrom);
    operation->fAnyOperationsAborted = TRUE;
    return ERROR_ACCESS_DENIED;
}

int WINAPI ReplaceByAFile(SHFILEOPSTRUCTA* operation)
{
    RemoveDirectoryA(operation->pFrom);
    const UtilsLib::Platform::UniqueFileHandle file(
        CreateFileA(operation->pFrom, GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr));
    return file ? 0 : 1;
}

/// Another current directory until scope end.
class CurrentDirectory
{
public:
    explicit CurrentDirectory(const std::string& path)
    {
        GetCurrentDirectoryA(MAX_PATH, m_before);
        EXPECT_TRUE(SetCurrentDirectoryA(path.c_str())) << LastErrorText(path);
    }
    ~CurrentDirectory()
    {
        SetCurrentDirectoryA(m_before);
    }
    CurrentDirectory(const CurrentDirectory&) = delete;
    CurrentDirectory& operator=(const CurrentDirectory&) = delete;

private:
    char m_before[MAX_PATH] = "";
};

/// Folders in folders below `top`, until scope end, the deepest path with `length` characters.
class DeepFolder
{
public:
    DeepFolder(const std::string& top, std::size_t length)
    {
        constexpr std::size_t kNameLength = 50;
        std::wstring path = L"\\\\?\\" + std::filesystem::path(top).wstring();
        const std::size_t end = length + 4; // without the prefix
        while (path.size() < end)
        {
            const std::size_t rest = end - path.size() - 1;
            path += L"\\" + std::wstring(rest > kNameLength + 1 ? kNameLength : rest, L'd');
            EXPECT_TRUE(CreateDirectoryW(path.c_str(), nullptr)) << LastErrorText("CreateDirectoryW");
            m_paths.push_back(path);
        }
        EXPECT_EQ(path.size(), end);
    }
    ~DeepFolder()
    {
        for (auto path = m_paths.rbegin(); path != m_paths.rend(); ++path)
        {
            RemoveDirectoryW(path->c_str());
        }
    }
    DeepFolder(const DeepFolder&) = delete;
    DeepFolder& operator=(const DeepFolder&) = delete;

private:
    std::vector<std::wstring> m_paths;
};

class DeleteDirectoryTest : public testing::Test
{
protected:
    DeleteDirectoryTest()
    {
        m_root.Write("victim\\a.txt", "1");
        m_root.Write("victim\\sub\\deep\\b.txt", "2");
        m_root.MakeFolder("victim\\empty");
        m_root.Write("victim2\\c.txt", "3");
    }

    const TestSupport::TempFolder m_root;
    const std::string m_victim = m_root / "victim";
};

} // namespace

TEST_F(DeleteDirectoryTest, AFolderGoesWithAllThatIsInIt)
{
    EXPECT_TRUE(HelperUtils::DeleteDirectory(m_victim, true));

    EXPECT_THAT(m_root.Tree(), ElementsAre("victim2\\", "victim2\\c.txt"));
}

TEST_F(DeleteDirectoryTest, ReadOnlyAndHiddenFilesGoToo)
{
    ASSERT_TRUE(SetFileAttributesA((m_victim + "\\a.txt").c_str(), FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN));
    ASSERT_TRUE(SetFileAttributesA((m_victim + "\\sub").c_str(), FILE_ATTRIBUTE_READONLY));

    EXPECT_TRUE(HelperUtils::DeleteDirectory(m_victim, true));
    EXPECT_FALSE(m_root.Exists("victim"));
}

TEST_F(DeleteDirectoryTest, AFolderWithAnOpenFileStays)
{
    const UtilsLib::Platform::UniqueFileHandle open(CreateFileA((m_victim + "\\sub\\deep\\b.txt").c_str(), GENERIC_READ,
                                                                FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
    ASSERT_TRUE(open) << LastErrorText("CreateFileA");

    EXPECT_FALSE(HelperUtils::DeleteDirectory(m_victim, true));
    EXPECT_TRUE(m_root.Exists("victim\\sub\\deep\\b.txt"));
}

TEST_F(DeleteDirectoryTest, AFolderThatAnotherProcessUsesStays)
{
    TestSupport::ChildProcess holder("child_hold_file", "\"" + m_victim + "\\a.txt\" 2147483648 0");
    ASSERT_TRUE(holder.WaitUntilReady());

    EXPECT_FALSE(HelperUtils::DeleteDirectory(m_victim, true));
    EXPECT_TRUE(m_root.Exists("victim\\a.txt"));

    holder.LetGo();
    ASSERT_TRUE(holder.WaitForExit());
    EXPECT_TRUE(HelperUtils::DeleteDirectory(m_victim, true));
}

TEST_F(DeleteDirectoryTest, WhatWasNoFolderBeforeIsNoneAfterwards)
{
    EXPECT_TRUE(HelperUtils::DeleteDirectory(m_root / "missing", true));
    EXPECT_TRUE(HelperUtils::DeleteDirectory(m_root / "missing\\below", true));
    EXPECT_TRUE(HelperUtils::DeleteDirectory("", true));
}

TEST_F(DeleteDirectoryTest, AnEmptyPathDeletesNothing)
{
    const CurrentDirectory here(m_victim);
    const auto tree = m_root.Tree();

    EXPECT_TRUE(HelperUtils::DeleteDirectory("", true));

    EXPECT_EQ(m_root.Tree(), tree);
    EXPECT_THAT(CallsOfDeleting(""), IsEmpty());
}

TEST_F(DeleteDirectoryTest, ARelativePathStartsAtTheCurrentDirectory)
{
    const CurrentDirectory here(m_victim);

    EXPECT_TRUE(HelperUtils::DeleteDirectory("sub", true));

    EXPECT_THAT(m_root.Tree("victim"), ElementsAre("a.txt", "empty\\"));
}

TEST_F(DeleteDirectoryTest, ASeparatorAtTheEndMakesNoDifference)
{
    EXPECT_TRUE(HelperUtils::DeleteDirectory(m_victim + "\\", true));

    EXPECT_THAT(m_root.Tree(), ElementsAre("victim2\\", "victim2\\c.txt"));
}

TEST_F(DeleteDirectoryTest, WildcardsNameNoFolder)
{
    const auto tree = m_root.Tree();

    for (const std::string& path : {m_root / "*", m_root / "victim*", m_root / "victim?", m_root / "v*m\\sub",
                                    m_victim + "\\*.*", "\\\\?\\" + m_victim})
    {
        EXPECT_THAT(CallsOfDeleting(path), IsEmpty()) << path;
        EXPECT_EQ(HelperUtils::DeleteDirectory(path, true), !HelperUtils::DirectoryExists(path)) << path;
    }

    EXPECT_EQ(m_root.Tree(), tree);
}

TEST_F(DeleteDirectoryTest, AFileIsDeletedLikeAFolder)
{
    EXPECT_TRUE(HelperUtils::DeleteDirectory(m_victim + "\\a.txt", true));

    EXPECT_THAT(m_root.Tree("victim"), ElementsAre("empty\\", "sub\\", "sub\\deep\\", "sub\\deep\\b.txt"));
}

TEST_F(DeleteDirectoryTest, AnOpenFileStaysAndIsNoFolder)
{
    const UtilsLib::Platform::UniqueFileHandle open(
        CreateFileA((m_victim + "\\a.txt").c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
    ASSERT_TRUE(open) << LastErrorText("CreateFileA");

    EXPECT_TRUE(HelperUtils::DeleteDirectory(m_victim + "\\a.txt", true));
    EXPECT_TRUE(m_root.Exists("victim\\a.txt"));
}

TEST_F(DeleteDirectoryTest, OnlyWhatIsThereAfterwardsCounts)
{
    m_root.MakeFolder("bare");
    {
        const ImportPatch idle("SHELL32.dll", "SHFileOperationA", &ReportSuccess);
        EXPECT_FALSE(HelperUtils::DeleteDirectory(m_victim, true));
    }
    {
        const ImportPatch liar("SHELL32.dll", "SHFileOperationA", &DeleteAndReportFailure);
        EXPECT_TRUE(HelperUtils::DeleteDirectory(m_root / "bare", true));
    }
    m_root.MakeFolder("bare");
    const ImportPatch replaces("SHELL32.dll", "SHFileOperationA", &ReplaceByAFile);
    EXPECT_TRUE(HelperUtils::DeleteDirectory(m_root / "bare", true));
    EXPECT_TRUE(m_root.Exists("bare"));
}

TEST_F(DeleteDirectoryTest, TheShellIsAskedToDeleteSilentlyAndWithoutQuestions)
{
    const std::vector<ShellCall> calls = CallsOfDeleting(m_victim, true);

    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].operation.wFunc, static_cast<UINT>(FO_DELETE));
    EXPECT_EQ(calls[0].operation.fFlags, FOF_SILENT | FOF_NOCONFIRMATION);
    EXPECT_EQ(calls[0].operation.hwnd, nullptr);
    EXPECT_EQ(calls[0].operation.pTo, nullptr);
    EXPECT_EQ(calls[0].list, m_victim + "\0\0"s);
}

TEST_F(DeleteDirectoryTest, UndoIsAllowedUnlessTheDeletionIsPermanent)
{
    const std::vector<ShellCall> calls = CallsOfDeleting(m_victim, false);

    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].operation.wFunc, static_cast<UINT>(FO_DELETE));
    EXPECT_EQ(calls[0].operation.fFlags, FOF_SILENT | FOF_NOCONFIRMATION | FOF_ALLOWUNDO);
    EXPECT_EQ(calls[0].list, m_victim + "\0\0"s);
}

TEST_F(DeleteDirectoryTest, TheListOfPathsEndsWithTwoZeroBytesWhateverTheMemoryHeld)
{
    const ImportPatch used("msvcrt.dll", "malloc", &AllocateUsed, "libstdc++-6.dll");
    for (std::size_t length = 1; length < 80; ++length)
    {
        const std::string path = m_victim + "\\" + std::string(length, 'p');
        const std::vector<ShellCall> calls = CallsOfDeleting(path);
        ASSERT_EQ(calls.size(), 1u);
        EXPECT_EQ(calls[0].list, path + "\0\0"s);
    }
}

TEST_F(DeleteDirectoryTest, APathEndsAtItsFirstZeroByte)
{
    const std::string two = m_victim + '\0' + (m_root / "victim2");

    const std::vector<ShellCall> calls = CallsOfDeleting(two);
    EXPECT_TRUE(HelperUtils::DeleteDirectory(two, true));

    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].list, m_victim + "\0\0"s);
    EXPECT_THAT(m_root.Tree(), ElementsAre("victim2\\", "victim2\\c.txt"));
}

TEST_F(DeleteDirectoryTest, APathOf259CharactersIsDeleted)
{
    const std::string parent = m_root / std::string(100, 'l');
    const std::string path = parent + "\\" + std::string(MAX_PATH - 1 - parent.size() - 1, 'm');
    ASSERT_EQ(path.size(), 259u);
    std::filesystem::create_directories(path);
    ASSERT_TRUE(HelperUtils::DirectoryExists(path));

    EXPECT_TRUE(HelperUtils::DeleteDirectory(path, true));
    EXPECT_FALSE(HelperUtils::DirectoryExists(path));
}

TEST_F(DeleteDirectoryTest, TheShellIsNotGivenALongerPath)
{
    for (const std::size_t length : {260u, 261u, 1000u, 40'000u})
    {
        const std::string path = m_victim + "\\" + std::string(length - m_victim.size() - 1, 'x');
        ASSERT_EQ(path.size(), length);
        EXPECT_THAT(CallsOfDeleting(path), IsEmpty()) << length;
    }

    const CurrentDirectory here(m_victim);
    EXPECT_THAT(CallsOfDeleting(std::string(259, 'x')), IsEmpty());
}

TEST_F(DeleteDirectoryTest, TheShellIsNotGivenAFolderWithALongerPathInIt)
{
    const DeepFolder exact(m_victim, 259);
    EXPECT_THAT(CallsOfDeleting(m_victim), SizeIs(1));
    {
        const DeepFolder longer(m_victim + "\\sub", 260);
        EXPECT_THAT(CallsOfDeleting(m_victim), IsEmpty());
        EXPECT_THAT(CallsOfDeleting(m_victim, false), IsEmpty());
    }
    EXPECT_THAT(CallsOfDeleting(m_victim), SizeIs(1));
}

TEST_F(DeleteDirectoryTest, ASeparatorAtTheEndOfThePathMakesNoPathInItLonger)
{
    const DeepFolder exact(m_victim, 259);

    EXPECT_THAT(CallsOfDeleting(m_victim + "\\"), SizeIs(1));
    EXPECT_THAT(CallsOfDeleting(m_victim + "\\\\"), SizeIs(1));
}

TEST_F(DeleteDirectoryTest, WhatALinkLeadsToIsNotInTheFolder)
{
    const ImportPatch junctions("KERNEL32.dll", "FindNextFileW", &FindNextWithJunctions);
    m_root.MakeFolder("victim\\link");
    const DeepFolder elsewhere(m_victim + "\\link", 300);

    EXPECT_THAT(CallsOfDeleting(m_victim), SizeIs(1));
}

TEST_F(DeleteDirectoryTest, AFolderThatReachesDeeperThanTheShellStaysAndSoDoesTheCurrentDirectory)
{
    const CurrentDirectory here(m_root / "victim2"); // what a shell has deleted instead
    const DeepFolder deep(m_victim, 400);

    EXPECT_FALSE(HelperUtils::DeleteDirectory(m_victim, true));

    EXPECT_TRUE(m_root.Exists("victim\\a.txt"));
    EXPECT_TRUE(m_root.Exists("victim2\\c.txt"));
}

TEST_F(DeleteDirectoryTest, NamesOutsideTheCodePageAreDeletedToo)
{
    ASSERT_TRUE(CreateDirectoryW(std::filesystem::path(m_victim + "\\sub\\").append(L"\u65E5\u672C").c_str(), nullptr));

    EXPECT_TRUE(HelperUtils::DeleteDirectory(m_victim, true));
    EXPECT_FALSE(m_root.Exists("victim"));
}

TEST_F(DeleteDirectoryTest, NoHandleIsLeftOpen)
{
    HelperUtils::DeleteDirectory(m_victim, true); // the shell keeps a few from its first call on
    const unsigned long before = TestSupport::OpenHandles();

    HelperUtils::DeleteDirectory(m_root / "victim2", true);
    HelperUtils::DeleteDirectory(m_root / "missing", true);

    EXPECT_EQ(TestSupport::OpenHandles(), before);
}
