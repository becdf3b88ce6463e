#include <UtilsLib/files/Directory.h>

#include <UtilsLib/platform/UniqueFileHandle.h>

#include <tests/support/ChildProcess.h>
#include <tests/support/FieldsOf.h>
#include <tests/support/Gate.h>
#include <tests/support/ImportPatch.h>
#include <tests/support/OpenFile.h>
#include <tests/support/OpenHandles.h>
#include <tests/support/SampleCompany.h>
#include <tests/support/TempFolder.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;
using TestSupport::ChildProcess;
using TestSupport::ContentsOf;
using TestSupport::Eventually;
using TestSupport::FieldsOf;
using TestSupport::ImportPatch;
using TestSupport::kShareAll;
using TestSupport::LastErrorText;
using TestSupport::OpenHandles;
using TestSupport::RunChild;
using TestSupport::TempFolder;
using TestSupport::WriteSampleCompany;
using UtilsLib::Directory;
using UtilsLib::Platform::UniqueFileHandle;

namespace
{

constexpr bool kKeep = true;
constexpr bool kUndo = false;

UniqueFileHandle OpenToWrite(const std::string& path)
{
    return TestSupport::OpenFile(path, GENERIC_WRITE);
}

bool CanBeWritten(const std::string& path)
{
    return static_cast<bool>(OpenToWrite(path));
}

/// Whether a second process, too, is kept from writing the file.
bool OtherProcessCanWrite(const std::string& path)
{
    constexpr unsigned long kNotOpened = 3;
    ChildProcess child("child_hold_file",
                       "\"" + path + "\" " + std::to_string(GENERIC_WRITE) + " " + std::to_string(kShareAll));
    child.LetGo();
    return !child.WaitForExit() || child.ExitCode() != kNotOpened;
}

/// Makes a file or folder whose name, given in UTF-16, the code page cannot represent.
void WriteWide(const std::string& folder, const std::wstring& name)
{
    const std::wstring path = std::wstring(folder.begin(), folder.end()) + L"\\" + name;
    const UniqueFileHandle file(
        CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    ASSERT_TRUE(file) << LastErrorText("CreateFileW");
}

void MakeFolderWide(const std::string& folder, const std::wstring& name)
{
    const std::wstring path = std::wstring(folder.begin(), folder.end()) + L"\\" + name;
    ASSERT_TRUE(CreateDirectoryW(path.c_str(), nullptr)) << LastErrorText("CreateDirectoryW");
}

unsigned long AttributesOf(const std::string& path)
{
    return GetFileAttributesA(path.c_str());
}

/// A link to a folder, until scope end.
class FolderLink
{
public:
    /// `target` is relative to the link's folder. Where the system cannot make links, the object is false.
    FolderLink(const std::string& link, std::string target) : m_link(link)
    {
        CreateSymbolicLinkA(link.c_str(), target.c_str(), SYMBOLIC_LINK_FLAG_DIRECTORY);
        if (!*this)
        {
            // Wine says that it made one and did not: it knows the links of its host only.
            std::replace(target.begin(), target.end(), '\\', '/');
            RunOnHost("ln", "-s " + target + " " + Name());
        }
    }
    ~FolderLink()
    {
        if (*this && !RemoveDirectoryA(m_link.c_str()))
        {
            RunOnHost("rm", Name());
        }
    }
    FolderLink(const FolderLink&) = delete;
    FolderLink& operator=(const FolderLink&) = delete;

    explicit operator bool() const
    {
        return AttributesOf(m_link) != INVALID_FILE_ATTRIBUTES;
    }

private:
    std::string Name() const
    {
        return m_link.substr(m_link.rfind('\\') + 1);
    }

    void RunOnHost(const std::string& program, const std::string& arguments) const
    {
        const std::string folder = m_link.substr(0, m_link.rfind('\\'));
        const bool wanted = !*this;
        std::string line = program + " " + arguments;
        STARTUPINFOA startup = {};
        startup.cb = sizeof(startup);
        PROCESS_INFORMATION information = {};
        if (CreateProcessA(("\\\\?\\unix\\bin\\" + program).c_str(), line.data(), nullptr, nullptr, FALSE, 0, nullptr,
                           folder.c_str(), &startup, &information))
        {
            CloseHandle(information.hThread);
            CloseHandle(information.hProcess);
            static_cast<void>(Eventually([this, wanted] { return static_cast<bool>(*this) == wanted; }));
        }
    }

    std::string m_link;
};

struct Fields
{
    std::string sourceRoot;
    std::string relativeName;
    std::string destinationRoot;
    bool keep;
    bool recursive;
    std::vector<std::shared_ptr<Directory>> children;
    std::vector<std::string> files;
    std::vector<std::string> copiedFiles;
};

// What stand-ins of CopyFileA do; a test sets them.
struct CopyScript
{
    std::function<void(const std::string& source)> before;
    std::function<bool(const std::string& source)> fails;
    std::vector<std::string> sources;
};
CopyScript* g_script = nullptr;

BOOL WINAPI ScriptedCopy(const char* source, const char* destination, BOOL failIfExists)
{
    g_script->sources.emplace_back(source);
    if (g_script->before)
    {
        g_script->before(source);
    }
    if (g_script->fails && g_script->fails(source))
    {
        SetLastError(ERROR_DISK_FULL);
        return FALSE;
    }
    return CopyFileA(source, destination, failIfExists);
}

/// Lets a script watch and fail the copying of single files.
class ScriptedCopies
{
public:
    explicit ScriptedCopies(CopyScript& script)
    {
        g_script = &script;
        m_patch.emplace("KERNEL32.dll", "CopyFileA", &ScriptedCopy);
    }

private:
    std::optional<ImportPatch> m_patch;
};

/// The tests' folder: sources below "source", copies below "target".
class DirectoryTest : public testing::Test
{
protected:
    DirectoryTest()
    {
        m_root.MakeFolder("source");
        m_root.MakeFolder("target");
    }

    Directory Make(const std::string& name, bool keep) const
    {
        return {m_root / "source", name, m_root / "target", keep};
    }

    /// A small tree "data": two files, a sub-folder with a file and a sub-folder of its own.
    void WriteTree() const
    {
        m_root.Write("source\\data\\a.dat", "a");
        m_root.Write("source\\data\\b.dat", "bb");
        m_root.Write("source\\data\\sub\\c.dat", "ccc");
        m_root.Write("source\\data\\sub\\leaf\\d.dat", "dddd");
    }

    std::map<std::string, std::string> SourceTree() const
    {
        return ContentsOf(m_root / "source");
    }
    std::map<std::string, std::string> TargetTree() const
    {
        return ContentsOf(m_root / "target");
    }

    TempFolder m_root;
    unsigned long m_error = 99;
};

} // namespace

TEST_F(DirectoryTest, ConstructionTouchesNothing)
{
    WriteTree();

    const Directory directory = Make("data", kKeep);

    EXPECT_TRUE(directory.GetIsRecursive());
    EXPECT_THAT(directory.GetFiles(), IsEmpty());
    EXPECT_THAT(TargetTree(), IsEmpty());
}

TEST_F(DirectoryTest, TheFieldsStandInTheirOrderInChildrenToo)
{
    WriteTree();
    Directory directory = Make("data", kKeep);
    ASSERT_TRUE(directory.Execute(m_error));

    const Fields& fields = FieldsOf<Fields>(directory);
    EXPECT_EQ(fields.sourceRoot, m_root / "source");
    EXPECT_EQ(fields.relativeName, "data");
    EXPECT_EQ(fields.destinationRoot, m_root / "target");
    EXPECT_TRUE(fields.keep);
    EXPECT_TRUE(fields.recursive);
    EXPECT_THAT(fields.files, UnorderedElementsAre("a.dat", "b.dat"));
    EXPECT_THAT(fields.copiedFiles, ElementsAre(m_root / ("target\\data\\" + fields.files[0]),
                                                m_root / ("target\\data\\" + fields.files[1])));
    ASSERT_EQ(fields.children.size(), 1u);
    const Fields& child = FieldsOf<Fields>(*fields.children[0]);
    EXPECT_EQ(child.sourceRoot, m_root / "source\\data");
    EXPECT_EQ(child.relativeName, "sub");
    EXPECT_EQ(child.destinationRoot, m_root / "target\\data");
    EXPECT_TRUE(child.keep);
    EXPECT_TRUE(child.recursive);
    EXPECT_THAT(child.copiedFiles, ElementsAre(m_root / "target\\data\\sub\\c.dat"));
}

TEST_F(DirectoryTest, TheRecursiveFlagIsWhatWasSet)
{
    Directory directory = Make("data", kKeep);

    directory.SetIsRecursive(false);
    EXPECT_FALSE(directory.GetIsRecursive());
    directory.SetIsRecursive(true);
    EXPECT_TRUE(directory.GetIsRecursive());
}

TEST_F(DirectoryTest, EnumerateListsTheFilesOfTheFolderItselfInTheSystemsOrder)
{
    m_root.Write("source\\data\\zebra", "");
    m_root.Write("source\\data\\no.dots.dat", "");
    m_root.Write("source\\data\\Alpha.dat", "");
    m_root.Write("source\\data\\hidden", "");
    m_root.Write("source\\data\\sub\\c.dat", "");
    SetFileAttributesA((m_root / "source\\data\\hidden").c_str(), FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM);
    std::vector<std::string> order;
    WIN32_FIND_DATAA entry = {};
    const HANDLE search = FindFirstFileA((m_root / "source\\data\\*.*").c_str(), &entry);
    do
    {
        if ((entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0)
        {
            order.emplace_back(entry.cFileName);
        }
    } while (FindNextFileA(search, &entry));
    FindClose(search);
    Directory directory = Make("data", kKeep);

    directory.Enumerate(true);

    EXPECT_EQ(directory.GetFiles(), order);
    EXPECT_THAT(order, UnorderedElementsAre("zebra", "no.dots.dat", "Alpha.dat", "hidden"));
}

TEST_F(DirectoryTest, EnumerateAppends)
{
    m_root.Write("source\\data\\a.dat", "");
    Directory directory = Make("data", kKeep);

    directory.Enumerate(false);
    directory.Enumerate(false);

    EXPECT_THAT(directory.GetFiles(), ElementsAre("a.dat", "a.dat"));
}

TEST_F(DirectoryTest, EnumerateOfAMissingFolderLeavesTheListAsItIs)
{
    m_root.Write("source\\data\\a.dat", "");
    Directory directory = Make("data", kKeep);
    directory.Enumerate(false);
    DeleteFileA((m_root / "source\\data\\a.dat").c_str());
    RemoveDirectoryA((m_root / "source\\data").c_str());

    directory.Enumerate(true);

    EXPECT_THAT(directory.GetFiles(), ElementsAre("a.dat"));
}

TEST_F(DirectoryTest, ExecuteCopiesAWholeCompany)
{
    WriteSampleCompany(m_root, "source\\company");
    const auto before = SourceTree();
    Directory directory = Make("company", kKeep);

    ASSERT_TRUE(directory.Execute(m_error)) << m_error << LastErrorText(" Execute");

    EXPECT_EQ(m_error, 0u);
    EXPECT_EQ(TargetTree(), before);
    EXPECT_EQ(SourceTree(), before);
}

TEST_F(DirectoryTest, ExecuteWithoutTheRecursiveFlagIgnoresSubFolders)
{
    WriteTree();
    Directory directory = Make("data", kKeep);
    directory.SetIsRecursive(false);

    EXPECT_TRUE(directory.Execute(m_error));

    EXPECT_THAT(m_root.Tree("target"), ElementsAre("data\\", "data\\a.dat", "data\\b.dat"));
}

TEST_F(DirectoryTest, TheRelativeNameMayBeAPath)
{
    m_root.Write("source\\data\\sub\\c.dat", "ccc");
    m_root.MakeFolder("target\\data");
    {
        Directory directory = Make("data\\sub", kUndo);
        EXPECT_TRUE(directory.Execute(m_error));
        EXPECT_EQ(m_root.Read("target\\data\\sub\\c.dat"), "ccc");
    }
    EXPECT_THAT(m_root.Tree("target"), ElementsAre("data\\"));
}

TEST_F(DirectoryTest, ChildrenAreListedWithAllTheirSubFoldersWhateverTheParentsFlag)
{
    WriteTree();
    m_root.Write("target\\data\\sub\\seed.dat", "");
    {
        Directory directory = Make("data", kUndo);
        directory.SetIsRecursive(false);
        directory.Enumerate(true);
    }
    // Only the leaf's own undoing deletes the seed beside it.
    EXPECT_FALSE(m_root.Exists("target\\data\\sub\\seed.dat"));
}

TEST_F(DirectoryTest, AMissingSourceFolderBecomesAnEmptyFolder)
{
    Directory directory = Make("labels", kKeep);

    EXPECT_TRUE(directory.Execute(m_error));

    EXPECT_EQ(m_error, 0u);
    EXPECT_THAT(m_root.Tree("target"), ElementsAre("labels\\"));
}

TEST_F(DirectoryTest, AReadOnlySourceFileIsNormalAfterwardsAndSoIsItsCopy)
{
    m_root.Write("source\\data\\a.dat", "a");
    SetFileAttributesA((m_root / "source\\data\\a.dat").c_str(), FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN);
    Directory directory = Make("data", kKeep);

    EXPECT_TRUE(directory.Execute(m_error));

    constexpr DWORD kMarks = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN;
    EXPECT_EQ(AttributesOf(m_root / "source\\data\\a.dat") & kMarks, 0u);
    EXPECT_EQ(AttributesOf(m_root / "target\\data\\a.dat") & kMarks, 0u);
}

TEST_F(DirectoryTest, NamesOutsideTheCodePageAreLeftOut)
{
    m_root.Write("source\\data\\a.dat", "a");
    const std::string folder = m_root / "source\\data";
    WriteWide(folder, L"\u4E2D\u6587.txt");
    WriteWide(folder, L"half \u4E2D.txt");
    MakeFolderWide(folder, L"\u65E5\u672C");
    WriteWide(folder, L"\u65E5\u672C\\inside.txt");
    Directory directory = Make("data", kKeep);

    EXPECT_TRUE(directory.Execute(m_error));

    EXPECT_THAT(directory.GetFiles(), ElementsAre("a.dat"));
    EXPECT_THAT(m_root.Tree("target"), ElementsAre("data\\", "data\\a.dat"));
    EXPECT_TRUE(DeleteFileW((std::wstring(folder.begin(), folder.end()) + L"\\\u65E5\u672C\\inside.txt").c_str()));
}

TEST_F(DirectoryTest, ANameThatTheCodePageOnlyResemblesFailsTheCopyCleanly)
{
    m_root.MakeFolder("source\\data");
    WriteWide(m_root / "source\\data", L"\u0100l.txt"); // A with a macron: "Al.txt" in code page 1252
    Directory directory = Make("data", kUndo);
    directory.Enumerate(true);
    if (directory.GetFiles() != std::vector<std::string>{"Al.txt"})
    {
        GTEST_SKIP() << "this code page has the letter, or nothing like it";
    }

    EXPECT_FALSE(directory.Execute(m_error));

    EXPECT_EQ(m_error, 0u);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
    EXPECT_THAT(TargetTree(), IsEmpty());
}

// --- the lock

TEST_F(DirectoryTest, ExecuteFailsWithErrorZeroWhileASourceFileIsOpenForWriting)
{
    WriteTree();
    const UniqueFileHandle writer = OpenToWrite(m_root / "source\\data\\b.dat");
    ASSERT_TRUE(writer) << LastErrorText("CreateFileA");
    Directory directory = Make("data", kKeep);

    const bool copied = directory.Execute(m_error);
    const DWORD reason = GetLastError();

    EXPECT_FALSE(copied);
    EXPECT_EQ(m_error, 0u);
    EXPECT_EQ(reason, static_cast<DWORD>(ERROR_SHARING_VIOLATION));
    EXPECT_THAT(TargetTree(), IsEmpty());
    EXPECT_TRUE(CanBeWritten(m_root / "source\\data\\a.dat")) << "the files locked before it are free again";
}

TEST_F(DirectoryTest, ExecuteFailsWhileASecondProcessHoldsASourceFileForWriting)
{
    WriteTree();
    ChildProcess writer("child_hold_file", "\"" + (m_root / "source\\data\\sub\\c.dat") + "\" " +
                                               std::to_string(GENERIC_WRITE) + " " + std::to_string(kShareAll));
    ASSERT_TRUE(writer.WaitUntilReady());
    {
        Directory directory = Make("data", kUndo);

        EXPECT_FALSE(directory.Execute(m_error));

        EXPECT_EQ(m_error, 0u);
        EXPECT_THAT(m_root.Tree("target"), ElementsAre("data\\", "data\\a.dat", "data\\b.dat"));
        EXPECT_TRUE(CanBeWritten(m_root / "source\\data\\a.dat"));
    }
    EXPECT_THAT(TargetTree(), IsEmpty());
    writer.LetGo();
    EXPECT_TRUE(writer.WaitForExit());
}

TEST_F(DirectoryTest, AFailedCopyIsKeptIfSoAsked)
{
    WriteTree();
    const UniqueFileHandle writer = OpenToWrite(m_root / "source\\data\\sub\\c.dat");
    {
        Directory directory = Make("data", kKeep);
        EXPECT_FALSE(directory.Execute(m_error));
    }
    EXPECT_THAT(m_root.Tree("target"), ElementsAre("data\\", "data\\a.dat", "data\\b.dat"));
}

TEST_F(DirectoryTest, AllFilesAboveAFolderAreHeldAgainstWritersWhileItIsCopied)
{
    WriteTree();
    CopyScript script;
    bool watched = false;
    script.before = [&](const std::string& source) {
        if (source == m_root / "source\\data\\sub\\leaf\\d.dat")
        {
            watched = true;
            EXPECT_FALSE(OtherProcessCanWrite(m_root / "source\\data\\a.dat"));
            EXPECT_FALSE(CanBeWritten(m_root / "source\\data\\b.dat"));
            EXPECT_FALSE(CanBeWritten(m_root / "source\\data\\sub\\c.dat"));
            EXPECT_FALSE(CanBeWritten(m_root / "source\\data\\sub\\leaf\\d.dat"));
        }
    };
    const ScriptedCopies copies(script);
    Directory directory = Make("data", kUndo);

    EXPECT_TRUE(directory.Execute(m_error));

    EXPECT_TRUE(watched);
    for (const char* const file : {"a.dat", "b.dat", "sub\\c.dat", "sub\\leaf\\d.dat"})
    {
        EXPECT_TRUE(CanBeWritten(m_root / ("source\\data\\" + std::string(file)))) << file;
    }
}

TEST_F(DirectoryTest, TheFilesOfOneSubFolderAreFreeAgainWhenTheNextOneIsCopied)
{
    m_root.Write("source\\data\\one\\x.dat", "");
    m_root.Write("source\\data\\two\\x.dat", "");
    CopyScript script;
    script.before = [&](const std::string& source) {
        const bool first = script.sources.size() == 1;
        const bool isOne = source == m_root / "source\\data\\one\\x.dat";
        EXPECT_FALSE(CanBeWritten(source));
        EXPECT_EQ(CanBeWritten(m_root / (isOne ? "source\\data\\two\\x.dat" : "source\\data\\one\\x.dat")), true)
            << (first ? "not yet locked" : "no longer locked");
    };
    const ScriptedCopies copies(script);
    Directory directory = Make("data", kUndo);

    EXPECT_TRUE(directory.Execute(m_error));

    EXPECT_EQ(script.sources.size(), 2u);
}

TEST_F(DirectoryTest, ReadersOfTheSourceDoNotHinderTheCopy)
{
    m_root.Write("source\\data\\a.dat", "a");
    const UniqueFileHandle reader(CreateFileA((m_root / "source\\data\\a.dat").c_str(), GENERIC_READ, FILE_SHARE_READ,
                                              nullptr, OPEN_EXISTING, 0, nullptr));
    ASSERT_TRUE(reader);
    Directory directory = Make("data", kUndo);

    EXPECT_TRUE(directory.Execute(m_error));
}

// --- the destination

TEST_F(DirectoryTest, AnExistingDestinationFolderSucceedsWithError183)
{
    m_root.Write("source\\data\\a.dat", "new");
    m_root.Write("target\\data\\a.dat", "older and longer");
    m_root.Write("target\\data\\other.dat", "other");
    Directory directory = Make("data", kKeep);

    EXPECT_TRUE(directory.Execute(m_error));

    EXPECT_EQ(m_error, 183u);
    EXPECT_EQ(m_root.Read("target\\data\\a.dat"), "new");
    EXPECT_EQ(m_root.Read("target\\data\\other.dat"), "other");
}

TEST_F(DirectoryTest, EachFolderStartsWithErrorZero)
{
    m_root.MakeFolder("source\\data\\sub");
    m_root.MakeFolder("target\\data");
    Directory directory = Make("data", kKeep);

    EXPECT_TRUE(directory.Execute(m_error));

    EXPECT_EQ(m_error, 0u) << "the last folder made was new";
}

TEST_F(DirectoryTest, AMissingDestinationRootFailsWithItsError)
{
    WriteTree();
    Directory directory(m_root / "source", "data", m_root / "no such folder", kUndo);

    EXPECT_FALSE(directory.Execute(m_error));

    EXPECT_EQ(m_error, static_cast<unsigned long>(ERROR_PATH_NOT_FOUND));
    EXPECT_TRUE(CanBeWritten(m_root / "source\\data\\a.dat"));
    EXPECT_FALSE(m_root.Exists("no such folder"));
}

TEST_F(DirectoryTest, AFileInThePlaceOfTheDestinationFolderFailsTheCopyAndStays)
{
    m_root.Write("source\\data\\a.dat", "a");
    m_root.Write("target\\data", "a file");
    {
        Directory directory = Make("data", kUndo);

        EXPECT_FALSE(directory.Execute(m_error));

        EXPECT_NE(m_error, 0u);
        EXPECT_NE(m_error, 183u) << "that is the folder's; the file's copy failed";
    }
    EXPECT_EQ(m_root.Read("target\\data"), "a file");
}

TEST_F(DirectoryTest, ExecuteStopsAtTheFirstFileThatCannotBeCopied)
{
    WriteTree();
    CopyScript script;
    script.fails = [&](const std::string& source) { return source == m_root / "source\\data\\b.dat"; };
    const ScriptedCopies copies(script);
    {
        Directory directory = Make("data", kUndo);

        EXPECT_FALSE(directory.Execute(m_error));

        EXPECT_EQ(m_error, static_cast<unsigned long>(ERROR_DISK_FULL));
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_DISK_FULL));
        EXPECT_EQ(script.sources.back(), m_root / "source\\data\\b.dat");
        EXPECT_FALSE(m_root.Exists("target\\data\\sub"));
    }
    EXPECT_THAT(TargetTree(), IsEmpty());
}

