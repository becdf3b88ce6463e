#include <UtilsLib/cloud/OfficeAdapterBasedRegexURLValidator.h>

#include <UtilsLib/WindowsTypes.h>
#include <UtilsLib/platform/UniqueHandle.h>
#include <tests/cloud/UrlPattern.h>
#include <tests/support/SlotOf.h>
#include <tests/support/TextGenerator.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdio>
#include <functional>
#include <regex>
#include <string>
#include <string_view>
#include <thread>
#include <type_traits>

using TestSupport::SlotOf;
using TestSupport::TextGenerator;
using namespace std::string_literals;

namespace
{

using Validator = OfficeAdapterBasedRegexURLValidator;

constexpr std::string_view kMarks = "-()_.!~*';/?:@&=+$,";
constexpr std::string_view kInteresting = "%%:/).!';/?:, \t \t\n\r\v\f#[]{}\\\"^`|<>09afAFgG\x7F\x80\xA0\xFF";

bool Matches(const std::string& address)
{
    static const std::regex pattern(TestSupport::kUrlPattern);
    return std::regex_match(address, pattern);
}

bool IsValid(const std::string& address)
{
    return Validator().ValidateURL(address);
}

std::string Sanitized(const std::string& address)
{
    return Validator().SanitizeURL(address);
}

std::string After(const std::string& address, const std::vector<std::string>& patterns)
{
    return Validator().GetUrlPathAfterPattern(address, patterns);
}

/// Runs `body` on a stack of 64 MiB: the standard library's matcher needs some 600 bytes a character.
void RunOnALargeStack(const std::function<void()>& body)
{
    struct Entry
    {
        static DWORD WINAPI Run(void* function)
        {
            (*static_cast<const std::function<void()>*>(function))();
            return 1;
        }
    };
    const UtilsLib::Platform::UniqueHandle thread(CreateThread(nullptr, 64u << 20, &Entry::Run,
                                                               const_cast<std::function<void()>*>(&body),
                                                               STACK_SIZE_PARAM_IS_A_RESERVATION, nullptr));
    ASSERT_TRUE(thread);
    ASSERT_EQ(WaitForSingleObject(thread.Get(), INFINITE), static_cast<DWORD>(WAIT_OBJECT_0));
    DWORD code = 0;
    GetExitCodeThread(thread.Get(), &code);
    ASSERT_EQ(code, 1u) << "the stack was too small";
}

/// Addresses as the pattern describes them, most of them valid.
class AddressGenerator
{
public:
    explicit AddressGenerator(unsigned int seed) : m_text(seed)
    {
    }

    std::string Next()
    {
        std::string address(m_text.Choice({"http://", "https://", "ftp://", "ftps://", "gopher://", "telnet://",
                                           "nntp://", "mailto:", "news:", "news://"}));
        address += Body();
        if (m_text.OneIn(3))
        {
            address += m_text.CharacterOf(").!';/?:,-a");
            address += m_text.CharacterOf(" \t \t\n");
        }
        return m_text.OneIn(3) ? address : m_text.Damaged(address, 3, kInteresting);
    }

private:
    std::string Body()
    {
        std::string body;
        for (std::size_t count = m_text.OneIn(20) ? 0 : 1 + m_text.Below(12); count > 0; --count)
        {
            switch (m_text.Below(3))
            {
            case 0:
                body += '%' + m_text.Run("0189afAF", 2, 2);
                break;
            case 1:
                body += m_text.Run(kMarks, 1, 3);
                break;
            default:
                body += m_text.Run("azAZ09", 1, 8);
            }
        }
        return body;
    }

    TextGenerator m_text;
};

} // namespace

