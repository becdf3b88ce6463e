#include <UtilsLib/text/Base64.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <clocale>
#include <random>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

using UtilsLib::Base64;
using namespace std::string_literals;

namespace
{

using Bytes = std::vector<unsigned char>;

constexpr std::string_view kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

Bytes BytesOf(std::string_view text)
{
    return {text.begin(), text.end()};
}

/// Bit by bit, as the definition reads.
std::string EncodedByBits(const Bytes& data)
{
    std::string text;
    for (std::size_t bit = 0; bit < data.size() * 8; bit += 6)
    {
        unsigned int value = 0;
        for (std::size_t i = bit; i < bit + 6; ++i)
        {
            const bool set = i / 8 < data.size() && (data[i / 8] >> (7 - i % 8) & 1) != 0;
            value = value << 1 | (set ? 1 : 0);
        }
        text += kAlphabet[value];
    }
    text.resize((text.size() + 3) / 4 * 4, '=');
    return text;
}

Bytes DecodedByBits(std::string_view text)
{
    Bytes data;
    unsigned int bits = 0;
    unsigned int collected = 0;
    for (const char character : text)
    {
        const std::size_t value = kAlphabet.find(character);
        if (value == std::string_view::npos)
        {
            break;
        }
        collected = (collected << 6 | static_cast<unsigned int>(value)) & 0xFFFF;
        bits += 6;
        if (bits >= 8)
        {
            bits -= 8;
            data.push_back(static_cast<unsigned char>(collected >> bits));
        }
    }
    return data;
}

Bytes AnyBytes(std::size_t size, unsigned int seed)
{
    std::mt19937 random(seed);
    Bytes data(size);
    std::generate(data.begin(), data.end(), [&random] { return static_cast<unsigned char>(random()); });
    return data;
}

struct Pair
{
    std::string_view plain;
    std::string_view encoded;
};

// RFC 4648, 9 and 10.
constexpr Pair kPublished[] = {
    {"", ""},
    {"f", "Zg=="},
    {"fo", "Zm8="},
    {"foo", "Zm9v"},
    {"foob", "Zm9vYg=="},
    {"fooba", "Zm9vYmE="},
    {"foobar", "Zm9vYmFy"},
    {"\x14\xFB\x9C\x03\xD9\x7E", "FPucA9l+"},
    {"\x14\xFB\x9C\x03\xD9", "FPucA9k="},
    {"\x14\xFB\x9C\x03", "FPucAw=="},
    {"Ma", "TWE="},
};

} // namespace

TEST(Base64Test, ThePublishedExamplesHoldBothWays)
{
    for (const auto& [plain, encoded] : kPublished)
    {
        EXPECT_EQ(Base64::encode(BytesOf(plain)), encoded);
        EXPECT_EQ(Base64::decode(std::string(encoded)), BytesOf(plain));
    }
}

TEST(Base64Test, TheAlphabetIsSixtyFourAsciiCharacters)
{
    for (int c = 0; c < 256; ++c)
    {
        EXPECT_EQ(Base64::is_base64(static_cast<unsigned char>(c)),
                  kAlphabet.find(static_cast<char>(c)) != std::string_view::npos)
            << c;
    }
}

TEST(Base64Test, TheAlphabetIsTheSameInEveryLocale)
{
    ASSERT_NE(std::setlocale(LC_ALL, "English_United States.1252"), nullptr);
    ASSERT_NE(std::isalnum(0xE4), 0);

    EXPECT_FALSE(Base64::is_base64(0xE4));
    EXPECT_TRUE(Base64::decode("\xE4\xE4\xE4\xE4").empty());

    std::setlocale(LC_ALL, "C");
}

TEST(Base64Test, EveryByteStandsAtEveryPlaceOfAGroup)
{
    for (unsigned int byte = 0; byte < 256; ++byte)
    {
        for (std::size_t place = 0; place < 3; ++place)
        {
            for (std::size_t size = place + 1; size <= 3; ++size)
            {
                Bytes data(size, 0x5A);
                data[place] = static_cast<unsigned char>(byte);
                const std::string text = Base64::encode(data);
                EXPECT_EQ(text, EncodedByBits(data));
                EXPECT_EQ(Base64::decode(text), data);
            }
        }
    }
}

TEST(Base64Test, EveryLengthComesBack)
{
    for (unsigned int size = 0; size <= 600; ++size)
    {
        const Bytes data = AnyBytes(size, size);
        const std::string text = Base64::encode(data);
        ASSERT_EQ(text, EncodedByBits(data)) << size;
        ASSERT_EQ(Base64::decode(text), data) << size;
    }
    for (const unsigned int size :
         {6141u, 6142u, 6143u, 6144u, 6145u, 6146u, 6147u, 12'287u, 12'288u, 12'289u, 20'000u})
    {
        const Bytes data = AnyBytes(size, size);
        const std::string text = Base64::encode(data);
        ASSERT_EQ(text, EncodedByBits(data)) << size;
        ASSERT_EQ(Base64::decode(text), data) << size;
    }
    const Bytes large = AnyBytes(5'000'003, 1);
    EXPECT_TRUE(Base64::decode(Base64::encode(large)) == large);
}