TEST_F(DirectoryTest, ACopyToAFullDiskFailsWithItsErrorInASubFolderToo)
{
    WriteTree();
    const auto before = SourceTree();
    CopyScript script;
    script.fails = [&](const std::string& source) { return source == m_root / "source\\data\\sub\\leaf\\d.dat"; };
    const ScriptedCopies copies(script);
    {
        Directory directory = Make("data", kUndo);

        EXPECT_FALSE(directory.Execute(m_error));

        EXPECT_EQ(m_error, static_cast<unsigned long>(ERROR_DISK_FULL));
        EXPECT_EQ(m_root.Read("target\\data\\sub\\c.dat"), "ccc");
    }
    EXPECT_THAT(TargetTree(), IsEmpty());
    EXPECT_EQ(SourceTree(), before);
}

TEST_F(DirectoryTest, CopyingAFolderOntoItselfFailsAndHarmsNoFile)
{
    WriteTree();
    const auto before = SourceTree();
    {
        Directory directory(m_root / "source", "data", m_root / "source", kUndo);

        EXPECT_FALSE(directory.Execute(m_error));

        EXPECT_EQ(m_error, static_cast<unsigned long>(ERROR_SHARING_VIOLATION));
    }
    EXPECT_EQ(SourceTree(), before);
}

