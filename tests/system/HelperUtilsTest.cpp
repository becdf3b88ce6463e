#include <UtilsLib/system/HelperUtils.h>

#include <UtilsLib/platform/UniqueRegKey.h>
#include <UtilsLib/text/StringUtils.h>

#include <tests/support/ChildProcess.h>
#include <tests/support/ImportPatch.h>
#include <tests/support/InCapitals.h>
#include <tests/support/OpenHandles.h>
#include <tests/support/ScopedMachineHive.h>
#include <tests/support/TempFolder.h>

#include <lm.h>

#include <gtest/gtest.h>

#include <algorithm>

using TestSupport::ImportPatch;
using TestSupport::InCapitals;
using TestSupport::TempFolder;
using UtilsLib::HelperUtils;
using namespace std::string_literals;

namespace
{

std::string Trimmed(std::string path)
{
    HelperUtils::TrimAccdata(path);
    return path;
}

std::string EnvironmentVariable(const char* name)
{
    char value[256] = "";
    GetEnvironmentVariableA(name, value, sizeof(value));
    return value;
}

/// Stores `text` as a function does that counts the terminator in neither way of telling.
template <typename Size>
BOOL Store(const std::string& text, char* buffer, Size room)
{
    if (text.size() >= room)
    {
        return FALSE;
    }
    std::copy_n(text.c_str(), text.size() + 1, buffer);
    return TRUE;
}

DWORD g_room = 0;

BOOL WINAPI NameOfFifteenLetters(char* buffer, DWORD* size)
{
    g_room = *size;
    const std::string name = "ABCDEFGHIJKLMNO";
    const BOOL stored = Store(name, buffer, *size);
    *size = static_cast<DWORD>(name.size());
    return stored;
}

BOOL WINAPI FailWithAPartialName(char* buffer, DWORD* size)
{
    Store("part", buffer, *size);
    return FALSE;
}

BOOL WINAPI UserOf259Letters(char* buffer, DWORD* size)
{
    g_room = *size;
    const std::string name(259, 'u');
    const BOOL stored = Store(name, buffer, *size);
    *size = static_cast<DWORD>(name.size() + 1);
    return stored;
}

std::string g_modulePath;

DWORD WINAPI LongModulePath(HMODULE, char* buffer, DWORD size)
{
    const std::size_t copied = std::min<std::size_t>(size, g_modulePath.size() + 1);
    std::copy_n(g_modulePath.c_str(), copied, buffer);
    if (copied == size)
    {
        buffer[size - 1] = '\0';
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return g_modulePath.size() < size ? static_cast<DWORD>(g_modulePath.size()) : size;
    }
    return static_cast<DWORD>(g_modulePath.size());
}

DWORD WINAPI NoModulePath(HMODULE, char*, DWORD)
{
    return 0;
}

std::string g_tempPath;

DWORD WINAPI GivenTempPath(DWORD size, char* buffer)
{
    const DWORD length = static_cast<DWORD>(g_tempPath.size());
    return Store(g_tempPath, buffer, size) ? length : length + 1;
}

DWORD WINAPI NoTempPath(DWORD, char*)
{
    return 0;
}

std::string g_debugText;
void* g_allocated = nullptr;
void* g_freed = nullptr;
DWORD g_language = 0;
DWORD g_flags = 0;

void WINAPI KeepDebugText(const char* text)
{
    g_debugText = text;
    SetLastError(1);
}

DWORD WINAPI WatchFormat(DWORD flags, const void* source, DWORD code, DWORD language, char* buffer, DWORD size,
                         va_list* arguments)
{
    g_flags = flags;
    g_language = language;
    const DWORD length = FormatMessageA(flags, source, code, language, buffer, size, arguments);
    g_allocated = *reinterpret_cast<void**>(buffer);
    return length;
}

HLOCAL WINAPI WatchFree(HLOCAL memory)
{
    g_freed = memory;
    return LocalFree(memory);
}

/// Enters an application into the uninstall list, or the list itself when there is no name.
void Install(const std::string& name)
{
    const std::string path =
        "SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall" + (name.empty() ? "" : "\\" + name);
    UtilsLib::Platform::UniqueRegKey key;
    ASSERT_EQ(
        RegCreateKeyExA(HKEY_LOCAL_MACHINE, path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, key.Put(), nullptr),
        ERROR_SUCCESS);
}

REGSAM g_registryAccess = 0;
HKEY g_registryRoot = nullptr;

LSTATUS WINAPI WatchOpening(HKEY root, const char* path, DWORD options, REGSAM access, HKEY* key)
{
    g_registryRoot = root;
    g_registryAccess = access;
    return RegOpenKeyExA(root, path, options, access, key);
}

LSTATUS WINAPI DenyOpening(HKEY, const char*, DWORD, REGSAM, HKEY*)
{
    return ERROR_ACCESS_DENIED;
}

} // namespace

