#include <UtilsLib/text/StringUtils.h>

#include <tests/support/ImportPatch.h>
#include <tests/text/ReadLines.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <climits>
#include <clocale>
#include <cstdlib>
#include <locale>
#include <stdexcept>
#include <thread>

using testing::ElementsAre;
using testing::IsEmpty;
using TestSupport::ReadLines;
using UtilsLib::StringUtils;
using namespace std::string_literals;

namespace
{

/// Sets the C library's locale until scope end.
class ScopedCLocale
{
public:
    explicit ScopedCLocale(const char* name) : m_before(std::setlocale(LC_ALL, nullptr))
    {
        EXPECT_NE(std::setlocale(LC_ALL, name), nullptr) << name;
    }
    ~ScopedCLocale()
    {
        std::setlocale(LC_ALL, m_before.c_str());
    }
    ScopedCLocale(const ScopedCLocale&) = delete;
    ScopedCLocale& operator=(const ScopedCLocale&) = delete;

private:
    std::string m_before;
};

constexpr char kWestern[] = "English_United States.1252"; // lowers letters above 0x7F, which "C" does not

std::string Lowered(std::string text)
{
    StringUtils::ToLower(text);
    return text;
}

std::string Cleaned(std::string text)
{
    StringUtils::Clean(text);
    return text;
}

std::string Canonical(std::string path)
{
    StringUtils::Canonicalize(path);
    return path;
}

std::string TrimmedStart(std::string text, const std::string& chars)
{
    StringUtils::TrimStart(text, chars);
    return text;
}

std::string TrimmedEnd(std::string text, const std::string& chars)
{
    StringUtils::TrimEnd(text, chars);
    return text;
}

std::string EveryByte()
{
    std::string all;
    for (int byte = 0; byte <= UCHAR_MAX; ++byte)
    {
        all += static_cast<char>(byte);
    }
    return all;
}

struct Numbers
{
    unsigned int major = 91;
    unsigned int minor = 92;
    unsigned int build = 93;
    unsigned int revision = 94;

    void Read(const std::string& version)
    {
        StringUtils::SplitVersion(version, major, minor, build, revision);
    }
    std::vector<unsigned int> All() const
    {
        return {major, minor, build, revision};
    }
};

template <typename Error>
std::string ErrorOf(Numbers& numbers, const std::string& version)
{
    try
    {
        numbers.Read(version);
    }
    catch (const Error& error)
    {
        return typeid(error) == typeid(Error) ? error.what() : "another type";
    }
    return "no error";
}

BOOL WINAPI FailToCanonicalize(char* buffer, const char*)
{
    buffer[0] = 'x';
    buffer[1] = '\0';
    return FALSE;
}

BOOL WINAPI CanonicalizeToNothing(char* buffer, const char*)
{
    buffer[0] = '\0';
    return TRUE;
}

BOOL WINAPI CanonicalizeWithoutAnEnd(char* buffer, const char*)
{
    std::fill_n(buffer, MAX_PATH - 1, 'x'); // cut before a character of two bytes
    return TRUE;
}

int WINAPI FailToWiden(UINT, DWORD, const char*, int, wchar_t*, int)
{
    return 0;
}

int WINAPI FailToNarrow(UINT, DWORD, const wchar_t*, int, char*, int, const char*, BOOL*)
{
    return 0;
}

int WINAPI WidenWithAnotherTilde(UINT page, DWORD flags, const char* text, int size, wchar_t* wide, int room)
{
    const int length = MultiByteToWideChar(page, flags, text, size, wide, room);
    std::replace(wide, wide + (room == 0 ? 0 : length), L'~', L'\x203E');
    return length;
}

int WINAPI NarrowWithAnotherTilde(UINT page, DWORD flags, const wchar_t* text, int size, char* narrow, int room,
                                  const char* missing, BOOL* used)
{
    const int length = WideCharToMultiByte(page, flags, text, size, narrow, room, missing, used);
    std::replace(narrow, narrow + (room == 0 ? 0 : length), '~', '?');
    return length;
}

} // namespace