TEST_F(DirectoryTest, ADestinationInsideTheSourceGetsOneCopy)
{
    WriteTree();
    m_root.MakeFolder("source\\data\\backup");
    const auto before = SourceTree();
    {
        Directory directory(m_root / "source", "data", m_root / "source\\data\\backup", kUndo);

        EXPECT_TRUE(directory.Execute(m_error));

        EXPECT_EQ(m_root.Read("source\\data\\backup\\data\\sub\\leaf\\d.dat"), "dddd");
        EXPECT_FALSE(m_root.Exists("source\\data\\backup\\data\\backup\\data"));
    }
    EXPECT_EQ(SourceTree(), before);
}

TEST_F(DirectoryTest, EachFileIsLockedAndCopiedOnceAndNothingElseIsAskedOfTheSystem)
{
    for (int i = 0; i < 20; ++i)
    {
        m_root.Write("source\\data\\" + std::to_string(i) + ".dat", "x");
    }
    m_root.Write("source\\data\\sub\\leaf\\x.dat", "x");
    CopyScript script;
    const ScriptedCopies copies(script);
    static int asked = 0;
    struct Counted
    {
        static BOOL WINAPI SetAttributes(const char* path, DWORD attributes)
        {
            ++asked;
            return SetFileAttributesA(path, attributes);
        }
        static HANDLE WINAPI Create(const char* path, DWORD access, DWORD share, SECURITY_ATTRIBUTES* security,
                                    DWORD disposition, DWORD flags, HANDLE pattern)
        {
            ++asked;
            return CreateFileA(path, access, share, security, disposition, flags, pattern);
        }
    };
    const ImportPatch setAttributes("KERNEL32.dll", "SetFileAttributesA", &Counted::SetAttributes);
    const ImportPatch create("KERNEL32.dll", "CreateFileA", &Counted::Create);
    Directory directory = Make("data", kKeep);

    EXPECT_TRUE(directory.Execute(m_error));

    EXPECT_EQ(script.sources.size(), 21u);
    EXPECT_EQ(asked, 2 * 21);
}

