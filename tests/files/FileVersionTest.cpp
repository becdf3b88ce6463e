#include <UtilsLib/files/FileVersion.h>

#include <UtilsLib/WindowsTypes.h>

#include <tests/support/ChildProcess.h>
#include <tests/support/ImportPatch.h>
#include <tests/support/OpenHandles.h>
#include <tests/support/TempFolder.h>

#include <gtest/gtest.h>

#include <winver.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <random>
#include <regex>

using TestSupport::ImportPatch;
using TestSupport::TempFolder;
using UtilsLib::FileVersion;
using namespace std::string_literals;

namespace
{

std::string InProgramFolder(const std::string& name)
{
    return TestSupport::ProgramFolder() + "\\" + name;
}

std::string VersionOf(const std::string& path)
{
    return FileVersion(path).GetVersion();
}

std::vector<int> Parsed(const std::string& text)
{
    const auto [major, minor, build, revision] = FileVersion::ParseVersion(text);
    return {major, minor, build, revision};
}

/// Where the version resource of a file's bytes begins: its first three fields stand before this name.
std::size_t FindResource(const std::string& bytes)
{
    std::string name;
    for (const char c : "VS_VERSION_INFO"s)
    {
        name += c;
        name += '\0';
    }
    const std::size_t place = bytes.find(name);
    return place == std::string::npos ? place : place - 6;
}

BOOL WINAPI FailToReadResource(const char*, DWORD, DWORD, void*)
{
    return FALSE;
}

BOOL WINAPI FailToQuery(const void* resource, const char*, void** value, UINT* length)
{
    *value = const_cast<void*>(resource);
    *length = sizeof(VS_FIXEDFILEINFO);
    return FALSE;
}

UINT g_length = 0;

BOOL WINAPI QueryWithGivenLength(const void* resource, const char* block, void** value, UINT* length)
{
    const BOOL found = VerQueryValueA(resource, block, value, length);
    *length = g_length;
    return found;
}

std::ptrdiff_t g_place = 0;

BOOL WINAPI QueryWithGivenPlace(const void* resource, const char*, void** value, UINT* length)
{
    *value = const_cast<char*>(static_cast<const char*>(resource)) + g_place;
    *length = sizeof(VS_FIXEDFILEINFO);
    return TRUE;
}

DWORD g_size = 0;
int g_reads = 0;

DWORD WINAPI GiveSize(const char*, DWORD*)
{
    return g_size;
}

BOOL WINAPI CountReading(const char*, DWORD, DWORD, void*)
{
    ++g_reads;
    return FALSE;
}

/// A resource of one unending text.
BOOL WINAPI ReadLettersOnly(const char*, DWORD, DWORD size, void* resource)
{
    std::memset(resource, 'A', size);
    return TRUE;
}

bool g_ends = false;

BOOL WINAPI QueryForAnEnd(const void* resource, const char*, void**, UINT*)
{
    const char* const behind = static_cast<const char*>(resource) + g_size;
    g_ends = std::string(behind, 8) == std::string(8, '\0');
    return FALSE;
}

} // namespace

TEST(FileVersionTest, TheFourPartsOfTheFileVersionAreJoinedByDots)
{
    EXPECT_EQ(VersionOf(InProgramFolder("versioned_file.dll")), "28.1.305.7");
}

TEST(FileVersionTest, PartsAreUnsigned)
{
    EXPECT_EQ(VersionOf(InProgramFolder("high_versioned_file.dll")), "40000.65535.32768.0");
}

TEST(FileVersionTest, AnEmptyPathIsTheRunningProgram)
{
    EXPECT_EQ(VersionOf(""), "4.3.2.1");
    EXPECT_EQ(VersionOf(InProgramFolder("file_version_tests.exe")), "4.3.2.1");
}

TEST(FileVersionTest, TheLibraryCarriesItsOwnVersion)
{
    EXPECT_EQ(VersionOf(InProgramFolder("UtilsLib.dll")), LIBRARY_VERSION);
}

TEST(FileVersionTest, AFileWithoutAVersionResourceHasAnEmptyVersion)
{
    EXPECT_EQ(VersionOf(InProgramFolder("child_hold_file.exe")), "");
}