TEST(StringUtilsTest, CanBeMadeAndAssignedThoughItHoldsNothing)
{
    const StringUtils first;
    StringUtils second;
    second = first;
    const StringUtils third(second);
    static_cast<void>(third);
}

TEST(StringUtilsTest, CleanCutsAtTheFirstZeroByte)
{
    EXPECT_EQ(Cleaned("abc\0def"s), "abc");
    EXPECT_EQ(Cleaned("abc\0de\0f"s), "abc");
    EXPECT_EQ(Cleaned("abc\0"s), "abc");
    EXPECT_EQ(Cleaned("\0abc"s), "");
    EXPECT_EQ(Cleaned("abc"), "abc");
    EXPECT_EQ(Cleaned(""), "");
}

TEST(StringUtilsTest, ToLowerInTheCLocaleChangesTheLettersOfAsciiOnly)
{
    std::string expected = EveryByte();
    for (char letter = 'A'; letter <= 'Z'; ++letter)
    {
        expected[static_cast<unsigned char>(letter)] = static_cast<char>(letter + 32);
    }

    EXPECT_EQ(Lowered(EveryByte()), expected);
}

TEST(StringUtilsTest, ToLowerIsTheCLibrarysOfTheLocaleForEveryByte)
{
    for (const char* name : {"C", kWestern, "Turkish_Turkey.1254", "Russian_Russia.1251", "Greek_Greece.1253",
                             "Polish_Poland.1250", "English_United States.437", "Japanese_Japan.932"})
    {
        const ScopedCLocale locale(name);
        std::string expected = EveryByte();
        for (char& byte : expected)
        {
            byte = static_cast<char>(std::tolower(static_cast<unsigned char>(byte)));
        }

        EXPECT_EQ(Lowered(EveryByte()), expected) << name;
    }
}

TEST(StringUtilsTest, ToLowerNoticesALocaleThatAnotherThreadChanges)
{
    EXPECT_EQ(Lowered("\xC4"), "\xC4");

    std::thread([] { std::setlocale(LC_ALL, kWestern); }).join();
    EXPECT_EQ(Lowered("\xC4"), "\xE4");

    std::thread([] { std::setlocale(LC_ALL, "C"); }).join();
    EXPECT_EQ(Lowered("\xC4"), "\xC4");
}

TEST(StringUtilsTest, CanonicalizeResolvesDotsAsTheShellDoes)
{
    EXPECT_EQ(Canonical("c:\\a\\..\\b"), "c:\\b");
    EXPECT_EQ(Canonical("c:\\a\\.\\b"), "c:\\a\\b");
    EXPECT_EQ(Canonical("a\\..\\b"), "\\b");
    EXPECT_EQ(Canonical("c:\\..\\..\\x"), "c:\\x");
    EXPECT_EQ(Canonical("\\\\server\\a\\..\\b"), "\\\\server\\b");
    EXPECT_EQ(Canonical("a/../b"), "a/../b");
    EXPECT_EQ(Canonical("c:\\A File.TXT"), "c:\\A File.TXT");
}

TEST(StringUtilsTest, CanonicalizeLeavesAnEmptyPathAsItIs)
{
    EXPECT_EQ(Canonical(""), ""); // the shell would make "\" of it
}

TEST(StringUtilsTest, CanonicalizeEndsAtAZeroByte)
{
    EXPECT_EQ(Canonical("c:\\a\\..\\b\0c"s), "c:\\b");
}