TEST(HelperUtilsTest, TheMachineNameIsTheSystems)
{
    const std::string name = HelperUtils::GetLocalMachineName();

    EXPECT_NE(name, "");
    EXPECT_EQ(name, EnvironmentVariable("COMPUTERNAME"));
}

TEST(HelperUtilsTest, AMachineNameOfFifteenLettersFits)
{
    const ImportPatch longest("KERNEL32.dll", "GetComputerNameA", &NameOfFifteenLetters);

    EXPECT_EQ(HelperUtils::GetLocalMachineName(), "ABCDEFGHIJKLMNO");
    EXPECT_EQ(g_room, 16u);
}

TEST(HelperUtilsTest, TheMachineNameIsEmptyWhenItCannotBeRead)
{
    const ImportPatch fails("KERNEL32.dll", "GetComputerNameA", &FailWithAPartialName);

    EXPECT_EQ(HelperUtils::GetLocalMachineName(), "");
}

TEST(HelperUtilsTest, TheDomainIsThatOfTheWorkstationService)
{
    BYTE* buffer = nullptr;
    ASSERT_EQ(NetWkstaGetInfo(nullptr, 102, &buffer), static_cast<NET_API_STATUS>(NERR_Success));
    const std::wstring group = reinterpret_cast<const WKSTA_INFO_102*>(buffer)->wki102_langroup;
    NetApiBufferFree(buffer);

    EXPECT_NE(group, L"");
    EXPECT_EQ(HelperUtils::GetDomainName(), UtilsLib::StringUtils::FromUnicode(group));
}

TEST(HelperUtilsTest, TheUserNameIsTheCallingThreads)
{
    char expected[257] = "";
    DWORD size = sizeof(expected);
    ASSERT_TRUE(GetUserNameA(expected, &size));

    EXPECT_NE(HelperUtils::GetCurrentUserName(), "");
    EXPECT_EQ(HelperUtils::GetCurrentUserName(), std::string(expected, size - 1));
}

TEST(HelperUtilsTest, AUserNameOf259LettersFits)
{
    const ImportPatch longest("ADVAPI32.dll", "GetUserNameA", &UserOf259Letters);

    EXPECT_EQ(HelperUtils::GetCurrentUserName(), std::string(259, 'u'));
    EXPECT_EQ(g_room, 260u);
}

TEST(HelperUtilsTest, TheUserNameIsEmptyWhenItCannotBeRead)
{
    const ImportPatch fails("ADVAPI32.dll", "GetUserNameA", &FailWithAPartialName);

    EXPECT_EQ(HelperUtils::GetCurrentUserName(), "");
}

TEST(HelperUtilsTest, BinaryPathIsTheRunningProgram)
{
    EXPECT_EQ(HelperUtils::GetBinaryPath(), TestSupport::ProgramFolder() + "\\system_tests.exe");
}