TEST(FileVersionTest, WhatIsNoProgramHasAnEmptyVersion)
{
    const TempFolder folder;
    folder.Write("empty.dll", "");
    folder.Write("text.dll", "MZ, but no more");

    EXPECT_EQ(VersionOf(folder / "empty.dll"), "");
    EXPECT_EQ(VersionOf(folder / "text.dll"), "");
    EXPECT_EQ(VersionOf(folder.Path()), "");
    EXPECT_EQ(VersionOf(folder / "missing.dll"), "");
    EXPECT_EQ(VersionOf(folder / "no*pe?.dll"), "");
    for (const std::size_t length : {260u, 32'765u, 32'766u, 32'767u, 100'000u})
    {
        EXPECT_EQ(VersionOf(std::string(length, 'x')), "") << length;
    }
    EXPECT_EQ(VersionOf("\0x"s), "");
}

TEST(FileVersionTest, TheVersionIsReadOnceAndTheFileLetGo)
{
    const TempFolder folder;
    folder.Write("copy.dll", TestSupport::ContentOf(InProgramFolder("versioned_file.dll")));
    const unsigned long handles = TestSupport::OpenHandles();

    const FileVersion version(folder / "copy.dll");

    EXPECT_EQ(TestSupport::OpenHandles(), handles);
    EXPECT_TRUE(DeleteFileA((folder / "copy.dll").c_str())) << TestSupport::LastErrorText("DeleteFileA");
    EXPECT_EQ(version.GetVersion(), "28.1.305.7");
}

TEST(FileVersionTest, CopiesHaveTheVersionOfTheOriginal)
{
    const FileVersion original(InProgramFolder("versioned_file.dll"));
    const FileVersion copy(original);
    FileVersion assigned("");
    assigned = original;

    EXPECT_EQ(copy.GetVersion(), "28.1.305.7");
    EXPECT_EQ(assigned.GetVersion(), "28.1.305.7");
}

TEST(FileVersionTest, AFailedStepLeavesTheVersionEmpty)
{
    const std::string file = InProgramFolder("versioned_file.dll");
    {
        const ImportPatch fails("VERSION.dll", "GetFileVersionInfoA", &FailToReadResource);
        EXPECT_EQ(VersionOf(file), "");
    }
    {
        const ImportPatch fails("VERSION.dll", "VerQueryValueA", &FailToQuery);
        EXPECT_EQ(VersionOf(file), "");
    }
    EXPECT_EQ(VersionOf(file), "28.1.305.7");
}

TEST(FileVersionTest, AnAnswerThatIsTooShortLeavesTheVersionEmpty)
{
    const ImportPatch query("VERSION.dll", "VerQueryValueA", &QueryWithGivenLength);
    for (const UINT length : {0u, 1u, 16u, 51u})
    {
        g_length = length;
        EXPECT_EQ(VersionOf(InProgramFolder("versioned_file.dll")), "") << length;
    }
    g_length = 52;
    EXPECT_EQ(VersionOf(InProgramFolder("versioned_file.dll")), "28.1.305.7");
}

TEST(FileVersionTest, AnAnswerOutsideTheResourceIsNotFollowed)
{
    const ImportPatch query("VERSION.dll", "VerQueryValueA", &QueryWithGivenPlace);
    const DWORD size = GetFileVersionInfoSizeA(InProgramFolder("versioned_file.dll").c_str(), nullptr);
    const std::ptrdiff_t end = static_cast<std::ptrdiff_t>(size);
    for (const std::ptrdiff_t place : {std::ptrdiff_t{-1}, std::ptrdiff_t{-4096}, end - 51, end, end + 1, end + 4096})
    {
        g_place = place;
        EXPECT_EQ(VersionOf(InProgramFolder("versioned_file.dll")), "") << place;
    }
    g_place = end - 52;
    EXPECT_NE(VersionOf(InProgramFolder("versioned_file.dll")), "");
}

TEST(FileVersionTest, AResourceOfAnImpossibleSizeIsNotRead)
{
    const ImportPatch given("VERSION.dll", "GetFileVersionInfoSizeA", &GiveSize);
    const ImportPatch read("VERSION.dll", "GetFileVersionInfoA", &CountReading);
    for (const DWORD size : {DWORD{MAXDWORD}, DWORD{MAXDWORD - 64}, DWORD{0x7FFFFFFF}, DWORD{(1 << 20) + 1}})
    {
        g_size = size;
        g_reads = 0;
        EXPECT_EQ(VersionOf(InProgramFolder("versioned_file.dll")), "");
        EXPECT_EQ(g_reads, 0) << size;
    }
    g_size = 1 << 20;
    EXPECT_EQ(VersionOf(InProgramFolder("versioned_file.dll")), "");
    EXPECT_EQ(g_reads, 1);
}

