#include <UtilsLib/platform/Base64Codec.h>

#include <UtilsLib/WindowsTypes.h>
#include <UtilsLib/platform/Processor.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <random>
#include <string>
#include <vector>

using UtilsLib::Platform::Base64Codec;
using namespace UtilsLib::Platform;

namespace
{

/// Memory whose end is the end of a page that may be touched: one byte further is a fault.
class EndOfMemory
{
public:
    explicit EndOfMemory(std::size_t most)
        : m_pages(static_cast<char*>(VirtualAlloc(nullptr, 2 * kPage, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE)))
    {
        DWORD old = 0;
        if (m_pages == nullptr || most > kPage || !VirtualProtect(m_pages + kPage, kPage, PAGE_NOACCESS, &old))
        {
            throw std::bad_alloc();
        }
    }
    ~EndOfMemory()
    {
        VirtualFree(m_pages, 0, MEM_RELEASE);
    }
    EndOfMemory(const EndOfMemory&) = delete;
    EndOfMemory& operator=(const EndOfMemory&) = delete;

    /// The last `size` bytes, after at least one that guards the front.
    template <typename Character>
    Character* Last(std::size_t size)
    {
        std::memset(m_pages, kGuard, kPage);
        return reinterpret_cast<Character*>(m_pages + kPage - size);
    }
    bool FrontIsUntouched(std::size_t size) const
    {
        return std::all_of(m_pages, m_pages + kPage - size, [](char c) { return c == kGuard; });
    }

private:
    static constexpr std::size_t kPage = 4096;
    static constexpr char kGuard = 0x6B;
    char* m_pages;
};

struct Named
{
    const char* name;
    const Base64Codec* codec;
    bool runs;
};

class Base64CodecTest : public testing::TestWithParam<Named>
{
protected:
    void SetUp() override
    {
        if (!GetParam().runs)
        {
            GTEST_SKIP() << "this processor does not have it";
        }
    }

    const Base64Codec& m_codec = *GetParam().codec;
};

std::vector<unsigned char> AnyBytes(std::size_t size)
{
    std::mt19937 random(static_cast<unsigned int>(size));
    std::vector<unsigned char> data(size);
    std::generate(data.begin(), data.end(), [&random] { return static_cast<unsigned char>(random()); });
    return data;
}

constexpr std::size_t kLongest = 330;

} // namespace

INSTANTIATE_TEST_SUITE_P(Each, Base64CodecTest,
                         testing::Values(Named{"Portable", &PortableBase64(), true},
                                         Named{"Ssse3", &Ssse3Base64(), ProcessorHasSsse3()},
                                         Named{"Avx2", &Avx2Base64(), ProcessorHasAvx2()}),
                         [](const testing::TestParamInfo<Named>& tested) { return tested.param.name; });

TEST_P(Base64CodecTest, EncodesEveryLengthAsThePortableOneAndTouchesNothingElse)
{
    EndOfMemory source(kLongest);
    EndOfMemory target(2 * kLongest);
    for (std::size_t size = 0; size <= kLongest; ++size)
    {
        const std::vector<unsigned char> data = AnyBytes(size);
        std::string expected((size + 2) / 3 * 4, '\0');
        PortableBase64().encode(data.data(), size, expected.data());
        unsigned char* const in = source.Last<unsigned char>(size);
        std::copy(data.begin(), data.end(), in);
        char* const out = target.Last<char>(expected.size());

        m_codec.encode(in, size, out);

        ASSERT_EQ(std::string(out, expected.size()), expected) << size;
        ASSERT_TRUE(target.FrontIsUntouched(expected.size())) << size;
    }
}

TEST_P(Base64CodecTest, DecodesEveryLengthAndEveryEarlyEndAsThePortableOneAndTouchesNothingElse)
{
    EndOfMemory source(kLongest);
    EndOfMemory target(kLongest);
    std::string good(kLongest / 3 * 4, '\0');
    PortableBase64().encode(AnyBytes(kLongest / 3 * 3).data(), kLongest / 3 * 3, good.data());
    std::mt19937 random(5);
    for (std::size_t size = 0; size <= kLongest; ++size)
    {
        const std::size_t room = MostBase64Bytes(size);
        for (std::size_t end = 0; end <= size; ++end)
        {
            char* const in = source.Last<char>(size);
            std::copy_n(good.begin(), size, in);
            if (end < size)
            {
                in[end] = "=-_ \n\0@[`{:,.\x80\xC1\xFF"[random() % 16];
            }
            std::vector<unsigned char> expected(room);
            expected.resize(PortableBase64().decode(in, size, expected.data()));
            unsigned char* const out = target.Last<unsigned char>(room);

            const std::size_t count = m_codec.decode(in, size, out);

            ASSERT_EQ(std::vector<unsigned char>(out, out + count), expected) << size << ' ' << end;
            ASSERT_TRUE(target.FrontIsUntouched(room)) << size << ' ' << end;
        }
    }
}

TEST_P(Base64CodecTest, TellsEveryForeignByteAtEveryPlaceOfAVector)
{
    for (std::size_t place = 0; place < 64; ++place)
    {
        std::string text(96, 'A');
        for (int c = 0; c < 256; ++c)
        {
            text[place] = static_cast<char>(c);
            std::vector<unsigned char> expected(72);
            std::vector<unsigned char> data(72);
            expected.resize(PortableBase64().decode(text.data(), text.size(), expected.data()));
            data.resize(m_codec.decode(text.data(), text.size(), data.data()));
            ASSERT_EQ(data, expected) << place << ' ' << c;
        }
    }
}

TEST(Base64CodecTest, TheBestThatTheProcessorRunsIsChosen)
{
    const Base64Codec& best = ProcessorHasAvx2()    ? Avx2Base64()
                              : ProcessorHasSsse3() ? Ssse3Base64()
                                                    : PortableBase64();
    EXPECT_EQ(&FastestBase64(), &best);
    EXPECT_TRUE(ProcessorHasSsse3() || !ProcessorHasAvx2());
}

TEST(Base64CodecTest, TheMostBytesThatCharactersStandFor)
{
    EXPECT_EQ(MostBase64Bytes(0), 0u);
    EXPECT_EQ(MostBase64Bytes(1), 0u);
    EXPECT_EQ(MostBase64Bytes(2), 1u);
    EXPECT_EQ(MostBase64Bytes(3), 2u);
    EXPECT_EQ(MostBase64Bytes(4), 3u);
    EXPECT_EQ(MostBase64Bytes(0xFFFFFFFF), 3221225471u);
}
