#include <UtilsLib/files/Paths.h>

#include <UtilsLib/system/HelperUtils.h>
#include <UtilsLib/text/StringUtils.h>

#include <tests/support/AllocationFault.h>
#include <tests/support/ImportPatch.h>
#include <tests/support/InCapitals.h>
#include <tests/support/TempFolder.h>

#include <gtest/gtest.h>

#include <objbase.h>

#include <clocale>
#include <new>
#include <regex>

using TestSupport::AllocationFault;
using TestSupport::ImportPatch;
using TestSupport::InCapitals;
using TestSupport::TempFolder;
using UtilsLib::HelperUtils;
using UtilsLib::Paths;
using UtilsLib::StringUtils;
using namespace std::string_literals;

namespace
{

constexpr GUID kProgramData = {0x62AB5D82, 0xFDC1, 0x4DC3, {0xA9, 0xDD, 0x07, 0x0D, 0x1D, 0x49, 0x5D, 0x97}};
constexpr GUID kNoFolder = {0x12345678, 0x1234, 0x1234, {1, 2, 3, 4, 5, 6, 7, 8}};

std::string Lowered(std::string text)
{
    StringUtils::ToLower(text);
    return text;
}

BOOL WINAPI FailToGetComputerName(char*, DWORD*)
{
    SetLastError(ERROR_BUFFER_OVERFLOW);
    return FALSE;
}

char* WINAPI CombineWithoutAnEnd(char* buffer, const char*, const char*)
{
    std::fill_n(buffer, MAX_PATH - 1, 'x'); // cut before a character of two bytes
    return buffer;
}

int g_frees = 0;
std::wstring g_folder;
GUID g_asked;

HRESULT WINAPI GiveFolder(const GUID& id, DWORD flags, HANDLE token, wchar_t** path)
{
    EXPECT_EQ(flags, 0u);
    EXPECT_EQ(token, nullptr);
    g_asked = id;
    *path = static_cast<wchar_t*>(CoTaskMemAlloc((g_folder.size() + 1) * sizeof(wchar_t)));
    std::copy_n(g_folder.c_str(), g_folder.size() + 1, *path);
    return S_OK;
}

void WINAPI CountFree(void* memory)
{
    g_frees += memory != nullptr;
    CoTaskMemFree(memory);
}

HRESULT WINAPI FailToGiveFolder(const GUID&, DWORD, HANDLE, wchar_t** path)
{
    *path = nullptr;
    return E_FAIL;
}

std::string g_made;

int WINAPI FailToMakeFolder(HWND, const char* path, const SECURITY_ATTRIBUTES*)
{
    g_made = path;
    return ERROR_ACCESS_DENIED;
}

} // namespace

TEST(PathsTest, GetPathIsTheLoweredPartBeforeTheLastSeparator)
{
    EXPECT_EQ(Paths::GetPath("C:\\Data\\File.TXT"), "c:\\data");
    EXPECT_EQ(Paths::GetPath("C:\\Data\\"), "c:\\data");
    EXPECT_EQ(Paths::GetPath("C:\\"), "c:");
    EXPECT_EQ(Paths::GetPath("\\X"), "");
    EXPECT_EQ(Paths::GetPath("File.TXT"), "");
    EXPECT_EQ(Paths::GetPath("C:/Data/File.TXT"), "");
    EXPECT_EQ(Paths::GetPath(""), "");
    EXPECT_EQ(Paths::GetPath("A\0B\\C"s), "a\0b"s);
}

TEST(PathsTest, GetDataPathIsTheLoweredPathWithoutItsLastTwoComponents)
{
    EXPECT_EQ(Paths::GetDataPath("C:\\Data\\Accdata\\File.TXT"), "c:\\data");
    EXPECT_EQ(Paths::GetDataPath("C:\\Data\\File.TXT"), "c:");
    EXPECT_EQ(Paths::GetDataPath("C:\\Data\\\\"), "c:\\data");
    EXPECT_EQ(Paths::GetDataPath("C:\\File.TXT"), "");
    EXPECT_EQ(Paths::GetDataPath("\\A\\B"), "");
    EXPECT_EQ(Paths::GetDataPath("File.TXT"), "");
    EXPECT_EQ(Paths::GetDataPath(""), "");
}

