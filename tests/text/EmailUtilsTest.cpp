#include <UtilsLib/text/EmailUtils.h>

#include <tests/support/TextGenerator.h>
#include <tests/text/EmailPattern.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <regex>
#include <string>
#include <string_view>

using TestSupport::TextGenerator;
using UtilsLib::EmailUtils;
using namespace std::string_literals;

namespace
{

constexpr std::string_view kLetters = "abcXYZ019";
constexpr std::string_view kInteresting = "@.@.\"\\[]:-019a \t\n\r\v\f!\x7F\x80\xFF+~(),;<>2556";

bool Matches(const std::string& address)
{
    static const std::regex pattern(TestSupport::kEmailPattern);
    return std::regex_match(address, pattern);
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
        std::string address = Local() + '@' + (m_text.OneIn(3) ? Literal() : Domain());
        if (m_text.OneIn(8))
        {
            Lengthen(address);
        }
        return m_text.OneIn(3) ? address : m_text.Damaged(address, 3, kInteresting);
    }

private:
    std::string Local()
    {
        if (m_text.OneIn(3))
        {
            return '"' + Characters("ab!#[]@.:\x01\x7F", "ab \t\"\\@]\x01\x7F", 0) + '"';
        }
        std::string local = m_text.Run("ab0!#$%&'*+/=?^_`{|}~-", 1, 8);
        while (m_text.OneIn(2))
        {
            local += '.' + m_text.Run("ab0!#$%&'*+/=?^_`{|}~-", 1, 4);
        }
        return local;
    }
    std::string Characters(std::string_view plain, std::string_view escaped, std::size_t least)
    {
        std::string text;
        for (std::size_t count = least + m_text.Below(6); count > 0; --count)
        {
            text += m_text.OneIn(3) ? "\\"s + m_text.CharacterOf(escaped) : std::string(1, m_text.CharacterOf(plain));
        }
        return text;
    }
    std::string Label()
    {
        std::string label(1, m_text.CharacterOf(kLetters));
        if (m_text.OneIn(2))
        {
            label += m_text.Run("ab-0", 0, 5) + m_text.CharacterOf(kLetters);
        }
        return label;
    }
    std::string Domain()
    {
        std::string domain = Label();
        do
        {
            domain += '.' + Label();
        } while (m_text.OneIn(2));
        return domain;
    }
    std::string Octet()
    {
        return m_text.OneIn(8) ? m_text.Run("0123456789", 1, 4)
                               : std::to_string(m_text.Below(m_text.OneIn(8) ? 300 : 256));
    }
    std::string Literal()
    {
        const std::string front = '[' + Octet() + '.' + Octet() + '.' + Octet() + '.';
        if (m_text.OneIn(2))
        {
            return front + Octet() + ']';
        }
        return front + m_text.Run("ab-0", 0, 4) + m_text.CharacterOf(kLetters) + ':' +
               Characters("ab!\\[]@.:\x01\x7F", "ab \t\"\\@]\x01\x7F", 1) + ']';
    }
    /// To lengths about the limit, by one character of it again and again.
    void Lengthen(std::string& address)
    {
        const std::size_t size = 250 + m_text.Below(10);
        const std::size_t at = m_text.Below(address.size());
        if (address.size() < size)
        {
            address.insert(at, size - address.size(), address[at]);
        }
    }

    TextGenerator m_text;
};

/// How often both answers came; a comparison in which one hardly comes compares nothing.
struct Answers
{
    int valid = 0;
    int invalid = 0;

    void Compare(const std::string& address)
    {
        const bool expected = Matches(address);
        ASSERT_EQ(EmailUtils::IsValidEmail(address), expected) << testing::PrintToString(address);
        ++(expected ? valid : invalid);
    }
};

std::string WithLabels(std::size_t size)
{
    return "a@" + std::string(size - 4, 'b') + ".c";
}

} // namespace