// --- undoing

TEST_F(DirectoryTest, DestructionUndoesTheWholeCopyAndLeavesTheSource)
{
    WriteSampleCompany(m_root, "source\\company");
    m_root.Write("target\\bystander.txt", "stays");
    const auto before = SourceTree();
    {
        Directory directory = Make("company", kUndo);
        ASSERT_TRUE(directory.Execute(m_error));
        ASSERT_TRUE(m_root.Exists("target\\company\\reports\\sales\\monthly\\november.rpt"));
    }
    EXPECT_THAT(m_root.Tree("target"), ElementsAre("bystander.txt"));
    EXPECT_EQ(SourceTree(), before);
}

TEST_F(DirectoryTest, AKeptCopyStaysWithItsReportsAndSeed)
{
    m_root.Write("source\\accdata\\a.dat", "a");
    m_root.Write("source\\accdata\\images\\b.bmp", "b");
    m_root.Write("target\\seed.dat", "seed");
    {
        Directory directory = Make("accdata", kKeep);
        ASSERT_TRUE(directory.Execute(m_error));
        m_root.Write("target\\accdata\\errors.rpt", "report");
    }
    EXPECT_THAT(m_root.Tree("target"), ElementsAre("accdata\\", "accdata\\a.dat", "accdata\\errors.rpt",
                                                   "accdata\\images\\", "accdata\\images\\b.bmp", "seed.dat"));
}