TEST(HelperUtilsTest, BinaryPathIsWholeAtAnyLength)
{
    const ImportPatch lengthy("KERNEL32.dll", "GetModuleFileNameA", &LongModulePath);
    for (const std::size_t length : {1u, 258u, 259u, 260u, 261u, 519u, 520u, 521u, 32'766u})
    {
        g_modulePath = std::string(length, 'p');
        EXPECT_EQ(HelperUtils::GetBinaryPath(), g_modulePath);
    }
}

TEST(HelperUtilsTest, BinaryPathIsEmptyWhenItCannotBeRead)
{
    const ImportPatch fails("KERNEL32.dll", "GetModuleFileNameA", &NoModulePath);

    EXPECT_EQ(HelperUtils::GetBinaryPath(), "");
}

TEST(HelperUtilsTest, ModulePathIsThatOfTheLoadedModule)
{
    const std::string expected = TestSupport::ProgramFolder() + "\\UtilsLib.dll";

    EXPECT_EQ(HelperUtils::GetModulePath("UtilsLib.dll"), expected);
    EXPECT_EQ(HelperUtils::GetModulePath("UtilsLib"), expected);
    EXPECT_EQ(HelperUtils::GetModulePath("UTILSLIB.DLL"), expected);
}

TEST(HelperUtilsTest, ModulePathIsEmptyForAModuleThatIsNotLoaded)
{
    EXPECT_EQ(HelperUtils::GetModulePath("NotLoaded.dll"), "");
    EXPECT_EQ(HelperUtils::GetModulePath(""), "");
    EXPECT_EQ(HelperUtils::GetModulePath(std::string(100'000, 'x')), "");
}

TEST(HelperUtilsTest, AnApplicationIsInstalledWhenTheUninstallListHasItsKey)
{
    const TestSupport::ScopedMachineHive machine;
    EXPECT_FALSE(HelperUtils::GetApplicationInstalled("Ledger"));
    Install("Ledger");

    EXPECT_TRUE(HelperUtils::GetApplicationInstalled("Ledger"));
    EXPECT_TRUE(HelperUtils::GetApplicationInstalled("LEDGER"));
    EXPECT_FALSE(HelperUtils::GetApplicationInstalled("Ledger 2"));
    EXPECT_FALSE(HelperUtils::GetApplicationInstalled("Led"));
    EXPECT_FALSE(HelperUtils::GetApplicationInstalled(std::string(100'000, 'x')));
}

TEST(HelperUtilsTest, TheUninstallListItselfIsAnApplicationWithoutAName)
{
    const TestSupport::ScopedMachineHive machine;
    EXPECT_FALSE(HelperUtils::GetApplicationInstalled(""));
    Install("");

    EXPECT_TRUE(HelperUtils::GetApplicationInstalled(""));
}

TEST(HelperUtilsTest, TheUninstallListIsOpenedForReadingAndInNoOtherView)
{
    const ImportPatch watch("ADVAPI32.dll", "RegOpenKeyExA", &WatchOpening);

    EXPECT_TRUE(HelperUtils::GetApplicationInstalled(""));
    EXPECT_EQ(g_registryRoot, HKEY_LOCAL_MACHINE);
    EXPECT_EQ(g_registryAccess, static_cast<REGSAM>(KEY_READ));
}

TEST(HelperUtilsTest, AnApplicationWhoseKeyCannotBeReadIsNotInstalled)
{
    const ImportPatch denies("ADVAPI32.dll", "RegOpenKeyExA", &DenyOpening);

    EXPECT_FALSE(HelperUtils::GetApplicationInstalled(""));
}

TEST(HelperUtilsTest, AskingForAnApplicationLeavesNoKeyOpen)
{
    HelperUtils::GetApplicationInstalled("");
    const unsigned long before = TestSupport::OpenHandles();

    EXPECT_TRUE(HelperUtils::GetApplicationInstalled(""));
    EXPECT_FALSE(HelperUtils::GetApplicationInstalled("no such application"));

    EXPECT_EQ(TestSupport::OpenHandles(), before);
}

TEST(HelperUtilsTest, OnlyAFolderIsADirectory)
{
    const TempFolder folder;
    folder.MakeFolder("inner");
    folder.Write("file.txt", "1");

    EXPECT_TRUE(HelperUtils::DirectoryExists(folder / "inner"));
    EXPECT_TRUE(HelperUtils::DirectoryExists(folder / "inner\\"));
    EXPECT_FALSE(HelperUtils::DirectoryExists(folder / "file.txt"));
    EXPECT_FALSE(HelperUtils::DirectoryExists(folder / "missing"));
    EXPECT_FALSE(HelperUtils::DirectoryExists(folder / "no*pe"));
    EXPECT_FALSE(HelperUtils::DirectoryExists(""));
    EXPECT_FALSE(HelperUtils::DirectoryExists(std::string(100'000, 'x')));
}

TEST(HelperUtilsTest, AHiddenOrReadOnlyFolderIsADirectoryToo)
{
    const TempFolder folder;
    folder.MakeFolder("inner");
    ASSERT_TRUE(SetFileAttributesA((folder / "inner").c_str(), FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_READONLY));

    EXPECT_TRUE(HelperUtils::DirectoryExists(folder / "inner"));

    SetFileAttributesA((folder / "inner").c_str(), FILE_ATTRIBUTE_NORMAL);
}

TEST(HelperUtilsTest, AUnitTestRunHasBothFoldersInItsPath)
{
    EXPECT_TRUE(HelperUtils::IsUnitTestRun("C:\\Work\\TestResults\\run 1\\Out\\x.dll"));
    EXPECT_TRUE(HelperUtils::IsUnitTestRun("C:\\OUT\\TESTRESULTS\\x.dll"));
    EXPECT_TRUE(HelperUtils::IsUnitTestRun("\\testresults\\out\\"));
    EXPECT_FALSE(HelperUtils::IsUnitTestRun("C:\\Work\\TestResults\\x.dll"));
    EXPECT_FALSE(HelperUtils::IsUnitTestRun("C:\\Work\\Out\\x.dll"));
    EXPECT_FALSE(HelperUtils::IsUnitTestRun("C:\\Work\\MyTestResults\\Out\\x.dll"));
    EXPECT_FALSE(HelperUtils::IsUnitTestRun("C:\\Work\\TestResults2\\Out\\x.dll"));
    EXPECT_FALSE(HelperUtils::IsUnitTestRun("C:\\Work\\TestResults\\Output\\x.dll"));
    EXPECT_FALSE(HelperUtils::IsUnitTestRun("C:\\Work\\TestResults\\Out"));
    EXPECT_FALSE(HelperUtils::IsUnitTestRun("TestResults\\Out\\"));
    EXPECT_FALSE(HelperUtils::IsUnitTestRun("C:/TestResults/Out/"));
    EXPECT_FALSE(HelperUtils::IsUnitTestRun(""));
}

TEST(HelperUtilsTest, APathBelowTheTemporaryFolderIsTemporaryInAnyLetterCase)
{
    char folder[MAX_PATH + 1] = "";
    ASSERT_NE(GetTempPathA(sizeof(folder), folder), 0u);

    EXPECT_TRUE(HelperUtils::IsTemp(std::string(folder) + "x.txt"));
    EXPECT_TRUE(HelperUtils::IsTemp(InCapitals(std::string(folder) + "x.txt")));
    EXPECT_TRUE(HelperUtils::IsTemp("\\\\?\\"s + folder));
    EXPECT_FALSE(HelperUtils::IsTemp(std::string(folder).substr(0, std::string(folder).size() - 1)));
    EXPECT_FALSE(HelperUtils::IsTemp("C:\\Data\\x.txt"));
    EXPECT_FALSE(HelperUtils::IsTemp(""));
}

TEST(HelperUtilsTest, ATemporaryFolderMayHave260Characters)
{
    const ImportPatch given("KERNEL32.dll", "GetTempPathA", &GivenTempPath);
    g_tempPath = "C:\\" + std::string(256, 'T') + "\\";

    EXPECT_TRUE(HelperUtils::IsTemp(g_tempPath + "x"));
}

TEST(HelperUtilsTest, NothingIsTemporaryWhenTheSystemNamesNoFolder)
{
    {
        const ImportPatch fails("KERNEL32.dll", "GetTempPathA", &NoTempPath);
        EXPECT_FALSE(HelperUtils::IsTemp("C:\\Temp\\x"));
    }
    const ImportPatch given("KERNEL32.dll", "GetTempPathA", &GivenTempPath);
    g_tempPath = "C:\\" + std::string(257, 'T') + "\\";
    EXPECT_FALSE(HelperUtils::IsTemp(g_tempPath + "x"));
}

TEST(HelperUtilsTest, TheLastErrorMessageIsTheSystemsText)
{
    const ImportPatch debugger("KERNEL32.dll", "OutputDebugStringA", &KeepDebugText);
    char expected[512] = "";
    ASSERT_NE(FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, ERROR_FILE_NOT_FOUND,
                             0, expected, sizeof(expected), nullptr),
              0u);

    SetLastError(ERROR_FILE_NOT_FOUND);
    const std::string message = HelperUtils::GetLastErrorMessage();

    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(message, expected);
    EXPECT_EQ(g_debugText, message);
}

TEST(HelperUtilsTest, TheLastErrorMessageLeavesInsertsAlone)
{
    SetLastError(ERROR_BAD_EXE_FORMAT); // "%1 is not a valid Win32 application"

    EXPECT_NE(HelperUtils::GetLastErrorMessage().find("%1"), std::string::npos);
}

TEST(HelperUtilsTest, TheLastErrorMessageFreesTheSystemsBuffer)
{
    const ImportPatch format("KERNEL32.dll", "FormatMessageA", &WatchFormat);
    const ImportPatch free("KERNEL32.dll", "LocalFree", &WatchFree);

    SetLastError(ERROR_ACCESS_DENIED);
    HelperUtils::GetLastErrorMessage();

    EXPECT_NE(g_allocated, nullptr);
    EXPECT_EQ(g_freed, g_allocated);
    EXPECT_EQ(g_language, static_cast<DWORD>(LANG_SYSTEM_DEFAULT));
    EXPECT_EQ(g_flags, static_cast<DWORD>(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM |
                                          FORMAT_MESSAGE_IGNORE_INSERTS));
}

TEST(HelperUtilsTest, ACodeWithoutATextHasAnEmptyMessage)
{
    const ImportPatch debugger("KERNEL32.dll", "OutputDebugStringA", &KeepDebugText);
    g_debugText = "untouched";

    SetLastError(0xE0001234);

    EXPECT_EQ(HelperUtils::GetLastErrorMessage(), "");
    EXPECT_EQ(GetLastError(), 0xE0001234u);
    EXPECT_EQ(g_debugText, "untouched");
}

TEST(HelperUtilsTest, TrimAccdataRemovesTheFolderAtTheEnd)
{
    EXPECT_EQ(Trimmed("C:\\Firm\\accdata"), "C:\\Firm");
    EXPECT_EQ(Trimmed("\\accdata"), "");
    EXPECT_EQ(Trimmed("C:\\accdat\\accdata"), "C:\\accdat");
}

TEST(HelperUtilsTest, TrimAccdataIsStrict)
{
    for (const char* path :
         {"C:\\Firm\\ACCDATA", "C:\\Firm\\accdata\\", "C:\\accdata\\Firm\\accdata", "C:\\Firm\\accdata2",
          "C:\\accdata\\Firm", "C:\\Firm/accdata", "C:\\Firm\\xaccdata", "accdata", "", "\\accdat"})
    {
        EXPECT_EQ(Trimmed(path), path);
    }
}