TEST(PathsTest, GetFilenameIsThePartBehindTheLastSeparatorAsWritten)
{
    EXPECT_EQ(Paths::GetFilename("C:\\Data\\File.TXT"), "File.TXT");
    EXPECT_EQ(Paths::GetFilename("File.TXT"), "File.TXT");
    EXPECT_EQ(Paths::GetFilename("C:/Data/File.TXT"), "C:/Data/File.TXT");
    EXPECT_EQ(Paths::GetFilename("\\File.TXT"), "File.TXT");
    EXPECT_EQ(Paths::GetFilename("C:\\Data\\"), "");
    EXPECT_EQ(Paths::GetFilename(""), "");
}

TEST(PathsTest, CombinePathsJoinsByExactlyOneSeparator)
{
    EXPECT_EQ(Paths::CombinePaths("c:\\a", "b"), "c:\\a\\b");
    EXPECT_EQ(Paths::CombinePaths("c:\\a\\\\\\", "\\\\b\\c"), "c:\\a\\b\\c");
    EXPECT_EQ(Paths::CombinePaths("c:\\A", "B.Txt"), "c:\\A\\B.Txt");
    EXPECT_EQ(Paths::CombinePaths("\\\\server\\share\\", "\\x"), "\\\\server\\share\\x");
    EXPECT_EQ(Paths::CombinePaths("a", "b"), "a\\b");
    EXPECT_EQ(Paths::CombinePaths("\\", "x"), "\\x");
    EXPECT_EQ(Paths::CombinePaths("c:\\a", "b\\"), "c:\\a\\b\\");
}

TEST(PathsTest, CombinePathsReturnsTheOtherPathAsItIsWhenOneIsEmpty)
{
    EXPECT_EQ(Paths::CombinePaths("", "\\\\b\\..\\c\\"), "\\\\b\\..\\c\\");
    EXPECT_EQ(Paths::CombinePaths("c:\\a\\..\\b\\\\", ""), "c:\\a\\..\\b\\\\");
    EXPECT_EQ(Paths::CombinePaths("", ""), "");
    EXPECT_EQ(Paths::CombinePaths("", std::string(1000, 'a')), std::string(1000, 'a'));
}

TEST(PathsTest, CombinePathsResolvesDots)
{
    EXPECT_EQ(Paths::CombinePaths("c:\\a\\b", "..\\.\\c"), "c:\\a\\c");
    EXPECT_EQ(Paths::CombinePaths("c:\\a\\..\\b", "c"), "c:\\b\\c");
    EXPECT_EQ(Paths::CombinePaths("c:\\", "..\\..\\x"), "c:\\x");
}

TEST(PathsTest, CombinePathsLeavesTheFirstOutWhenTheSecondHasADrive)
{
    EXPECT_EQ(Paths::CombinePaths("c:\\a", "d:\\b"), "d:\\b");
}

TEST(PathsTest, CombinePathsOfASecondOfSeparatorsOnlyIsTheFirstWithOne)
{
    EXPECT_EQ(Paths::CombinePaths("c:\\a", "\\\\"), "c:\\a\\");
}