TEST_F(DirectoryTest, CopiesThatBecameReadOnlyAreUndoneToo)
{
    WriteTree();
    {
        Directory directory = Make("data", kUndo);
        ASSERT_TRUE(directory.Execute(m_error));
        SetFileAttributesA((m_root / "target\\data\\sub\\c.dat").c_str(), FILE_ATTRIBUTE_READONLY);
        SetFileAttributesA((m_root / "target\\data\\a.dat").c_str(),
                           FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM);
    }
    EXPECT_THAT(TargetTree(), IsEmpty());
}

TEST_F(DirectoryTest, OtherFilesInTheDestinationFolderStayWithTheirFolder)
{
    WriteTree();
    {
        Directory directory = Make("data", kUndo);
        ASSERT_TRUE(directory.Execute(m_error));
        m_root.Write("target\\data\\sub\\other.dat", "other");
        m_root.Write("target\\data\\errors.rpt", "not of accdata");
    }
    EXPECT_THAT(m_root.Tree("target"),
                ElementsAre("data\\", "data\\errors.rpt", "data\\sub\\", "data\\sub\\other.dat"));
}

TEST_F(DirectoryTest, AFileThatTheCopyReplacedIsDeletedByTheUndo)
{
    m_root.Write("source\\data\\a.dat", "new");
    m_root.Write("target\\data\\a.dat", "old");
    m_root.Write("target\\data\\other.dat", "other");
    {
        Directory directory = Make("data", kUndo);
        EXPECT_TRUE(directory.Execute(m_error));
    }
    EXPECT_THAT(m_root.Tree("target"), ElementsAre("data\\", "data\\other.dat"));
}