TEST(OfficeAdapterBasedRegexURLValidatorTest, EverySchemeIsKnownInSmallLettersOnly)
{
    for (const char* scheme :
         {"http://", "https://", "ftp://", "ftps://", "gopher://", "telnet://", "nntp://", "mailto:", "news:"})
    {
        EXPECT_TRUE(IsValid(scheme + "host"s)) << scheme;
        EXPECT_FALSE(IsValid(scheme)) << scheme;
        std::string capital = scheme + "host"s;
        capital[0] = static_cast<char>(capital[0] - 'a' + 'A');
        EXPECT_FALSE(IsValid(capital)) << capital;
    }
    for (const char* address : {"host", "://host", "httpss://host", "gophers://host", "file://host", "http:host",
                                "http:/host", "mailto", "mailto host", "HTTP://host", "xhttp://host", " http://host"})
    {
        EXPECT_FALSE(IsValid(address)) << address;
    }
}

TEST(OfficeAdapterBasedRegexURLValidatorTest, ASchemeWithoutSlashesTakesThemAsText)
{
    EXPECT_TRUE(IsValid("mailto:someone@host"));
    EXPECT_TRUE(IsValid("mailto://x"));
    EXPECT_TRUE(IsValid("news:/"));
}

TEST(OfficeAdapterBasedRegexURLValidatorTest, EveryByteIsAllowedOrNotAsThePatternSays)
{
    for (int byte = 0; byte < 256; ++byte)
    {
        const char character = static_cast<char>(byte);
        const bool allowed = (byte < 0x80 && std::isalnum(byte) != 0) ||
                             (character != '\0' && kMarks.find(character) != std::string_view::npos);
        for (const std::string& address :
             {"https://"s + character, "https://a"s + character + "b", "news:ab"s + character})
        {
            EXPECT_EQ(IsValid(address), allowed) << byte;
        }
    }
}

TEST(OfficeAdapterBasedRegexURLValidatorTest, APercentSignNeedsTwoHexadecimalDigits)
{
    EXPECT_TRUE(IsValid("https://host/a?b=c&d=%2F"));
    EXPECT_TRUE(IsValid("https://%00%ff%Fa"));
    EXPECT_FALSE(IsValid("https://host/a?b=c&d=%2"));
    EXPECT_FALSE(IsValid("https://host/%"));
    EXPECT_FALSE(IsValid("https://host/%%20"));
    EXPECT_FALSE(IsValid("https://host/%2g"));
    EXPECT_FALSE(IsValid("https://host/%g2"));
    EXPECT_FALSE(IsValid("https://host/%2. "));
}

TEST(OfficeAdapterBasedRegexURLValidatorTest, APunctuationMarkAndOneBlankMayEndTheAddress)
{
    for (const char mark : ").!';/?:,"s)
    {
        EXPECT_TRUE(IsValid("https://host/path"s + mark + ' ')) << mark;
        EXPECT_TRUE(IsValid("https://host/path"s + mark + '\t')) << mark;
    }
    for (const char mark : "-(_~*@&=+$a0%"s)
    {
        EXPECT_FALSE(IsValid("https://host/path"s + mark + ' ')) << mark;
    }
    EXPECT_FALSE(IsValid("https://host/path "));
    EXPECT_FALSE(IsValid("https://host/path.  "));
    EXPECT_FALSE(IsValid("https://host/path. ."));
    EXPECT_FALSE(IsValid("https://. ")); // no character of an address before the mark
    EXPECT_FALSE(IsValid("https:// "));
    EXPECT_TRUE(IsValid("https://.. "));
    for (const char other : "\n\r\v\f\0\xA0"s)
    {
        EXPECT_FALSE(IsValid("https://host/path."s + other)) << static_cast<int>(other);
    }
}

TEST(OfficeAdapterBasedRegexURLValidatorTest, NothingIsNoAddress)
{
    EXPECT_FALSE(IsValid(""));
    EXPECT_FALSE(IsValid("\0"s));
    EXPECT_FALSE(IsValid("https://a\0"s));
    EXPECT_FALSE(IsValid("https://a\nhttps://b"));
}

