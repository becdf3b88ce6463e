// The pure functions on texts by chance, the same ones in every run, held against what must be true of any text.
#include <UtilsLib/WindowsTypes.h>
#include <UtilsLib/files/FileVersion.h>
#include <UtilsLib/files/Paths.h>
#include <UtilsLib/system/HelperUtils.h>
#include <UtilsLib/text/StringUtils.h>

#include <tests/text/ReadLines.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <iterator>
#include <random>
#include <regex>
#include <stdexcept>

using TestSupport::ReadLines;
using UtilsLib::FileVersion;
using UtilsLib::HelperUtils;
using UtilsLib::Paths;
using UtilsLib::StringUtils;
using namespace std::string_literals;

namespace
{

constexpr int kRounds = 2000;

class AnyTextTest : public testing::Test
{
protected:
    std::size_t Below(std::size_t end)
    {
        return m_random() % end;
    }
    /// Bytes, and words that the functions look for; most texts short, some about the platform's limit, few long.
    std::string Text()
    {
        static const std::string words[] = {
            "\\",        "\\\\",        ".",        "..",           "\\..\\", ":",       "c:\\windows",
            "\\accdata", "ACCDATA",     "archives", "\\archives\\", " ",      "\0"s,     "28",
            "-1",        "99999999999", "A",        "\x81",         "\xC4",   "\\out\\", "\\TestResults\\"};
        const std::size_t longest = std::size_t{20} << (Below(100) < 5 ? 9 : Below(6));
        const std::size_t size = Below(longest);
        std::string text;
        while (text.size() < size)
        {
            text += Below(2) == 0 ? std::string(1, static_cast<char>(m_random())) : words[Below(std::size(words))];
        }
        return text;
    }

private:
    std::mt19937 m_random{20240607};
};

std::string Lowered(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char byte) { return static_cast<char>(std::tolower(byte)); });
    return text;
}

} // namespace

TEST_F(AnyTextTest, StringsAreCutAndTrimmedAsDefined)
{
    for (int round = 0; round < kRounds; ++round)
    {
        const std::string text = Text();
        const std::string chars = Text().substr(0, 4);

        std::string lowered = text;
        StringUtils::ToLower(lowered);
        ASSERT_EQ(lowered, Lowered(text));

        std::string cleaned = text;
        StringUtils::Clean(cleaned);
        ASSERT_EQ(cleaned, std::string(text.c_str()));

        ASSERT_EQ(StringUtils::Split(text, '\\'), ReadLines(text, '\\'));

        std::string start = text;
        StringUtils::TrimStart(start, chars);
        ASSERT_TRUE(text.ends_with(start));
        ASSERT_TRUE(start.empty() || chars.find(start.front()) == std::string::npos);

        std::string end = text;
        StringUtils::TrimEnd(end, chars);
        ASSERT_TRUE(text.starts_with(end));
        ASSERT_TRUE(end.empty() || chars.find(end.back()) == std::string::npos);

        ASSERT_EQ(StringUtils::StartsWithCaseInsensitive(text, chars), Lowered(text).starts_with(Lowered(chars)));
    }
}

TEST_F(AnyTextTest, ConversionsAreThePlatforms)
{
    for (int round = 0; round < kRounds; ++round)
    {
        const std::string text = Text();
        std::vector<wchar_t> expected(text.size() + 1);
        ASSERT_NE(MultiByteToWideChar(CP_ACP, 0, text.c_str(), static_cast<int>(text.size() + 1), expected.data(),
                                      static_cast<int>(expected.size())),
                  0);

        const std::wstring wide = StringUtils::ToUnicode(text);

        ASSERT_EQ(wide, std::wstring(expected.data()));

        std::vector<char> back(2 * wide.size() + 1);
        ASSERT_NE(WideCharToMultiByte(CP_ACP, 0, wide.c_str(), static_cast<int>(wide.size() + 1), back.data(),
                                      static_cast<int>(back.size()), nullptr, nullptr),
                  0);
        ASSERT_EQ(StringUtils::FromUnicode(wide), std::string(back.data()));
    }
}