TEST_F(DirectoryTest, TheReportsOfAccdataAreRemovedEvenIfTheyWereNotCopied)
{
    m_root.Write("source\\accdata\\a.dat", "a");
    {
        Directory directory = Make("accdata", kUndo);
        ASSERT_TRUE(directory.Execute(m_error));
        m_root.Write("target\\accdata\\errors.rpt", "1");
        m_root.Write("target\\accdata\\warnings.rpt", "2");
        m_root.Write("target\\accdata\\comments.rpt", "3");
        SetFileAttributesA((m_root / "target\\accdata\\comments.rpt").c_str(), FILE_ATTRIBUTE_READONLY);
        m_root.Write("target\\seed.dat", "4");
        SetFileAttributesA((m_root / "target\\seed.dat").c_str(), FILE_ATTRIBUTE_READONLY);
    }
    EXPECT_THAT(TargetTree(), IsEmpty());
}

TEST_F(DirectoryTest, OnlyTheExactNameAccdataLosesItsReports)
{
    for (const std::string name : {"AccData", "data", "accdata2", "x\\accdata"})
    {
        m_root.Write("target\\" + name + "\\errors.rpt", "1");
        {
            const Directory directory = Make(name, kUndo);
        }
        EXPECT_TRUE(m_root.Exists("target\\" + name + "\\errors.rpt")) << name;
    }
}

TEST_F(DirectoryTest, AnAccdataFurtherDownTheTreeLosesItsReportsToo)
{
    m_root.Write("source\\company\\accdata\\a.dat", "a");
    {
        Directory directory = Make("company", kUndo);
        ASSERT_TRUE(directory.Execute(m_error));
        m_root.Write("target\\company\\accdata\\warnings.rpt", "1");
    }
    EXPECT_THAT(TargetTree(), IsEmpty());
}