TEST(EmailUtilsTest, AddressesOfEveryForm)
{
    for (const std::string& address :
         {"a@b.c"s, "first.last@example.co.uk"s, "!#$%&'*+/=?^_`{|}~-@x.y"s, "-@0.0"s, "a@b-c.d--e.1"s, "\"\"@b.c"s,
          "\"a@b\"@c.d"s, "\"a\\ b\"@b.cc"s, "\"a\\\tb\"@b.c"s, "\"\\\"\\\\\"@b.c"s, "\"\x01\x7F\"@b.c"s,
          "a@[1.2.3.4]"s, "a@[0.10.199.255]"s, "a@[1.2.3.x:abc]"s, "a@[1.2.3.4:x]"s, "a@[1.2.3.-x:]]"s,
          "a@[1.2.3.x:\\]"s, "a@[1.2.3.x:\\ \\\t]"s, "a@[1.2.3.x:\\\\ ]"s})
    {
        EXPECT_TRUE(EmailUtils::IsValidEmail(address)) << address;
        EXPECT_TRUE(Matches(address)) << address;
    }
}

TEST(EmailUtilsTest, WhatIsNoAddress)
{
    for (const std::string& address : {""s,
                                       "@"s,
                                       "a"s,
                                       "a@"s,
                                       "@b.c"s,
                                       "a@b"s,
                                       "a@b."s,
                                       "a@.b"s,
                                       "a@b..c"s,
                                       "a@-b.c"s,
                                       "a@b-.c"s,
                                       "a@b.c-"s,
                                       ".a@b.c"s,
                                       "a.@b.c"s,
                                       "a..b@c.d"s,
                                       "a@b@c.d"s,
                                       "a b@c.d"s,
                                       " a@b.c"s,
                                       "a@b.c "s,
                                       "a@b.c\n"s,
                                       "a@b.c\0"s,
                                       "a\0b@c.d"s,
                                       "\xE4@b.c"s,
                                       "a@\xE4.c"s,
                                       "a@b_c.d"s,
                                       "(a)@b.c"s,
                                       "\"a\"b@c.d"s,
                                       "a\"b\"@c.d"s,
                                       "\"@b.c"s,
                                       "\"a\"\"b\"@c.d"s,
                                       "\"\\\"@b.c"s,
                                       "\"\n\"@b.c"s,
                                       "\"\\\n\"@b.c"s,
                                       "\"\\\r\"@b.c"s,
                                       "\"\\\x80\"@b.c"s,
                                       "\"\t\"@b.c"s,
                                       "a@[1.2.3]"s,
                                       "a@[1.2.3.4"s,
                                       "a@1.2.3.4]"s,
                                       "a@[1.2.3.4]x"s,
                                       "a@[1.2.3.256]"s,
                                       "a@[01.2.3.4]"s,
                                       "a@[1.2.3.04]"s,
                                       "a@[1.2.3.]"s,
                                       "a@[1.2.3.4.5]"s,
                                       "a@[x:abc]"s,
                                       "a@[IPv6:::1]"s,
                                       "a@[1.2.3.x:]"s,
                                       "a@[1.2.3.:x]"s,
                                       "a@[1.2.3.x-:y]"s,
                                       "a@[1.2.3.x: ]"s,
                                       "a@[1.2.3.x:\\  ]"s,
                                       "a@[1.2.3.x:\\\n]"s,
                                       "a@[1.2.3.x:\x80]"s})
    {
        EXPECT_FALSE(EmailUtils::IsValidEmail(address)) << testing::PrintToString(address);
        EXPECT_FALSE(Matches(address)) << testing::PrintToString(address);
    }
}

TEST(EmailUtilsTest, AQuotedBlankNeedsItsBackslash)
{
    EXPECT_FALSE(EmailUtils::IsValidEmail("\"a b\"@b.cc"));
    EXPECT_TRUE(EmailUtils::IsValidEmail("\"a\\ b\"@b.cc"));
}