TEST(StringUtilsTest, CanonicalizeTakesUpTo259BytesAndLeavesLongerPathsAsTheyAre)
{
    const std::string longest = "c:\\a\\..\\" + std::string(251, 'n');
    EXPECT_EQ(Canonical(longest), "c:\\" + std::string(251, 'n'));
    const std::string tooLong = longest + "n";
    EXPECT_EQ(Canonical(tooLong), tooLong);
    const std::string farTooLong = longest + std::string(100'000, 'n');
    EXPECT_EQ(Canonical(farTooLong), farTooLong);
}

TEST(StringUtilsTest, CanonicalizeLeavesThePathWhenTheShellFailsOrAnswersNothing)
{
    {
        const TestSupport::ImportPatch fails("SHLWAPI.dll", "PathCanonicalizeA", &FailToCanonicalize);
        EXPECT_EQ(Canonical("c:\\a\\..\\b"), "c:\\a\\..\\b");
    }
    {
        const TestSupport::ImportPatch overlong("SHLWAPI.dll", "PathCanonicalizeA", &CanonicalizeWithoutAnEnd);
        EXPECT_EQ(Canonical("c:\\a\\..\\b"), "c:\\a\\..\\b");
    }
    const TestSupport::ImportPatch empty("SHLWAPI.dll", "PathCanonicalizeA", &CanonicalizeToNothing);
    EXPECT_EQ(Canonical("c:\\a\\..\\b"), "c:\\a\\..\\b");
}

TEST(StringUtilsTest, TrimStartRemovesTheGivenCharactersFromTheFront)
{
    EXPECT_EQ(TrimmedStart("  x ", " "), "x ");
    EXPECT_EQ(TrimmedStart("\\\\a\\", "\\"), "a\\");
    EXPECT_EQ(TrimmedStart("abcabx", "ba"), "cabx");
    EXPECT_EQ(TrimmedStart("aaa", "a"), "");
    EXPECT_EQ(TrimmedStart("abc", ""), "abc");
    EXPECT_EQ(TrimmedStart("", "a"), "");
    EXPECT_EQ(TrimmedStart("\0\0a"s, "\0"s), "a");
}

TEST(StringUtilsTest, TrimEndRemovesTheGivenCharactersFromTheBack)
{
    EXPECT_EQ(TrimmedEnd("c:\\a\\\\", "\\"), "c:\\a");
    EXPECT_EQ(TrimmedEnd(" x  ", " "), " x");
    EXPECT_EQ(TrimmedEnd("xcabab", "ba"), "xc");
    EXPECT_EQ(TrimmedEnd("aaa", "a"), "");
    EXPECT_EQ(TrimmedEnd("abc", ""), "abc");
    EXPECT_EQ(TrimmedEnd("", "a"), "");
    EXPECT_EQ(TrimmedEnd("a\0\0"s, "\0"s), "a");
}

TEST(StringUtilsTest, TrimmingATextByItselfLeavesNothing)
{
    std::string text = "abc";
    StringUtils::TrimStart(text, text);
    EXPECT_EQ(text, "");
    text = "abc";
    StringUtils::TrimEnd(text, text);
    EXPECT_EQ(text, "");
}

TEST(StringUtilsTest, AsciiIsConvertedCharacterByCharacter)
{
    const std::string ascii = EveryByte().substr(1, 0x7F);
    const std::wstring wide(ascii.begin(), ascii.end());

    EXPECT_EQ(StringUtils::ToUnicode(ascii), wide);
    EXPECT_EQ(StringUtils::FromUnicode(wide), ascii);
    EXPECT_EQ(StringUtils::ToUnicode(""), L"");
    EXPECT_EQ(StringUtils::FromUnicode(L""), "");
}

TEST(StringUtilsTest, ConversionsEndAtTheFirstZero)
{
    EXPECT_EQ(StringUtils::ToUnicode("ab\0c"s), L"ab");
    EXPECT_EQ(StringUtils::ToUnicode("a\xE4\0\xE4"s), StringUtils::ToUnicode("a\xE4"));
    EXPECT_EQ(StringUtils::ToUnicode("\0a"s), L"");
    EXPECT_EQ(StringUtils::FromUnicode(L"ab\0c"s), "ab");
    EXPECT_EQ(StringUtils::FromUnicode(L"a\x20AC\0\x20AC"s), StringUtils::FromUnicode(L"a\x20AC"));
    EXPECT_EQ(StringUtils::FromUnicode(L"\0a"s), "");
}

TEST(StringUtilsTest, LongTextsAreConvertedWhole)
{
    const std::string ascii(3'000'000, 'a');

    EXPECT_EQ(StringUtils::FromUnicode(StringUtils::ToUnicode(ascii)), ascii);
}

TEST(StringUtilsTest, AFailedConversionGivesAnEmptyText)
{
    const TestSupport::ImportPatch widen("KERNEL32.dll", "MultiByteToWideChar", &FailToWiden);
    const TestSupport::ImportPatch narrow("KERNEL32.dll", "WideCharToMultiByte", &FailToNarrow);

    EXPECT_EQ(StringUtils::ToUnicode("\xE4"), L"");
    EXPECT_EQ(StringUtils::FromUnicode(L"\x20AC"), "");
}

TEST(StringUtilsDeathTest, AsciiIsLeftToThePlatformOnACodePageThatChangesIt)
{
    // In a process of its own, since the library asks about the code page once.
    const auto widen = [] {
        const TestSupport::ImportPatch page("KERNEL32.dll", "MultiByteToWideChar", &WidenWithAnotherTilde);
        std::exit(StringUtils::ToUnicode("~a") == L"\x203E"
                                                  L"a"
                      ? 0
                      : 1);
    };
    const auto narrow = [] {
        const TestSupport::ImportPatch page("KERNEL32.dll", "WideCharToMultiByte", &NarrowWithAnotherTilde);
        std::exit(StringUtils::FromUnicode(L"~a") == "?a" ? 0 : 1);
    };
    EXPECT_EXIT(widen(), testing::ExitedWithCode(0), "");
    EXPECT_EXIT(narrow(), testing::ExitedWithCode(0), "");
}

TEST(StringUtilsTest, SplitCutsAtEveryDelimiterAndHasNoPieceBehindTheLast)
{
    EXPECT_THAT(StringUtils::Split("a..b", '.'), ElementsAre("a", "", "b"));
    EXPECT_THAT(StringUtils::Split("a.b.", '.'), ElementsAre("a", "b"));
    EXPECT_THAT(StringUtils::Split("a.b..", '.'), ElementsAre("a", "b", ""));
    EXPECT_THAT(StringUtils::Split(".a", '.'), ElementsAre("", "a"));
    EXPECT_THAT(StringUtils::Split(".", '.'), ElementsAre(""));
    EXPECT_THAT(StringUtils::Split("abc", '.'), ElementsAre("abc"));
    EXPECT_THAT(StringUtils::Split("", '.'), IsEmpty());
    EXPECT_THAT(StringUtils::Split("a\0b\0"s, '\0'), ElementsAre("a", "b"));
    EXPECT_THAT(StringUtils::Split("a\nb.c\0d"s, '.'), ElementsAre("a\nb", "c\0d"s));
    EXPECT_THAT(StringUtils::Split("a\xFF"
                                   "b",
                                   '\xFF'),
                ElementsAre("a", "b"));
}

TEST(StringUtilsTest, SplitIsWhatReadingLinesGivesForEveryShortText)
{
    // All texts of up to six characters out of two delimiters' kinds and a letter.
    std::vector<std::string> texts = {""};
    for (std::size_t i = 0; texts[i].size() < 6; ++i)
    {
        for (const char character : {'.', '\0', 'x'})
        {
            texts.push_back(texts[i] + character);
        }
    }
    for (const std::string& text : texts)
    {
        ASSERT_EQ(StringUtils::Split(text, '.'), ReadLines(text, '.')) << text;
        ASSERT_EQ(StringUtils::Split(text, '\0'), ReadLines(text, '\0')) << text;
    }
}

TEST(StringUtilsTest, SplitAllocatesForTheVectorOnce)
{
    const std::vector<std::string> pieces = StringUtils::Split("a.b.c.d.e.f.g", '.');

    EXPECT_EQ(pieces.capacity(), pieces.size());
    EXPECT_EQ(StringUtils::Split("a.b.", '.').capacity(), 2u);
}

TEST(StringUtilsTest, SplitVersionReadsUpToFourNumbers)
{
    struct
    {
        const char* version;
        std::vector<unsigned int> expected;
    } const cases[] = {
        {"32.1", {32, 1, 0, 0}},      {"1.2.3.4.5", {1, 2, 3, 4}},
        {"1.2.3.4.x", {1, 2, 3, 4}},  {"1.2.3.4.", {1, 2, 3, 4}},
        {"7.", {7, 0, 0, 0}},         {"", {0, 0, 0, 0}},
        {"007.08.1.0", {7, 8, 1, 0}}, {"2147483647.1.1.1", {2147483647, 1, 1, 1}},
    };
    for (const auto& [version, expected] : cases)
    {
        Numbers numbers;
        numbers.Read(version);
        EXPECT_EQ(numbers.All(), expected) << version;
    }
}

TEST(StringUtilsTest, SplitVersionReadsAPieceAsTheStandardConversionDoes)
{
    Numbers numbers;
    numbers.Read(" \t\n12abc.-1.+3.0x10");
    EXPECT_EQ(numbers.All(), (std::vector<unsigned int>{12, 4294967295u, 3, 0}));

    numbers.Read("-2147483648.1 2.3\0004"s);
    EXPECT_EQ(numbers.All(), (std::vector<unsigned int>{2147483648u, 1, 3, 0}));
}

TEST(StringUtilsTest, SplitVersionKeepsWhatWasSetBeforeAPieceThatIsNoNumber)
{
    for (const char* version : {"1.x", "1..3", "1. ", "1.-", "1.\xB2"})
    {
        Numbers numbers;
        EXPECT_EQ(ErrorOf<std::invalid_argument>(numbers, version), "invalid stoi argument") << version;
        EXPECT_EQ(numbers.All(), (std::vector<unsigned int>{1, 0, 0, 0})) << version;
    }
    Numbers numbers;
    EXPECT_EQ(ErrorOf<std::invalid_argument>(numbers, ".1"), "invalid stoi argument");
    EXPECT_EQ(numbers.All(), (std::vector<unsigned int>{0, 0, 0, 0}));
}

TEST(StringUtilsTest, SplitVersionKeepsWhatWasSetBeforeANumberBeyondAnInt)
{
    for (const char* version :
         {"1.2.2147483648.4", "1.2.-2147483649.4", "1.2.99999999999999999999.4", "1.2.-99999999999999999999x.4"})
    {
        Numbers numbers;
        EXPECT_EQ(ErrorOf<std::out_of_range>(numbers, version), "stoi argument out of range") << version;
        EXPECT_EQ(numbers.All(), (std::vector<unsigned int>{1, 2, 0, 0})) << version;
    }
}

TEST(StringUtilsTest, SplitVersionLeavesErrnoAsItIs)
{
    Numbers numbers;
    errno = ERANGE; // must not be taken for the conversion's
    numbers.Read("1.2");
    EXPECT_EQ(errno, ERANGE);
    errno = 0;
    EXPECT_THROW(numbers.Read("99999999999"), std::out_of_range);
    EXPECT_EQ(errno, 0);
}

TEST(StringUtilsTest, StartsWithCaseInsensitiveComparesWithoutRegardToCase)
{
    EXPECT_TRUE(StringUtils::StartsWithCaseInsensitive("HTTPS://host", "https://"));
    EXPECT_TRUE(StringUtils::StartsWithCaseInsensitive("https://host", "HTTPS://"));
    EXPECT_TRUE(StringUtils::StartsWithCaseInsensitive("same", "SAME"));
    EXPECT_FALSE(StringUtils::StartsWithCaseInsensitive("http", "https://"));
    EXPECT_FALSE(StringUtils::StartsWithCaseInsensitive("xhttps://", "https://"));
    EXPECT_FALSE(StringUtils::StartsWithCaseInsensitive("httpx://", "https://"));
    EXPECT_FALSE(StringUtils::StartsWithCaseInsensitive("@a", "`a")); // 0x20 apart, but no letters
    EXPECT_FALSE(StringUtils::StartsWithCaseInsensitive("[a", "{a"));
}

TEST(StringUtilsTest, EveryTextStartsWithTheEmptyPrefix)
{
    EXPECT_TRUE(StringUtils::StartsWithCaseInsensitive("text", ""));
    EXPECT_TRUE(StringUtils::StartsWithCaseInsensitive("", ""));
    EXPECT_FALSE(StringUtils::StartsWithCaseInsensitive("", "x"));
}

TEST(StringUtilsTest, StartsWithCaseInsensitiveComparesBehindAZeroByteToo)
{
    EXPECT_TRUE(StringUtils::StartsWithCaseInsensitive("A\0B!"s, "a\0b"s));
    EXPECT_FALSE(StringUtils::StartsWithCaseInsensitive("A\0B"s, "a\0c"s));
}

TEST(StringUtilsTest, StartsWithCaseInsensitiveFollowsTheLocale)
{
    EXPECT_FALSE(StringUtils::StartsWithCaseInsensitive("\xC4rger", "\xE4"));

    const ScopedCLocale locale(kWestern);

    EXPECT_TRUE(StringUtils::StartsWithCaseInsensitive("\xC4rger", "\xE4"));
}

TEST(StringUtilsTest, DoesPathContainArchivesLooksAtTheNextToLastOfMoreThanTwoComponents)
{
    EXPECT_TRUE(StringUtils::DoesPathContainArchives("C:\\data\\archives\\file.zip"));
    EXPECT_TRUE(StringUtils::DoesPathContainArchives("data\\archives\\file.zip"));
    EXPECT_TRUE(StringUtils::DoesPathContainArchives("\\\\data\\\\archives\\\\file.zip\\\\"));
    EXPECT_TRUE(StringUtils::DoesPathContainArchives("archives\\archives\\archives"));
    EXPECT_FALSE(StringUtils::DoesPathContainArchives("archives\\file.zip"));
    EXPECT_FALSE(StringUtils::DoesPathContainArchives("\\archives\\file.zip"));
    EXPECT_FALSE(StringUtils::DoesPathContainArchives("C:\\data\\Archives\\file.zip"));
    EXPECT_FALSE(StringUtils::DoesPathContainArchives("C:\\data\\archives"));
    EXPECT_FALSE(StringUtils::DoesPathContainArchives("C:\\data\\archives\\"));
    EXPECT_FALSE(StringUtils::DoesPathContainArchives("C:\\archives\\2024\\file.zip"));
    EXPECT_FALSE(StringUtils::DoesPathContainArchives("C:\\data\\archives2\\file.zip"));
    EXPECT_FALSE(StringUtils::DoesPathContainArchives("C:\\data\\xarchives\\file.zip"));
    EXPECT_FALSE(StringUtils::DoesPathContainArchives("C:/data/archives/file.zip"));
    EXPECT_FALSE(StringUtils::DoesPathContainArchives("\\\\\\"));
    EXPECT_FALSE(StringUtils::DoesPathContainArchives(""));
}

TEST(StringUtilsTest, ToStringIsDecimal)
{
    EXPECT_EQ(StringUtils::ToString(0), "0");
    EXPECT_EQ(StringUtils::ToString(1234567), "1234567");
    EXPECT_EQ(StringUtils::ToString(-42), "-42");
    EXPECT_EQ(StringUtils::ToString(INT_MAX), "2147483647");
    EXPECT_EQ(StringUtils::ToString(INT_MIN), "-2147483648");
}

TEST(StringUtilsTest, ToStringDoesNotGroupWhateverTheHostsLocale)
{
    struct Thousands : std::numpunct<char>
    {
        char do_thousands_sep() const override
        {
            return '\'';
        }
        std::string do_grouping() const override
        {
            return "\3";
        }
    };
    const std::locale before = std::locale::global(std::locale(std::locale::classic(), new Thousands));

    EXPECT_EQ(StringUtils::ToString(1234567), "1234567");

    std::locale::global(before);
}