TEST_F(DirectoryTest, SeedIsRemovedFromTheDestinationRootOfEveryLevel)
{
    WriteTree();
    {
        Directory directory = Make("data", kUndo);
        ASSERT_TRUE(directory.Execute(m_error));
        m_root.Write("target\\seed.dat", "beside data");
        m_root.Write("target\\data\\seed.dat", "beside sub");
        m_root.Write("target\\data\\sub\\seed.dat", "beside leaf");
        m_root.Write("target\\data\\sub\\leaf\\seed.dat", "in the leaf: no level's root");
    }
    EXPECT_THAT(m_root.Tree("target"),
                ElementsAre("data\\", "data\\sub\\", "data\\sub\\leaf\\", "data\\sub\\leaf\\seed.dat"));
}

TEST_F(DirectoryTest, UndoingHappensEvenIfNothingWasExecuted)
{
    m_root.Write("target\\accdata\\errors.rpt", "1");
    m_root.Write("target\\seed.dat", "2");
    {
        const Directory directory = Make("accdata", kUndo);
    }
    EXPECT_THAT(TargetTree(), IsEmpty());
}

TEST_F(DirectoryTest, UndoingKeepsTheLastError)
{
    WriteTree();
    std::optional<Directory> directory(std::in_place, m_root / "source", "data", m_root / "target", kUndo);
    ASSERT_TRUE(directory->Execute(m_error));

    SetLastError(4711);
    directory.reset();

    EXPECT_EQ(GetLastError(), 4711u);
}

TEST_F(DirectoryTest, AFileOfTheCopyThatIsInUseIsLeftBehindWithoutHarm)
{
    WriteTree();
    UniqueFileHandle reader;
    {
        Directory directory = Make("data", kUndo);
        ASSERT_TRUE(directory.Execute(m_error));
        reader.Reset(CreateFileA((m_root / "target\\data\\sub\\c.dat").c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                 OPEN_EXISTING, 0, nullptr));
    }
    EXPECT_THAT(m_root.Tree("target"), ElementsAre("data\\", "data\\sub\\", "data\\sub\\c.dat"));
}

// --- copies of the object, repeated runs

TEST_F(DirectoryTest, CopiesShareTheirChildrenAndEachUndoesItsOwnLevel)
{
    WriteTree();
    auto first = std::make_unique<Directory>(m_root / "source", "data", m_root / "target", kUndo);
    ASSERT_TRUE(first->Execute(m_error));
    auto second = std::make_unique<Directory>(*first);
    EXPECT_EQ(second->GetFiles(), first->GetFiles());

    first.reset();
    EXPECT_THAT(m_root.Tree("target"), ElementsAre("data\\", "data\\sub\\", "data\\sub\\c.dat", "data\\sub\\leaf\\",
                                                   "data\\sub\\leaf\\d.dat"));

    m_root.Write("target\\data\\a.dat", "again");
    second.reset();
    EXPECT_THAT(TargetTree(), IsEmpty()) << "the copy had a list of its own";
}

TEST_F(DirectoryTest, AssignmentCopiesEveryMember)
{
    WriteTree();
    Directory source = Make("data", kKeep);
    source.SetIsRecursive(false);
    source.Enumerate(false);
    Directory assigned(m_root / "nowhere", "nothing", m_root / "nowhere", kKeep);

    assigned = source;

    EXPECT_FALSE(assigned.GetIsRecursive());
    EXPECT_THAT(assigned.GetFiles(), UnorderedElementsAre("a.dat", "b.dat"));
    EXPECT_TRUE(assigned.Execute(m_error));
    EXPECT_THAT(m_root.Tree("target"), ElementsAre("data\\", "data\\a.dat", "data\\b.dat"));
}

TEST_F(DirectoryTest, ASecondExecuteListsAnewAndCopiesAgain)
{
    WriteTree();
    Directory directory = Make("data", kKeep);
    directory.Enumerate(true);
    EXPECT_TRUE(directory.Execute(m_error));
    m_root.Write("source\\data\\a.dat", "changed");
    CopyScript script;
    const ScriptedCopies copies(script);

    EXPECT_TRUE(directory.Execute(m_error));

    EXPECT_THAT(directory.GetFiles(), UnorderedElementsAre("a.dat", "b.dat"));
    EXPECT_EQ(script.sources.size(), 4u);
    EXPECT_EQ(m_root.Read("target\\data\\a.dat"), "changed");
}

TEST_F(DirectoryTest, WhatOnlyAnEarlierExecuteCopiedIsUndoneToo)
{
    WriteTree();
    {
        Directory directory = Make("data", kUndo);
        EXPECT_TRUE(directory.Execute(m_error));
        DeleteFileA((m_root / "source\\data\\a.dat").c_str());
        DeleteFileA((m_root / "source\\data\\sub\\leaf\\d.dat").c_str());
        RemoveDirectoryA((m_root / "source\\data\\sub\\leaf").c_str());
        m_root.Write("source\\data\\sub\\e.dat", "e");
        m_root.Write("source\\data\\new\\f.dat", "f");

        EXPECT_TRUE(directory.Execute(m_error));

        EXPECT_TRUE(m_root.Exists("target\\data\\a.dat")) << "undone at the end, not in between";
        EXPECT_TRUE(m_root.Exists("target\\data\\sub\\leaf\\d.dat"));
        EXPECT_TRUE(m_root.Exists("target\\data\\new\\f.dat"));
    }
    EXPECT_THAT(TargetTree(), IsEmpty());
}