TEST_F(AnyTextTest, VersionsAreReadOrRefused)
{
    for (int round = 0; round < kRounds; ++round)
    {
        const std::string text = Text();
        const FileVersion::Version parsed = FileVersion::ParseVersion(text);
        unsigned int numbers[4] = {1, 1, 1, 1};
        try
        {
            StringUtils::SplitVersion(text, numbers[0], numbers[1], numbers[2], numbers[3]);
        }
        catch (const std::logic_error&)
        {
            continue; // no number, or one beyond an int: the two ways of reading differ there
        }
        ASSERT_EQ(static_cast<unsigned int>(parsed.Major), numbers[0]);
        ASSERT_EQ(static_cast<unsigned int>(parsed.Minor), numbers[1]);
        ASSERT_EQ(static_cast<unsigned int>(parsed.Build), numbers[2]);
        ASSERT_EQ(static_cast<unsigned int>(parsed.Revision), numbers[3]);
    }
}

TEST_F(AnyTextTest, PathsAreTakenApart)
{
    for (int round = 0; round < kRounds; ++round)
    {
        const std::string path = Text();
        const bool hasSeparator = path.find('\\') != std::string::npos;

        const std::string joined =
            Paths::GetPath(path) + (hasSeparator ? "\\" : "") + Lowered(Paths::GetFilename(path));
        ASSERT_EQ(joined, Lowered(path));
        ASSERT_EQ(Paths::GetDataPath(path), Paths::GetPath(Paths::GetPath(path)));

        const std::string stripped = Paths::StripAccdata(path);
        ASSERT_TRUE(path.starts_with(stripped));
        ASSERT_LE(path.size() - stripped.size(), 9u);

        std::string trimmed = path;
        HelperUtils::TrimAccdata(trimmed);
        ASSERT_TRUE(trimmed == path || trimmed + "\\accdata" == path);

        const std::vector<std::string> parts = [&path] {
            std::vector<std::string> all = ReadLines(path, '\\');
            std::erase(all, "");
            return all;
        }();
        ASSERT_EQ(StringUtils::DoesPathContainArchives(path),
                  parts.size() > 2 && parts[parts.size() - 2] == "archives");
        ASSERT_EQ(HelperUtils::IsUnitTestRun(path), Lowered(path).find("\\out\\") != std::string::npos &&
                                                        Lowered(path).find("\\testresults\\") != std::string::npos);
    }
}

TEST_F(AnyTextTest, PathsArePutTogetherWithinThePlatformsLimit)
{
    for (int round = 0; round < kRounds; ++round)
    {
        const std::string first = Text();
        const std::string second = Text();

        const std::string combined = Paths::CombinePaths(first, second);
        ASSERT_TRUE(combined.size() < MAX_PATH || first.empty() || second.empty()) << combined.size();

        std::string canonical = first;
        StringUtils::Canonicalize(canonical);
        ASSERT_TRUE(canonical == first || canonical.size() < MAX_PATH) << canonical.size();
    }
}

TEST_F(AnyTextTest, HostsAndPermissionsAreAnswered)
{
    for (int round = 0; round < kRounds; ++round)
    {
        const std::string path = (Below(2) == 0 ? "\\\\" : "") + Text();

        const std::string host = Paths::GetHost(path);
        ASSERT_EQ(host.find('\\'), std::string::npos);
        ASSERT_EQ(host, Lowered(host));
        ASSERT_TRUE(host == "127.0.0.1" || Lowered(path).starts_with("\\\\" + host));

        if (path.find("c:\\windows") != std::string::npos && path.find("c:\\windows\\temp") == std::string::npos)
        {
            ASSERT_FALSE(Paths::SecurityCheckPath(path));
        }
        else if (path.size() > 3)
        {
            ASSERT_TRUE(Paths::SecurityCheckPath(path));
        }
    }
}

TEST_F(AnyTextTest, FileNamesAreSafe)
{
    const std::regex invalid("[^a-zA-Z0-9_ .-]");
    for (int round = 0; round < kRounds / 4; ++round)
    {
        const std::string name = Text();
        std::string expected = std::regex_replace(name, invalid, "");
        while (expected.ends_with(' ') || expected.ends_with('.'))
        {
            expected.pop_back();
        }

        ASSERT_EQ(Paths::RemoveInvalidCharactersFromFileName(name), expected);
        ASSERT_EQ(Paths::SanitiseFileName(name), Lowered(expected)); // in the C locale
    }
}