TEST(FileVersionTest, TheSystemsParserFindsAnEndInAnUnendingResource)
{
    const ImportPatch given("VERSION.dll", "GetFileVersionInfoSizeA", &GiveSize);
    const ImportPatch read("VERSION.dll", "GetFileVersionInfoA", &ReadLettersOnly);
    g_size = 1000;
    EXPECT_EQ(VersionOf(InProgramFolder("versioned_file.dll")), "");

    const ImportPatch query("VERSION.dll", "VerQueryValueA", &QueryForAnEnd);
    EXPECT_EQ(VersionOf(InProgramFolder("versioned_file.dll")), "");
    EXPECT_TRUE(g_ends);
}

TEST(FileVersionTest, ADamagedResourceGivesAVersionOrNone)
{
    const TempFolder folder;
    const std::string whole = TestSupport::ContentOf(InProgramFolder("versioned_file.dll"));
    const std::size_t start = FindResource(whole);
    ASSERT_NE(start, std::string::npos);
    const std::regex form("|[0-9]+\\.[0-9]+\\.[0-9]+\\.[0-9]+");
    std::mt19937 random(20240607);
    for (int round = 0; round < 150; ++round)
    {
        std::string damaged = whole;
        for (int i = 0; i < 1 + round % 8; ++i)
        {
            damaged[start + random() % 0x60] = static_cast<char>(random() % 3 == 0 ? 0xFF : random());
        }
        folder.Write("damaged.dll", damaged);

        const std::string version = VersionOf(folder / "damaged.dll");

        EXPECT_TRUE(std::regex_match(version, form)) << version;
    }
}

TEST(FileVersionTest, ATruncatedFileGivesAVersionOrNone)
{
    const TempFolder folder;
    const std::string whole = TestSupport::ContentOf(InProgramFolder("versioned_file.dll"));
    const std::size_t start = FindResource(whole);
    ASSERT_NE(start, std::string::npos);
    for (const std::size_t size : {std::size_t(1), std::size_t(64), std::size_t(512), start, start + 2, start + 40})
    {
        folder.Write("cut.dll", whole.substr(0, size));

        const std::string version = VersionOf(folder / "cut.dll");

        EXPECT_TRUE(version == "" || version == "28.1.305.7") << size << " " << version;
    }
}

TEST(FileVersionTest, ParseVersionReadsFourNumbers)
{
    EXPECT_EQ(Parsed("28.1.305.7"), (std::vector<int>{28, 1, 305, 7}));
    EXPECT_EQ(Parsed("28.1"), (std::vector<int>{28, 1, 0, 0}));
    EXPECT_EQ(Parsed("1.2.3.4.5"), (std::vector<int>{1, 2, 3, 4}));
    EXPECT_EQ(Parsed(""), (std::vector<int>{0, 0, 0, 0}));
    EXPECT_EQ(Parsed("."), (std::vector<int>{0, 0, 0, 0}));
    EXPECT_EQ(Parsed("1..3."), (std::vector<int>{1, 0, 3, 0}));
    EXPECT_EQ(Parsed("...4"), (std::vector<int>{0, 0, 0, 4}));
}

TEST(FileVersionTest, ParseVersionReadsEachPartAsAtoiDoes)
{
    EXPECT_EQ(Parsed("3a.x.-5. 7"), (std::vector<int>{3, 0, -5, 7}));
    EXPECT_EQ(Parsed("+1.0x10.1 2.a3"), (std::vector<int>{1, 0, 1, 0}));
    EXPECT_EQ(Parsed("1.2\0003.4"s), (std::vector<int>{1, 2, 4, 0}));
    EXPECT_EQ(Parsed("2147483647.-2147483648.007.0"), (std::vector<int>{INT_MAX, INT_MIN, 7, 0}));
}

TEST(FileVersionTest, ParseVersionOfANumberBeyondAnIntIsTheCLibrarys)
{
    const char* const texts[] = {"2147483648", "-2147483649", "99999999999", "4294967296"};

    EXPECT_EQ(Parsed("2147483648.-2147483649.99999999999.4294967296"),
              (std::vector<int>{std::atoi(texts[0]), std::atoi(texts[1]), std::atoi(texts[2]), std::atoi(texts[3])}));
}

TEST(FileVersionTest, AVersionRecordIsAnAggregateOfItsFourNumbersInOrder)
{
    const FileVersion::Version version = {1, 2, 3, 4};

    EXPECT_EQ(version.Major, 1);
    EXPECT_EQ(version.Minor, 2);
    EXPECT_EQ(version.Build, 3);
    EXPECT_EQ(version.Revision, 4);
    static_assert(sizeof(FileVersion::Version) == 16);
}
