// The conversions in the ANSI code page of the environment that the program is started in.
#include <UtilsLib/WindowsTypes.h>
#include <UtilsLib/files/Paths.h>
#include <UtilsLib/text/StringUtils.h>

#include <gtest/gtest.h>

#include <map>

using UtilsLib::Paths;
using UtilsLib::StringUtils;
using namespace std::string_literals;

namespace
{

struct Page
{
    std::string narrow; // a text of the page above ASCII
    std::wstring wide;
    std::wstring missing; // a character that it lacks
};

const Page& CurrentPage()
{
    static const std::map<UINT, Page> pages = {
        {1252, {"\x80 \xE4\xDF", L"\x20AC \xE4\xDF", L"\x3042"}},
        {1251, {"\xC4\xE0 \x5C", L"\x0414\x0430 \x5C", L"\x3042"}},
        {932, {"\x83\x5C\x5C\xB1", L"\x30BD\x5C\xFF71", L"\x0E01"}}, // a letter whose second byte is a backslash's
        {936, {"\xC4\xE3\x5C", L"\x4F60\x5C", L"\x0E01"}},
    };
    return pages.at(GetACP());
}

/// The one platform call that the conversion stands for.
std::wstring Widened(const std::string& text)
{
    wchar_t buffer[4096] = {};
    MultiByteToWideChar(CP_ACP, 0, text.c_str(), static_cast<int>(text.size() + 1), buffer, 4096);
    return buffer;
}

std::string Narrowed(const std::wstring& text)
{
    char buffer[4096] = {};
    WideCharToMultiByte(CP_ACP, 0, text.c_str(), static_cast<int>(text.size() + 1), buffer, 4096, nullptr, nullptr);
    return buffer;
}

} // namespace

TEST(CodePageTest, TextOfTheCodePageIsConvertedBothWays)
{
    EXPECT_EQ(StringUtils::ToUnicode(CurrentPage().narrow), CurrentPage().wide);
    EXPECT_EQ(StringUtils::FromUnicode(CurrentPage().wide), CurrentPage().narrow);
}

TEST(CodePageTest, ACharacterThatThePageLacksBecomesAQuestionMark)
{
    EXPECT_EQ(StringUtils::FromUnicode(L"a" + CurrentPage().missing + L"b"), "a?b");
}

TEST(CodePageTest, AsciiIsTheSameOnEveryPage)
{
    for (char c = 1; c > 0 && c < 0x7F; ++c)
    {
        const std::string narrow(1, c);
        const std::wstring wide(1, static_cast<wchar_t>(c));
        EXPECT_EQ(StringUtils::ToUnicode(narrow), wide);
        EXPECT_EQ(StringUtils::ToUnicode(narrow), Widened(narrow));
        EXPECT_EQ(StringUtils::FromUnicode(wide), narrow);
        EXPECT_EQ(StringUtils::FromUnicode(wide), Narrowed(wide));
    }
}

TEST(CodePageTest, EveryPairOfBytesIsWhatThePlatformMakesOfIt)
{
    for (int first = 0; first < 256; ++first)
    {
        for (int second = 0; second < 256; ++second)
        {
            const std::string text = {static_cast<char>(first), static_cast<char>(second)};
            ASSERT_EQ(StringUtils::ToUnicode(text), Widened(text)) << first << " " << second;
            ASSERT_EQ(StringUtils::ToUnicode("a" + text + '\0' + "b"), Widened("a" + text)) << first << " " << second;
        }
    }
}

TEST(CodePageTest, EveryUnitIsWhatThePlatformMakesOfIt)
{
    for (int unit = 0; unit < 0x10000; ++unit)
    {
        const std::wstring alone(1, static_cast<wchar_t>(unit));
        ASSERT_EQ(StringUtils::FromUnicode(alone), Narrowed(alone)) << unit;
        const std::wstring text = {L'a', static_cast<wchar_t>(unit), L'b'};
        ASSERT_EQ(StringUtils::FromUnicode(text), Narrowed(text)) << unit; // halves of surrogate pairs among them
    }
}

TEST(CodePageTest, LongTextsAreConvertedWhole)
{
    std::string narrow;
    std::wstring wide;
    for (int i = 0; i < 300'000; ++i)
    {
        narrow += CurrentPage().narrow;
        wide += CurrentPage().wide;
    }

    EXPECT_EQ(StringUtils::ToUnicode(narrow), wide);
    EXPECT_EQ(StringUtils::FromUnicode(wide), narrow);
}

TEST(CodePageTest, PathsOfMoreBytesThanThePlatformsLimitAreRefusedThoughTheyHaveFewerCharacters)
{
    std::string name; // of fewer than 260 characters on a page of double bytes
    while (name.size() < 300)
    {
        name += CurrentPage().narrow;
    }
    std::string path = "c:\\" + name;

    StringUtils::Canonicalize(path);

    EXPECT_EQ(path, "c:\\" + name);
    EXPECT_EQ(Paths::CombinePaths("c:\\", name), "");
}

TEST(CodePageTest, AnIncompleteCharacterAtTheEndIsHarmless)
{
    const std::string whole = CurrentPage().narrow;
    for (std::size_t size = 0; size <= whole.size(); ++size)
    {
        EXPECT_EQ(StringUtils::ToUnicode(whole.substr(0, size)), Widened(whole.substr(0, size)));
    }
}