TEST(Base64Test, BothWaysOfHandingOverAreTheSame)
{
    const Bytes data = AnyBytes(100, 2);
    const std::string text = Base64::encode(data);

    EXPECT_EQ(Base64::encode(data.data(), 100), text);
    EXPECT_EQ(Base64::encode(data.data(), 50), EncodedByBits({data.begin(), data.begin() + 50}));
    EXPECT_EQ(Base64::decode(text.data(), static_cast<unsigned int>(text.size())), data);
    EXPECT_EQ(Base64::decode(text.data(), 40), Bytes(data.begin(), data.begin() + 30));
}

TEST(Base64Test, NothingAtANullPointerIsNothing)
{
    EXPECT_EQ(Base64::encode(nullptr, 0), "");
    EXPECT_EQ(Base64::encode(Bytes()), "");
    EXPECT_TRUE(Base64::decode(nullptr, 0).empty());
    EXPECT_TRUE(Base64::decode(std::string()).empty());
}

TEST(Base64Test, AnIncompleteGroupAtTheEndIsOneOrTwoBytesOrNone)
{
    EXPECT_EQ(Base64::decode("Zm9vY"), BytesOf("foo"));
    EXPECT_EQ(Base64::decode("Zm9vYm"), BytesOf("foob"));
    EXPECT_EQ(Base64::decode("Zm9vYmE"), BytesOf("fooba"));
    EXPECT_TRUE(Base64::decode("Z").empty());
    EXPECT_EQ(Base64::decode("Z/"), BytesOf("g")); // bits beyond the last byte are dropped
}

TEST(Base64Test, DecodingEndsAtTheFirstForeignCharacter)
{
    EXPECT_EQ(Base64::decode("TW!E"), BytesOf("M"));
    EXPECT_EQ(Base64::decode("TWE=TWE="), BytesOf("Ma"));
    EXPECT_EQ(Base64::decode("TWFu\r\nTWFu"), BytesOf("Man"));
    EXPECT_EQ(Base64::decode("TWFu\0TWFu"s), BytesOf("Man"));
    EXPECT_TRUE(Base64::decode("=TWFu").empty());
    EXPECT_TRUE(Base64::decode(" TWFu").empty());
    EXPECT_TRUE(Base64::decode("====").empty());
}

TEST(Base64Test, EveryForeignByteEndsTheDataAtEveryPlace)
{
    const std::string good = Base64::encode(AnyBytes(96, 3));
    for (std::size_t place = 0; place < good.size(); ++place)
    {
        std::string text = good;
        for (int c = 0; c < 256; ++c)
        {
            text[place] = static_cast<char>(c);
            ASSERT_EQ(Base64::decode(text), DecodedByBits(text)) << place << ' ' << c;
        }
    }
}

TEST(Base64Test, ALongTextEndsAtItsFirstForeignCharacterToo)
{
    const std::string good = Base64::encode(AnyBytes(30'000, 4));
    for (const std::size_t place : {0u, 1u, 4000u, 8190u, 8191u, 8192u, 8193u, 16'383u, 16'384u, 16'386u, 39'999u})
    {
        std::string text = good;
        text[place] = '=';
        EXPECT_EQ(Base64::decode(text), DecodedByBits(text)) << place;
        EXPECT_EQ(Base64::decode(text.data(), static_cast<unsigned int>(place)), DecodedByBits(text)) << place;
    }
}

TEST(Base64Test, WhatStandsBehindAnEarlyEndTakesNoMemory)
{
    EXPECT_EQ(Base64::decode('=' + std::string(1'000'000, 'A')).capacity(), 0u);
    EXPECT_EQ(Base64::decode("TWFu=" + std::string(1'000'000, 'A')).capacity(), 3u);
    EXPECT_EQ(Base64::decode("TWFu=" + std::string(100, 'A')).capacity(), 3u);
}

TEST(Base64Test, TextsByChanceAreDecodedAsDefined)
{
    constexpr unsigned int kSeed = 20260101;
    SCOPED_TRACE("seed " + std::to_string(kSeed));
    std::mt19937 random(kSeed);
    for (int round = 0; round < 20'000; ++round)
    {
        std::string text(random() % 200, '\0');
        const unsigned int foreign = random() % 64; // one of so many characters
        for (char& character : text)
        {
            character =
                random() % 64 < foreign / 16 ? static_cast<char>(random()) : kAlphabet[random() % kAlphabet.size()];
        }
        ASSERT_EQ(Base64::decode(text), DecodedByBits(text)) << testing::PrintToString(text);
    }
}

TEST(Base64Test, ATextLongerThanAnyStringIsRefusedBeforeAByteIsRead)
{
    const unsigned char one = 0;
    EXPECT_THROW(Base64::encode(&one, 0xFFFFFFFF), std::length_error);
    EXPECT_THROW(Base64::encode(&one, 0xFFFFFFFE), std::length_error);
    EXPECT_THROW(Base64::encode(&one, 0xC0000000), std::length_error); // whose size has 33 bits and ends in zeros
    EXPECT_THROW(Base64::encode(&one, 0x60000000), std::length_error);
}