TEST(PathsTest, CombinePathsGivesUpTo259CharactersAndNothingBeyond)
{
    EXPECT_EQ(Paths::CombinePaths("c:\\", std::string(256, 'n')), "c:\\" + std::string(256, 'n'));
    EXPECT_EQ(Paths::CombinePaths("c:\\", std::string(257, 'n')), "");
    EXPECT_EQ(Paths::CombinePaths(std::string(257, 'n'), "x"), std::string(257, 'n') + "\\x");
    EXPECT_EQ(Paths::CombinePaths(std::string(258, 'n'), "x"), "");
    EXPECT_EQ(Paths::CombinePaths(std::string(100'000, 'n'), "x"), "");
    EXPECT_EQ(Paths::CombinePaths("x", std::string(100'000, 'n')), "");
}

TEST(PathsTest, CombinePathsGivesNothingWhenTheShellsAnswerHasNoEnd)
{
    const ImportPatch overlong("SHLWAPI.dll", "PathCombineA", &CombineWithoutAnEnd);

    EXPECT_EQ(Paths::CombinePaths("c:\\a", "b"), "");
}

TEST(PathsTest, RemoveLastBackslashAndToLowerRemovesOneOnly)
{
    EXPECT_EQ(Paths::RemoveLastBackslashAndToLower("C:\\Data\\"), "c:\\data");
    EXPECT_EQ(Paths::RemoveLastBackslashAndToLower("C:\\Data\\\\"), "c:\\data\\");
    EXPECT_EQ(Paths::RemoveLastBackslashAndToLower("C:\\Data"), "c:\\data");
    EXPECT_EQ(Paths::RemoveLastBackslashAndToLower("C:/Data/"), "c:/data/");
    EXPECT_EQ(Paths::RemoveLastBackslashAndToLower("\\"), "");
    EXPECT_EQ(Paths::RemoveLastBackslashAndToLower(""), "");
}

TEST(PathsTest, StripAccdataCutsTheFolderOffInAnyLetterCase)
{
    EXPECT_EQ(Paths::StripAccdata("C:\\Firm\\accdata"), "C:\\Firm");
    EXPECT_EQ(Paths::StripAccdata("C:\\Firm\\ACCDATA\\"), "C:\\Firm");
    EXPECT_EQ(Paths::StripAccdata("C:\\Firm\\Data\\"), "C:\\Firm\\Data");
    EXPECT_EQ(Paths::StripAccdata("C:\\Firm\\Data\\\\"), "C:\\Firm\\Data\\");
    EXPECT_EQ(Paths::StripAccdata("\\accdata"), "");
    EXPECT_EQ(Paths::StripAccdata("\\"), "");
    EXPECT_EQ(Paths::StripAccdata(""), "");
}

TEST(PathsTest, StripAccdataCutsEightCharactersWhereverTheWordStands)
{
    EXPECT_EQ(Paths::StripAccdata("C:\\accdata\\Firm\\Reports"), "C:\\accdata\\Firm");
    EXPECT_EQ(Paths::StripAccdata("C:\\accdata\\x"), "C:\\a");
    EXPECT_EQ(Paths::StripAccdata("myAccData2"), "my");
    EXPECT_EQ(Paths::StripAccdata("Xaccdata"), "");
}

TEST(PathsTest, StripAccdataLeavesWhatIsShorterThanEightCharacters)
{
    EXPECT_EQ(Paths::StripAccdata("accdata"), "accdata");
    EXPECT_EQ(Paths::StripAccdata("AccData\\"), "AccData");
}

TEST(PathsTest, IsLocalMachineComparesWithoutRegardToCaseAndLowersItsArgument)
{
    std::string host = InCapitals(HelperUtils::GetLocalMachineName());
    ASSERT_NE(host, "");
    EXPECT_TRUE(Paths::IsLocalMachine(host));
    EXPECT_EQ(host, Lowered(HelperUtils::GetLocalMachineName()));

    host = "Another-Computer";
    EXPECT_FALSE(Paths::IsLocalMachine(host));
    EXPECT_EQ(host, "another-computer");
}

TEST(PathsTest, GetHostIsTheLoweredNameBehindTwoSeparators)
{
    EXPECT_EQ(Paths::GetHost("\\\\Another-Server\\Share\\X"), "another-server");
    EXPECT_EQ(Paths::GetHost("\\\\Another-Server\\"), "another-server");
    EXPECT_EQ(Paths::GetHost("\\\\Another-Server"), "another-server");
    EXPECT_EQ(Paths::GetHost("\\\\s"), "s");
    EXPECT_EQ(Paths::GetHost("\\\\?\\c:\\x"), "?");
}

TEST(PathsTest, GetHostOfThisComputerAndOfAnyOtherPathIsTheLoopbackAddress)
{
    const std::string name = HelperUtils::GetLocalMachineName();

    EXPECT_EQ(Paths::GetHost("\\\\" + name + "\\share"), "127.0.0.1");
    EXPECT_EQ(Paths::GetHost("\\\\" + InCapitals(name)), "127.0.0.1");
    EXPECT_EQ(Paths::GetHost("C:\\Data"), "127.0.0.1");
    EXPECT_EQ(Paths::GetHost("data"), "127.0.0.1");
    EXPECT_EQ(Paths::GetHost("\\server\\share"), "127.0.0.1");
    EXPECT_EQ(Paths::GetHost("//server/share"), "127.0.0.1");
    EXPECT_EQ(Paths::GetHost("\\\\"), "127.0.0.1");
    EXPECT_EQ(Paths::GetHost("\\"), "127.0.0.1");
    EXPECT_EQ(Paths::GetHost(""), "127.0.0.1");
}

TEST(PathsTest, GetHostOfANetworkPathWithoutAHostIsEmpty)
{
    EXPECT_EQ(Paths::GetHost("\\\\\\share"), "");
}

TEST(PathsTest, NoHostIsLocalWhileTheComputersNameIsUnknown)
{
    const std::string name = HelperUtils::GetLocalMachineName();
    const ImportPatch fails("KERNEL32.dll", "GetComputerNameA", &FailToGetComputerName);

    EXPECT_EQ(Paths::GetHost("\\\\" + name + "\\share"), Lowered(name));
}

TEST(PathsTest, SecurityCheckPathRefusesTheSystemsFolderAndTheRootsOfDrives)
{
    EXPECT_FALSE(Paths::SecurityCheckPath("c:\\windows"));
    EXPECT_FALSE(Paths::SecurityCheckPath("c:\\windows\\system32"));
    EXPECT_FALSE(Paths::SecurityCheckPath("c:\\windows.old\\x"));
    EXPECT_FALSE(Paths::SecurityCheckPath("\\\\?\\c:\\windows\\x"));
    EXPECT_FALSE(Paths::SecurityCheckPath("c:\\"));
    EXPECT_FALSE(Paths::SecurityCheckPath("Z:\\"));
    EXPECT_FALSE(Paths::SecurityCheckPath(":\\x"));
    EXPECT_FALSE(Paths::SecurityCheckPath(":\\"));
}

TEST(PathsTest, SecurityCheckPathAllowsOtherPaths)
{
    EXPECT_TRUE(Paths::SecurityCheckPath("d:\\data"));
    EXPECT_TRUE(Paths::SecurityCheckPath("c:\\x"));
    EXPECT_TRUE(Paths::SecurityCheckPath("c:\\windows\\temp\\x"));
    EXPECT_TRUE(Paths::SecurityCheckPath("c:\\windows\\system32 c:\\windows\\temp"));
    EXPECT_TRUE(Paths::SecurityCheckPath("d:\\windows"));
    EXPECT_TRUE(Paths::SecurityCheckPath("c:"));
    EXPECT_TRUE(Paths::SecurityCheckPath("c:/"));
    EXPECT_TRUE(Paths::SecurityCheckPath("\\"));
    EXPECT_TRUE(Paths::SecurityCheckPath("\\x"));
    EXPECT_TRUE(Paths::SecurityCheckPath("a\\b"));
    EXPECT_TRUE(Paths::SecurityCheckPath("ab\\"));
    EXPECT_TRUE(Paths::SecurityCheckPath("\\:\\x"));
    EXPECT_TRUE(Paths::SecurityCheckPath(""));
}

TEST(PathsTest, SecurityCheckPathComparesWithTheCase)
{
    EXPECT_TRUE(Paths::SecurityCheckPath("C:\\Windows\\system32"));
    EXPECT_TRUE(Paths::SecurityCheckPath("C:\\windows"));
    EXPECT_FALSE(Paths::SecurityCheckPath("c:\\windows\\Temp\\x"));
}

TEST(PathsTest, SecurityCheckPathAllowsFourLogFilesInTheRoot)
{
    for (const char* version : {"22", "23", "24", "25"})
    {
        EXPECT_TRUE(Paths::SecurityCheckPath("c:\\rfsdk log_v"s + version + ".txt"));
    }
}

TEST(PathsTest, FileNamesKeepTheirSafeCharactersOnly)
{
    EXPECT_EQ(Paths::RemoveInvalidCharactersFromFileName("My Report: 2024?.txt. "), "My Report 2024.txt");
    EXPECT_EQ(Paths::RemoveInvalidCharactersFromFileName("a\\b/c*d\"e<f>g|h\ti\nj"), "abcdefghij");
    EXPECT_EQ(Paths::RemoveInvalidCharactersFromFileName("_-. x"), "_-. x");
    EXPECT_EQ(Paths::RemoveInvalidCharactersFromFileName("M\xFCller\0x"s), "Mllerx");
    EXPECT_EQ(Paths::RemoveInvalidCharactersFromFileName(" .a. . "), " .a");
    EXPECT_EQ(Paths::RemoveInvalidCharactersFromFileName("a.?"), "a");
    EXPECT_EQ(Paths::RemoveInvalidCharactersFromFileName(" . .. "), "");
    EXPECT_EQ(Paths::RemoveInvalidCharactersFromFileName("???"), "");
    EXPECT_EQ(Paths::RemoveInvalidCharactersFromFileName(""), "");
}

TEST(PathsTest, FileNamesKeepWhatTheRegularExpressionKeepsOfEveryByte)
{
    const std::regex invalid("[^a-zA-Z0-9_ .-]");
    for (int byte = 0; byte < 256; ++byte)
    {
        const std::string name = {static_cast<char>(byte), 'x'};
        EXPECT_EQ(Paths::RemoveInvalidCharactersFromFileName(name), std::regex_replace(name, invalid, "")) << byte;
    }
}

TEST(PathsTest, FileNamesMayHaveAnyLength)
{
    const std::string bad(2'000'000, '?');

    EXPECT_EQ(Paths::RemoveInvalidCharactersFromFileName(bad + "x" + bad), "x");
    EXPECT_EQ(Paths::SanitiseFileName(std::string(2'000'000, 'X')), std::string(2'000'000, 'x'));
}

TEST(PathsTest, SanitiseFileNameLowersTheSafeName)
{
    EXPECT_EQ(Paths::SanitiseFileName("My Report: 2024?.txt. "), "my report 2024.txt");
    EXPECT_EQ(Paths::SanitiseFileName("\xC4.TXT"), ".txt");
    EXPECT_EQ(Paths::SanitiseFileName(""), "");
}

TEST(PathsTest, TheLettersOfFileNamesAreAsciiWhateverTheLocale)
{
    ASSERT_NE(std::setlocale(LC_ALL, "English_United States.1252"), nullptr);

    EXPECT_EQ(Paths::SanitiseFileName("\xC4X"), "x");
    EXPECT_EQ(Paths::GetPath("\xC4\\x"), "\xE4"); // while paths are lowered by the locale

    std::setlocale(LC_ALL, "C");
}

TEST(PathsTest, SanitiseFileNameLowersBeforeItRemoves)
{
    // A locale in which (with some C libraries) bytes that are not allowed have a lower case that is.
    ASSERT_NE(std::setlocale(LC_ALL, "Japanese_Japan.932"), nullptr);
    for (int byte = 0; byte < 256; ++byte)
    {
        const std::string name = {'x', static_cast<char>(byte), 'x'};
        EXPECT_EQ(Paths::SanitiseFileName(name), Paths::RemoveInvalidCharactersFromFileName(Lowered(name))) << byte;
    }
    std::setlocale(LC_ALL, "C");
}

TEST(PathsTest, GetSpecialFolderPathIsTheKnownFolder)
{
    const std::string path = Paths::GetSpecialFolderPath(kProgramData);

    EXPECT_EQ(Lowered(path), "c:\\programdata");
    EXPECT_TRUE(HelperUtils::DirectoryExists(path));
}

TEST(PathsTest, GetSpecialFolderPathOfAnUnknownFolderIsEmpty)
{
    EXPECT_EQ(Paths::GetSpecialFolderPath(kNoFolder), "");
}

TEST(PathsTest, GetSpecialFolderPathNarrowsThePathAndFreesIt)
{
    const ImportPatch give("SHELL32.dll", "SHGetKnownFolderPath", &GiveFolder);
    const ImportPatch count("ole32.dll", "CoTaskMemFree", &CountFree);
    g_folder = L"C:\\Z\xFCrich \x3042";
    g_frees = 0;

    EXPECT_EQ(Paths::GetSpecialFolderPath(kNoFolder), "C:\\Z\xFCrich ?");
    EXPECT_TRUE(IsEqualGUID(g_asked, kNoFolder));
    EXPECT_EQ(g_frees, 1);
}

TEST(PathsTest, GetSpecialFolderPathFreesThePathWhenMemoryIsShort)
{
    const ImportPatch give("SHELL32.dll", "SHGetKnownFolderPath", &GiveFolder);
    const ImportPatch count("ole32.dll", "CoTaskMemFree", &CountFree);
    g_folder = L"C:\\A path of more letters than a string holds by itself";
    g_frees = 0;
    const AllocationFault memory(1);

    EXPECT_THROW(Paths::GetSpecialFolderPath(kNoFolder), std::bad_alloc);
    EXPECT_EQ(g_frees, 1);
}

TEST(PathsTest, CreateProgramDataDatabaseFolderMakesItWithItsParents)
{
    const TempFolder programData;
    const ImportPatch give("SHELL32.dll", "SHGetKnownFolderPath", &GiveFolder);
    g_folder = StringUtils::ToUnicode(programData.Path());

    const std::string path = Paths::CreateProgramDataDatabaseFolder();

    EXPECT_TRUE(IsEqualGUID(g_asked, kProgramData));
    EXPECT_EQ(path, programData.Path() + "\\Corvane\\Accounts\\Data Service");
    EXPECT_TRUE(HelperUtils::DirectoryExists(path));
    EXPECT_EQ(Paths::CreateProgramDataDatabaseFolder(), path); // again, onto the existing one
    EXPECT_TRUE(HelperUtils::DirectoryExists(path));
}

TEST(PathsTest, CreateProgramDataDatabaseFolderTellsThePathThoughItCannotBeMade)
{
    const ImportPatch give("SHELL32.dll", "SHGetKnownFolderPath", &GiveFolder);
    const ImportPatch fail("SHELL32.dll", "SHCreateDirectoryExA", &FailToMakeFolder);
    g_folder = L"C:\\Somewhere";

    EXPECT_EQ(Paths::CreateProgramDataDatabaseFolder(), "C:\\Somewhere\\Corvane\\Accounts\\Data Service");
    EXPECT_EQ(g_made, "C:\\Somewhere\\Corvane\\Accounts\\Data Service");
}

TEST(PathsTest, CreateProgramDataDatabaseFolderIsBelowTheRootWhenThereIsNoKnownFolder)
{
    const ImportPatch none("SHELL32.dll", "SHGetKnownFolderPath", &FailToGiveFolder);
    const ImportPatch fail("SHELL32.dll", "SHCreateDirectoryExA", &FailToMakeFolder);

    EXPECT_EQ(Paths::CreateProgramDataDatabaseFolder(), "\\Corvane\\Accounts\\Data Service");
}