TEST(EmailUtilsTest, ATagStandsBehindThreeNumbersOnly)
{
    EXPECT_TRUE(EmailUtils::IsValidEmail("a@[1.2.3.x:abc]"));
    EXPECT_FALSE(EmailUtils::IsValidEmail("a@[x:abc]"));
}

TEST(EmailUtilsTest, ABackslashInATaggedTextIsACharacterAsWell)
{
    EXPECT_TRUE(EmailUtils::IsValidEmail("a@[1.2.3.x:\\]"));
    EXPECT_TRUE(EmailUtils::IsValidEmail("a@[1.2.3.x:\\\\ ]"));
}

TEST(EmailUtilsTest, TheLongestAddressHas255Bytes)
{
    EXPECT_TRUE(EmailUtils::IsValidEmail(WithLabels(254)));
    EXPECT_TRUE(EmailUtils::IsValidEmail(WithLabels(255)));
    EXPECT_FALSE(EmailUtils::IsValidEmail(WithLabels(256)));
    EXPECT_FALSE(EmailUtils::IsValidEmail(WithLabels(10'000'000)));
    EXPECT_FALSE(EmailUtils::IsValidEmail(std::string(10'000'000, '"')));
}

TEST(EmailUtilsTest, EveryByteAtEveryPlaceIsAnsweredAsThePatternAnswers)
{
    for (const std::string& address : {"a.b@c.d-e"s, "\"a\\b\"@c.d"s, "a@[1.20.3.t:b\\c]"s, "a@[1.2.3.4]"s})
    {
        for (std::size_t at = 0; at < address.size(); ++at)
        {
            for (int byte = 0; byte < 256; ++byte)
            {
                std::string changed = address;
                changed[at] = static_cast<char>(byte);
                ASSERT_EQ(EmailUtils::IsValidEmail(changed), Matches(changed)) << testing::PrintToString(changed);
            }
        }
    }
}

TEST(EmailUtilsTest, EverySmallPartIsAnsweredAsThePatternAnswers)
{
    Answers answers;
    TestSupport::ForEveryText("a\\ :]\t", 5,
                              [&](const std::string& text) { answers.Compare("a@[1.2.3.t:" + text + "]"); });
    TestSupport::ForEveryText("a\\\" @", 5, [&](const std::string& text) { answers.Compare("\"" + text + "\"@b.c"); });
    TestSupport::ForEveryText("a-.", 6, [&](const std::string& text) { answers.Compare("a@" + text); });
    TestSupport::ForEveryText("a.@\"", 5, [&](const std::string& text) { answers.Compare(text + "@b.c"); });
    TestSupport::ForEveryText("a-1:]", 4, [&](const std::string& text) { answers.Compare("a@[1.2.3." + text + "]"); });
    EXPECT_GT(answers.valid, 1000);
    EXPECT_GT(answers.invalid, 1000);
}

TEST(EmailUtilsTest, EveryNumberOfAnAddressIsAnsweredAsThePatternAnswers)
{
    Answers answers;
    TestSupport::ForEveryText("0123456789", 3, [&](const std::string& number) {
        answers.Compare("a@[" + number + ".2.3.4]");
        answers.Compare("a@[1.2.3." + number + "]");
    });
    EXPECT_EQ(answers.valid, 2 * 256);
}

TEST(EmailUtilsTest, AddressesByChanceAreAnsweredAsThePatternAnswers)
{
    constexpr unsigned int kSeed = 20260612;
    constexpr int kRounds = 120'000;
    std::printf("seed %u, %d addresses\n", kSeed, kRounds);
    SCOPED_TRACE("seed " + std::to_string(kSeed));
    AddressGenerator generator(kSeed);
    Answers answers;
    for (int round = 0; round < kRounds; ++round)
    {
        answers.Compare(generator.Next());
        if (HasFatalFailure())
        {
            return;
        }
    }
    EXPECT_GT(answers.valid, kRounds / 5);
    EXPECT_GT(answers.invalid, kRounds / 5);
}