TEST_F(DirectoryTest, AFailedSecondExecuteLeavesTheFirstCopyUntilDestruction)
{
    WriteTree();
    {
        Directory directory = Make("data", kUndo);
        ASSERT_TRUE(directory.Execute(m_error));
        const UniqueFileHandle writer = OpenToWrite(m_root / "source\\data\\a.dat");

        EXPECT_FALSE(directory.Execute(m_error));

        EXPECT_EQ(ContentsOf(m_root / "target"), SourceTree());
    }
    EXPECT_THAT(TargetTree(), IsEmpty());
}

// --- handles, long paths, links

TEST_F(DirectoryTest, LeavesNoHandleBehind)
{
    WriteTree();
    {
        Directory warmUp = Make("data", kUndo);
        EXPECT_TRUE(warmUp.Execute(m_error));
    }
    const unsigned long before = OpenHandles();
    {
        Directory good = Make("data", kUndo);
        EXPECT_TRUE(good.Execute(m_error));
        EXPECT_EQ(OpenHandles(), before) << "not even before destruction";
        const UniqueFileHandle writer = OpenToWrite(m_root / "source\\data\\sub\\c.dat");
        Directory bad = Make("data", kUndo);
        EXPECT_FALSE(bad.Execute(m_error));
        Directory missing = Make("missing", kUndo);
        missing.Enumerate(true);
    }
    EXPECT_EQ(OpenHandles(), before);
}

TEST_F(DirectoryTest, FilePathsOf259CharactersAreCopiedAndUndone)
{
    const std::size_t longer = (m_root / "source\\data\\").size();
    const std::string name(259 - longer, 'n');
    ASSERT_TRUE(CanBeWritten((m_root.Write("source\\data\\a.dat", "long"), m_root / "source\\data\\a.dat")));
    ASSERT_TRUE(MoveFileA((m_root / "source\\data\\a.dat").c_str(), (m_root / ("source\\data\\" + name)).c_str()));
    {
        Directory directory = Make("data", kUndo); // "target" is as long as "source"
        EXPECT_TRUE(directory.Execute(m_error)) << m_error;
        EXPECT_TRUE(m_root.Exists("target\\data\\" + name));
    }
    EXPECT_THAT(m_root.Tree("target"), IsEmpty());
}

TEST_F(DirectoryTest, ADestinationPathOf260CharactersFailsWithError206AndLeavesNothing)
{
    const std::size_t fixed = (m_root / "target\\data\\").size();
    const std::string name(259 - fixed, 'n');
    m_root.Write("source\\data\\" + name, "long");
    m_root.MakeFolder("target1");
    const auto before = SourceTree();
    {
        Directory directory(m_root / "source", "data", m_root / "target1", kUndo);

        EXPECT_FALSE(directory.Execute(m_error));

        EXPECT_EQ(m_error, static_cast<unsigned long>(ERROR_FILENAME_EXCED_RANGE));
    }
    EXPECT_THAT(m_root.Tree("target1"), IsEmpty());
    EXPECT_EQ(SourceTree(), before);
}

TEST_F(DirectoryTest, ATreeAsDeepAsPathsReachIsCopiedAndUndone)
{
    std::string deep = "source\\data";
    while ((m_root / deep).size() < 235)
    {
        deep += "\\d";
    }
    m_root.Write(deep + "\\leaf.dat", "deep");
    {
        Directory directory = Make("data", kUndo);
        EXPECT_TRUE(directory.Execute(m_error)) << m_error;
        EXPECT_EQ(ContentsOf(m_root / "target"), SourceTree());
    }
    EXPECT_THAT(m_root.Tree("target"), IsEmpty());
}

TEST_F(DirectoryTest, LinksBackUpTheTreeAreLeftOut)
{
    WriteTree();
    const FolderLink loop(m_root / "source\\data\\sub\\loop", ".");
    const FolderLink again(m_root / "source\\data\\sub\\again", "..\\..\\data");
    if (!loop || !again)
    {
        GTEST_SKIP() << "this system makes no folder links";
    }
    Directory directory = Make("data", kKeep);

    EXPECT_TRUE(directory.Execute(m_error)); // two links: followed, this would not end

    EXPECT_THAT(m_root.Tree("target"), ElementsAre("data\\", "data\\a.dat", "data\\b.dat", "data\\sub\\",
                                                   "data\\sub\\c.dat", "data\\sub\\leaf\\", "data\\sub\\leaf\\d.dat"));
}

TEST_F(DirectoryTest, OtherLinksAreCopiedAsFolders)
{
    WriteTree();
    m_root.Write("elsewhere\\e.dat", "eeeee");
    const FolderLink link(m_root / "source\\data\\sub\\link", "..\\..\\..\\elsewhere");
    if (!link)
    {
        GTEST_SKIP() << "this system makes no folder links";
    }
    {
        Directory directory = Make("data", kUndo);

        EXPECT_TRUE(directory.Execute(m_error));

        EXPECT_EQ(m_root.Read("target\\data\\sub\\link\\e.dat"), "eeeee");
    }
    EXPECT_THAT(TargetTree(), IsEmpty());
    EXPECT_EQ(m_root.Read("elsewhere\\e.dat"), "eeeee");
}