TEST(OfficeAdapterBasedRegexURLValidatorTest, AddressesOfAnyLengthAreChecked)
{
    std::string address = "https://" + std::string(20'000'000, 'a');
    EXPECT_TRUE(IsValid(address));
    EXPECT_TRUE(IsValid(address + ". "));
    EXPECT_FALSE(IsValid(address + "#"));
    address.insert(10'000'000, 1, '%');
    EXPECT_TRUE(IsValid(address));
    address.insert(10'000'000, 1, '%');
    EXPECT_FALSE(IsValid(address));
}

TEST(OfficeAdapterBasedRegexURLValidatorTest, AddressesByChanceAreAnsweredAsThePatternAnswers)
{
    constexpr unsigned int kSeed = 20260613;
    constexpr int kRounds = 120'000;
    std::printf("seed %u, %d addresses\n", kSeed, kRounds);
    SCOPED_TRACE("seed " + std::to_string(kSeed));
    AddressGenerator generator(kSeed);
    int valid = 0;
    for (int round = 0; round < kRounds; ++round)
    {
        const std::string address = generator.Next();
        const bool expected = Matches(address);
        ASSERT_EQ(IsValid(address), expected) << testing::PrintToString(address);
        valid += expected ? 1 : 0;
    }
    EXPECT_GT(valid, kRounds / 5);
    EXPECT_LT(valid, kRounds * 4 / 5);
}

TEST(OfficeAdapterBasedRegexURLValidatorTest, EverySmallTextIsAnsweredAsThePatternAnswers)
{
    TestSupport::ForEveryText("%a2. \t", 5, [](const std::string& text) {
        ASSERT_EQ(IsValid("news:" + text), Matches("news:" + text)) << testing::PrintToString(text);
    });
    TestSupport::ForEveryText("https:/", 4, [](const std::string& text) {
        ASSERT_EQ(IsValid("http" + text), Matches("http" + text)) << text;
        ASSERT_EQ(IsValid("ftp" + text + "a"), Matches("ftp" + text + "a")) << text;
    });
}

TEST(OfficeAdapterBasedRegexURLValidatorTest, LongAddressesAreAnsweredAsThePatternAnswers)
{
    RunOnALargeStack([] {
        TextGenerator generator(20260614);
        for (int round = 0; round < 40; ++round)
        {
            std::string address = "http://" + generator.Run("ab%2F.", 1000, 3000);
            const std::string good = "http://" + generator.Run("ab/.", 20'000, 50'000);
            EXPECT_EQ(IsValid(address), Matches(address));
            EXPECT_TRUE(IsValid(good) && Matches(good));
            address = generator.Damaged(good, 1, kInteresting);
            EXPECT_EQ(IsValid(address), Matches(address));
        }
    });
}

TEST(OfficeAdapterBasedRegexURLValidatorTest, ValidatingIsForAnyThread)
{
    const Validator validator;
    bool valid[4] = {};
    {
        std::vector<std::jthread> threads;
        for (bool& answer : valid)
        {
            threads.emplace_back([&validator, &answer] { answer = validator.ValidateURL("https://host/path"); });
        }
    }
    EXPECT_TRUE(valid[0] && valid[1] && valid[2] && valid[3]);
}

TEST(OfficeAdapterBasedRegexURLValidatorTest, TidyingRemovesBlanksWhereverTheyStand)
{
    EXPECT_EQ(Sanitized("  host/a b\t"), "https://host/ab");
    EXPECT_EQ(Sanitized(" h t t p : / / x "), "http://x");
    EXPECT_EQ(Sanitized("a\nb\rc\vd\fe"), "https://a\nb\rc\vd\fe");
    EXPECT_EQ(Sanitized("a\0 b"s), "https://a\0b"s);
    EXPECT_EQ(Sanitized("\xA0"), "https://\xA0");
}

TEST(OfficeAdapterBasedRegexURLValidatorTest, TidyingNothingIsNothing)
{
    EXPECT_EQ(Sanitized(""), "");
    EXPECT_EQ(Sanitized(" \t \t"), "");
}

TEST(OfficeAdapterBasedRegexURLValidatorTest, WebAddressesKeepTheirSchemeInAnyLetterCase)
{
    for (const char* address : {"http://x", "https://x", "HTTP://X", "hTTpS://x", "http://", "HTTPS://"})
    {
        EXPECT_EQ(Sanitized(address), address);
    }
}

TEST(OfficeAdapterBasedRegexURLValidatorTest, EveryOtherAddressGetsTheWebsSchemeInFront)
{
    EXPECT_EQ(Sanitized("host"), "https://host");
    EXPECT_EQ(Sanitized("ftp://host"), "https://ftp://host");
    EXPECT_EQ(Sanitized("http:/host"), "https://http:/host");
    EXPECT_EQ(Sanitized("https:/"), "https://https:/");
    EXPECT_EQ(Sanitized("xhttp://host"), "https://xhttp://host");
    EXPECT_EQ(Sanitized("mailto:x"), "https://mailto:x");
}

TEST(OfficeAdapterBasedRegexURLValidatorTest, EachPatternIsCutFromWhatTheEarlierOnesLeft)
{
    EXPECT_EQ(After("https://host/mc/x/y", {"/mc/", "x/"}), "y");
    EXPECT_EQ(After("https://host/mc/x/y", {"/mc/", "/mc/"}), "x/y");
    EXPECT_EQ(After("https://host/mc/x/y", {"x/", "/mc/"}), "y");
    EXPECT_EQ(After("a/mc/b/mc/c", {"/mc/"}), "b/mc/c");
    EXPECT_EQ(After("a/mc/b/mc/c", {"/mc/", "/mc/"}), "c");
    EXPECT_EQ(After("abc", {"abc"}), "");
    EXPECT_EQ(After("abc", {"abc", "abc"}), "");
}

TEST(OfficeAdapterBasedRegexURLValidatorTest, PatternsThatDoNotOccurChangeNothing)
{
    EXPECT_EQ(After("https://host/mc/x", {"/MC/", "nowhere", "https://host/mc/x/"}), "https://host/mc/x");
    EXPECT_EQ(After("https://host", {""}), "https://host");
    EXPECT_EQ(After("", {"a", ""}), "");
    EXPECT_EQ(After("", {}), "");
}

TEST(OfficeAdapterBasedRegexURLValidatorTest, CuttingRemovesTheBlanksOfTheAddressButNotOfThePatterns)
{
    EXPECT_EQ(After(" https: //host\t/a b ", {}), "https://host/ab");
    EXPECT_EQ(After("host / mc /x", {"/mc/"}), "x");
    EXPECT_EQ(After("host/ mc/x", {"/ mc/"}), "host/mc/x");
    EXPECT_EQ(After("a\0b c"s, {"\0"s}), "bc");
}

TEST(OfficeAdapterBasedRegexURLValidatorTest, ItIsUsedThroughTheInterface)
{
    Validator first;
    const Validator copy = first;
    Validator moved = std::move(first);
    moved = copy;
    IURLValidator* const validator = &moved;

    EXPECT_TRUE(validator->ValidateURL("https://host"));
    EXPECT_EQ(validator->SanitizeURL("host"), "https://host");
    EXPECT_EQ(validator->GetUrlPathAfterPattern("host/x", {"/"}), "x");
    static_assert(std::is_abstract_v<IURLValidator> && std::has_virtual_destructor_v<IURLValidator>);
    static_assert(sizeof(Validator) == sizeof(void*));
}

#if defined(__GNUC__)
TEST(OfficeAdapterBasedRegexURLValidatorTest, TheInterfacesFunctionsStandBehindItsDestructor)
{
    const std::size_t first = 2; // a destructor has two here
    EXPECT_EQ(SlotOf(&IURLValidator::ValidateURL), first);
    EXPECT_EQ(SlotOf(&IURLValidator::SanitizeURL), first + 1);
    EXPECT_EQ(SlotOf(&IURLValidator::GetUrlPathAfterPattern), first + 2);
}
#endif
