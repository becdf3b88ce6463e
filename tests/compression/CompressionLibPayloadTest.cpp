#include <UtilsLib/compression/CompressionLib.h>

#include <tests/compression/ZlibReference.h>
#include <tests/compression/data/ForeignGzip.h>
#include <tests/support/AllocationFault.h>
#include <tests/support/OpenHandles.h>
#include <tests/support/TempFolder.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <stdexcept>
#include <string>
#include <thread>

using TestSupport::AllocationFault;
using TestSupport::OpenHandles;
using TestSupport::TempFolder;
using UtilsLib::CompressionLib;
using namespace ZlibReference;

namespace
{

/// What the callbacks of one inflation were given.
struct Record
{
    std::string order; // 'b' for a begin call, 'c' for a chunk call
    std::vector<Chunk> chunks;
    Bytes data;

    static void Begin(void* context)
    {
        static_cast<Record*>(context)->order += 'b';
    }
    static void AddChunk(void* context, void* data, unsigned int offset, unsigned int length, unsigned int total)
    {
        auto* const record = static_cast<Record*>(context);
        const auto* const bytes = static_cast<const unsigned char*>(data);
        record->order += 'c';
        record->chunks.push_back({offset, length, total});
        record->data.insert(record->data.end(), bytes, bytes + length);
    }
};

unsigned int InflateInto(Record& record, const Bytes& input)
{
    return CompressionLib::InflatePayload(input, &Record::Begin, &record, &Record::AddChunk, &record);
}

/// Inflates with all three forms and checks that they agree with zlib's own rounds.
void ExpectInflatesAsZlibDoes(const Bytes& input, const TempFolder* folder = nullptr)
{
    const Inflation expected = InflatedByBuffers(input);
    Record record;
    ASSERT_EQ(InflateInto(record, input), expected.result);
    ASSERT_EQ(record.chunks, expected.chunks);
    ASSERT_TRUE(record.data == expected.data);

    Bytes output(3, 'x');
    ASSERT_EQ(CompressionLib::InflatePayload(input, output), expected.result);
    ASSERT_TRUE(output == expected.data);

    if (folder != nullptr)
    {
        ASSERT_EQ(CompressionLib::InflatePayload(input, *folder / "inflated"), expected.result);
        ASSERT_TRUE(folder->Read("inflated") == AsText(expected.data));
    }
}

Bytes operator+(Bytes left, const Bytes& right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

const std::size_t kSizes[] = {1,           2,
                              3,           257,
                              258,         4096,
                              65535,       65536,
                              kBuffer - 1, kBuffer,
                              kBuffer + 1, 2 * kBuffer - 1,
                              2 * kBuffer, 2 * kBuffer + 1,
                              3 * kBuffer, 1'000'000};

} // namespace

TEST(CompressionLibPayloadTest, AnEmptyPayloadDeflatesToNothingAndLeavesTheOutputUntouched)
{
    Bytes input;
    Bytes output = {1, 2, 3};

    EXPECT_EQ(CompressionLib::DeflatePayload(input, output), 0u);
    EXPECT_EQ(output, (Bytes{1, 2, 3}));
}

TEST(CompressionLibPayloadTest, DeflatedBytesAreExactlyZlibsAndInflateBack)
{
    ASSERT_NE(Deflated(Text(100'000), Container::Gzip, 8), Deflated(Text(100'000))); // the parameters do show
    TempFolder folder;
    for (const std::size_t size : kSizes)
    {
        for (const Bytes& data : {Text(size), Noise(size), Zeros(size)})
        {
            SCOPED_TRACE(std::to_string(size) + " bytes, the first is " + std::to_string(data[0]));
            Bytes input = data;
            Bytes output(5, 'x');

            const unsigned int result = CompressionLib::DeflatePayload(input, output);
            ASSERT_TRUE(output == Deflated(data));
            ASSERT_EQ(result, output.size());
            ASSERT_TRUE(input == data);
            EXPECT_EQ(output[0], 0x1F);
            EXPECT_EQ(output[1], 0x8B);
            ASSERT_NO_FATAL_FAILURE(ExpectInflatesAsZlibDoes(output, &folder));
        }
    }
}

TEST(CompressionLibPayloadTest, DeflatedSizesRoundMultiplesOfTheBufferAreWhole)
{
    for (const std::size_t size : {kBuffer - 1, kBuffer, kBuffer + 1, 2 * kBuffer - 1, 2 * kBuffer, 2 * kBuffer + 1})
    {
        Bytes input = NoiseDeflatingTo(size);
        Bytes output;

        ASSERT_EQ(CompressionLib::DeflatePayload(input, output), size);
        EXPECT_TRUE(output == Deflated(input));
    }
}

TEST(CompressionLibPayloadTest, DeflatingReplacesALongerOutput)
{
    Bytes input = Text(1000);
    Bytes output(500'000, 'x');

    EXPECT_EQ(CompressionLib::DeflatePayload(input, output), Deflated(input).size());
    EXPECT_EQ(output, Deflated(input));
}

TEST(CompressionLibPayloadTest, InputAndOutputMayBeTheSameVector)
{
    const Bytes original = Text(300'000);
    Bytes data = original;

    EXPECT_EQ(CompressionLib::DeflatePayload(data, data), Deflated(original).size());
    EXPECT_TRUE(data == Deflated(original));
    EXPECT_EQ(CompressionLib::InflatePayload(data, data), original.size());
    EXPECT_TRUE(data == original);
}

TEST(CompressionLibPayloadTest, NothingOfAnEmptyPayloadIsInflated)
{
    Record record;
    EXPECT_EQ(InflateInto(record, {}), 0u);
    EXPECT_EQ(record.order, "");

    Bytes output = {1, 2, 3};
    EXPECT_EQ(CompressionLib::InflatePayload({}, output), 0u);
    EXPECT_EQ(output, (Bytes{1, 2, 3}));
}

TEST(CompressionLibPayloadTest, ChunksComeInOrderAfterOneBeginCall)
{
    const Bytes data = Text(300'000);
    Record record;

    EXPECT_EQ(InflateInto(record, Deflated(data)), 300'000u);
    EXPECT_EQ(record.order, "bccc");
    EXPECT_EQ(record.chunks,
              (std::vector<Chunk>{{0, 131'072, 131'072}, {131'072, 131'072, 262'144}, {262'144, 37'856, 300'000}}));
    EXPECT_TRUE(record.data == data);
}

TEST(CompressionLibPayloadTest, TheCallbacksHaveContextsOfTheirOwn)
{
    Record begin;
    Record chunk;

    EXPECT_EQ(CompressionLib::InflatePayload(Deflated(Text(10)), &Record::Begin, &begin, &Record::AddChunk, &chunk),
              10u);
    EXPECT_EQ(begin.order, "b");
    EXPECT_EQ(chunk.order, "c");
}

TEST(CompressionLibPayloadTest, ANullCallbackIsLeftOut)
{
    const Bytes input = Deflated(Text(200'000));
    Record record;

    EXPECT_EQ(CompressionLib::InflatePayload(input, nullptr, nullptr, &Record::AddChunk, &record), 200'000u);
    EXPECT_EQ(CompressionLib::InflatePayload(input, &Record::Begin, &record, nullptr, nullptr), 200'000u);
    EXPECT_EQ(record.order, "ccb");
}

TEST(CompressionLibPayloadTest, APayloadThatInflatesToNothingGivesNoChunk)
{
    Record record;
    EXPECT_EQ(InflateInto(record, Deflated({})), 0u);
    EXPECT_EQ(record.order, "b");
}

TEST(CompressionLibPayloadTest, AWholeBufferThatEndsThePayloadIsOneChunk)
{
    Record record;
    EXPECT_EQ(InflateInto(record, Deflated(Text(kBuffer))), kBuffer);
    EXPECT_EQ(record.chunks, (std::vector<Chunk>{{0, kBuffer, kBuffer}}));
}

TEST(CompressionLibPayloadTest, InputLeftAfterAWholeBufferGivesAnEmptyChunk)
{
    const Bytes deflated = Deflated(Text(kBuffer));
    Bytes wrongCheck = deflated;
    wrongCheck[wrongCheck.size() - 8] ^= 1;
    for (const Bytes& input : {deflated + Bytes{0}, deflated + deflated, wrongCheck})
    {
        Record record;
        EXPECT_EQ(InflateInto(record, input), kBuffer);
        EXPECT_EQ(record.chunks, (std::vector<Chunk>{{0, kBuffer, kBuffer}, {kBuffer, 0, kBuffer}}));
    }
}

TEST(CompressionLibPayloadTest, WhatIsNotGzipInflatesToNothing)
{
    TempFolder folder;
    const Bytes text = Text(1000);
    for (const Bytes& input : {Deflated(text, Container::Zlib), Deflated(text, Container::Raw), text, Bytes{0x1F},
                               Bytes{0x1F, 0x8B}, Zeros(50), Noise(200'000)})
    {
        Record record;
        EXPECT_EQ(InflateInto(record, input), 0u);
        EXPECT_EQ(record.order, "b");

        Bytes output = {1, 2, 3};
        EXPECT_EQ(CompressionLib::InflatePayload(input, output), 0u);
        EXPECT_TRUE(output.empty());

        folder.Write("output", "old");
        EXPECT_EQ(CompressionLib::InflatePayload(input, folder / "output"), 0u);
        EXPECT_EQ(folder.Read("output"), "");
    }
}

TEST(CompressionLibPayloadTest, OnlyTheFirstMemberCounts)
{
    const Bytes text = Text(1000);
    for (const Bytes& rest : {Deflated(Text(500, 2)), Bytes{0}, Noise(300'000)})
    {
        Bytes output;
        EXPECT_EQ(CompressionLib::InflatePayload(Deflated(text) + rest, output), 1000u);
        EXPECT_TRUE(output == text);
        ExpectInflatesAsZlibDoes(Deflated(Text(400'000)) + rest);
    }
}

TEST(CompressionLibPayloadTest, AWrongCheckOrSizeAtTheEndIsNotReported)
{
    const Bytes text = Text(200'000);
    for (const std::size_t fromEnd : {8u, 1u})
    {
        Bytes input = Deflated(text);
        input[input.size() - fromEnd] ^= 0x80;
        Bytes output;
        EXPECT_EQ(CompressionLib::InflatePayload(input, output), 200'000u);
        EXPECT_TRUE(output == text);
    }
}

TEST(CompressionLibPayloadTest, ATruncatedPayloadGivesWhatCameBeforeTheCut)
{
    TempFolder folder;
    const Bytes text = Text(3000);
    const Bytes whole = Deflated(text);
    for (std::size_t size = 1; size < whole.size(); ++size)
    {
        SCOPED_TRACE(size);
        const Bytes input(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
        ASSERT_NO_FATAL_FAILURE(ExpectInflatesAsZlibDoes(input));
        Bytes output;
        CompressionLib::InflatePayload(input, output);
        ASSERT_TRUE(std::equal(output.begin(), output.end(), text.begin()));
    }
    ExpectInflatesAsZlibDoes({whole.begin(), whole.end() - 20}, &folder);
}

TEST(CompressionLibPayloadTest, ACutAtAWholeBufferEndsThereEvenInTheMiddleOfAMatch)
{
    // Each byte of deflated zeros stands for about a thousand, so that one of the cuts uses the input up at the very
    // round that fills the buffer.
    const Bytes whole = Deflated(Zeros(2 * kBuffer + 5000));
    bool seen = false;
    for (std::size_t size = 1; size < whole.size(); ++size)
    {
        SCOPED_TRACE(size);
        const Bytes input(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
        ASSERT_NO_FATAL_FAILURE(ExpectInflatesAsZlibDoes(input));
        const unsigned int total = InflatedByBuffers(input).result;
        seen = seen || (total != 0 && total % kBuffer == 0);
    }
    EXPECT_TRUE(seen);
}

TEST(CompressionLibPayloadTest, ADamagedPayloadGivesWhatCameBeforeTheDamage)
{
    const Bytes whole = Deflated(Text(400'000));
    for (std::size_t at = 0; at < whole.size(); at += 997)
    {
        SCOPED_TRACE(at);
        Bytes input = whole;
        input[at] ^= 0x55;
        ASSERT_NO_FATAL_FAILURE(ExpectInflatesAsZlibDoes(input));
    }
}

TEST(CompressionLibPayloadTest, PayloadsOfOtherProgramsInflateWithAnyHeader)
{
    const Bytes payloads[] = {{std::begin(ForeignGzip::kByGzip), std::end(ForeignGzip::kByGzip)},
                              {std::begin(ForeignGzip::kByPython), std::end(ForeignGzip::kByPython)},
                              {std::begin(ForeignGzip::kByPerl), std::end(ForeignGzip::kByPerl)},
                              {std::begin(ForeignGzip::kWithHeaderCheck), std::end(ForeignGzip::kWithHeaderCheck)}};
    for (const Bytes& payload : payloads)
    {
        Bytes output;
        EXPECT_EQ(CompressionLib::InflatePayload(payload, output), std::string(ForeignGzip::kText).size());
        EXPECT_EQ(AsText(output), ForeignGzip::kText);
    }
}

TEST(CompressionLibPayloadTest, AStatedSizeThatIsALieTakesNoMemory)
{
    for (const unsigned char lie : {0xFF, 0x7F, 0x01, 0x00})
    {
        Bytes input = Deflated(Text(200'000));
        std::fill(input.end() - 4, input.end(), lie);
        Bytes output;
        EXPECT_EQ(CompressionLib::InflatePayload(input, output), 200'000u);
        EXPECT_LT(output.capacity(), 17 * input.size());
    }
}

TEST(CompressionLibPayloadTest, InflatingReplacesALongerOutput)
{
    const Bytes text = Text(1000);
    Bytes output(500'000, 'x');

    EXPECT_EQ(CompressionLib::InflatePayload(Deflated(text), output), 1000u);
    EXPECT_TRUE(output == text);
}

TEST(CompressionLibPayloadTest, TheOutputFileIsReplacedByTheInflatedBytes)
{
    TempFolder folder;
    folder.Write("output", std::string(500'000, 'x'));
    const Bytes data = AsBytes("line\r\nend\x1A after") + Noise(200'000);
    const unsigned long handles = OpenHandles();

    EXPECT_EQ(CompressionLib::InflatePayload(Deflated(data), folder / "output"), data.size());
    EXPECT_EQ(OpenHandles(), handles);
    EXPECT_TRUE(folder.Read("output") == AsText(data));
}

TEST(CompressionLibPayloadTest, AnEmptyPayloadEmptiesTheOutputFile)
{
    TempFolder folder;
    folder.Write("output", "old");

    EXPECT_EQ(CompressionLib::InflatePayload({}, folder / "output"), 0u);
    EXPECT_EQ(CompressionLib::InflatePayload({}, folder / "new"), 0u);
    EXPECT_EQ(folder.Read("output"), "");
    EXPECT_TRUE(folder.Exists("new"));
}

TEST(CompressionLibPayloadTest, TheResultIsTheSizeEvenWhenTheFileCannotBeOpened)
{
    TempFolder folder;
    const Bytes input = Deflated(Text(300'000));
    const unsigned long handles = OpenHandles();

    for (const std::string& path : {folder / "missing\\output", folder.Path(), std::string()})
    {
        EXPECT_EQ(CompressionLib::InflatePayload(input, path), 300'000u) << path;
    }
    EXPECT_EQ(OpenHandles(), handles);
    EXPECT_TRUE(folder.Tree().empty());
}

TEST(CompressionLibPayloadTest, ManyThreadsDeflateAndInflateAtOnce)
{
    bool good[4] = {};
    std::vector<std::thread> threads;
    for (unsigned int i = 0; i < 4; ++i)
    {
        threads.emplace_back([i, &good] {
            Bytes data = Text(300'000, i + 1);
            Bytes deflated;
            Bytes inflated;
            CompressionLib::DeflatePayload(data, deflated);
            CompressionLib::InflatePayload(deflated, inflated);
            good[i] = inflated == data && deflated == Deflated(data);
        });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    EXPECT_TRUE(good[0] && good[1] && good[2] && good[3]);
}

TEST(CompressionLibPayloadTest, NoHeapBlockIsLeftBehind)
{
    const AllocationFault allocations;
    {
        Bytes data = Text(400'000);
        Bytes deflated;
        Bytes inflated;
        CompressionLib::DeflatePayload(data, deflated);
        CompressionLib::InflatePayload(deflated, inflated);
        deflated.resize(deflated.size() / 2);
        CompressionLib::InflatePayload(deflated, inflated);
        deflated[100] ^= 0xFF;
        CompressionLib::InflatePayload(deflated, inflated);
        deflated[0] = 0;
        CompressionLib::InflatePayload(deflated, nullptr, nullptr, nullptr, nullptr);
    }
    EXPECT_GT(allocations.Count(), 0);
    EXPECT_EQ(allocations.Live(), 0);
}

TEST(CompressionLibPayloadTest, WhenMemoryIsShortDeflatingGivesNothing)
{
    Bytes input = Noise(400'000);
    const std::size_t whole = Deflated(input).size();
    bool succeeded = false;
    int emptied = 0;
    while (!succeeded)
    {
        SCOPED_TRACE(emptied);
        Bytes output;
        const AllocationFault memory(emptied + 1);
        const unsigned int size = CompressionLib::DeflatePayload(input, output);
        succeeded = !memory.Happened();
        emptied += size == 0 ? 1 : 0;
        ASSERT_EQ(size, succeeded ? whole : 0u);
        ASSERT_EQ(output.size(), size);
        Bytes().swap(output);
        ASSERT_EQ(memory.Live(), 0);
    }
    EXPECT_GE(emptied, 6); // zlib's five and at least one of the output
}

TEST(CompressionLibPayloadTest, WhenMemoryIsShortInflatingGivesNothingOrWhatCameBefore)
{
    const Bytes data = Noise(100'000) + Zeros(10'000'000); // grows beyond what is believed of the stated size
    const Bytes input = Deflated(data);
    bool succeeded = false;
    int emptied = 0;
    for (int failing = 1; !succeeded; ++failing)
    {
        SCOPED_TRACE(failing);
        Bytes output(10, 'x');
        Bytes().swap(output);
        const AllocationFault memory(failing);
        const unsigned int size = CompressionLib::InflatePayload(input, output);
        succeeded = !memory.Happened();
        emptied += size == 0 ? 1 : 0;
        EXPECT_EQ(size, output.size());
        EXPECT_TRUE(std::equal(output.begin(), output.end(), data.begin()));
        Bytes().swap(output);
        ASSERT_EQ(memory.Live(), 0);
        ASSERT_LT(failing, 50);
    }
    EXPECT_GE(emptied, 2); // zlib's state and a later growth at least
}

TEST(CompressionLibPayloadTest, WithoutMemoryForTheStatedSizeTheOutputGrowsByWhatComes)
{
    const Bytes text = Text(1000);
    Bytes input = Deflated(text);
    std::fill(input.end() - 4, input.end(), static_cast<unsigned char>(0));
    input[input.size() - 3] = 0x20; // states 8 KiB
    Bytes output;
    const AllocationFault memory(1);

    EXPECT_EQ(CompressionLib::InflatePayload(input, output), 1000u);
    EXPECT_TRUE(memory.Happened());
    EXPECT_TRUE(output == text);
}

TEST(CompressionLibPayloadTest, WithoutMemoryForTheBufferNoCallbackIsCalled)
{
    Record record;
    const Bytes input = Deflated(Text(10));
    const AllocationFault memory(1);

    EXPECT_EQ(CompressionLib::InflatePayload(input, &Record::Begin, &record, &Record::AddChunk, &record), 0u);
    EXPECT_EQ(record.order, "");
    EXPECT_EQ(memory.Live(), 0);
}

TEST(CompressionLibPayloadTest, AFailedInitialisationComesAfterTheBeginCall)
{
    Record record;
    record.order.reserve(10);
    const Bytes input = Deflated(Text(10));
    const AllocationFault memory(2); // the first is the buffer

    EXPECT_EQ(CompressionLib::InflatePayload(input, &Record::Begin, &record, &Record::AddChunk, &record), 0u);
    EXPECT_EQ(record.order, "b");
    EXPECT_EQ(memory.Live(), 0);
}

TEST(CompressionLibPayloadTest, WhatACallbackThrowsPassesToTheCallerAndLeavesNothingBehind)
{
    const auto throwAtBegin = [](void*) { throw std::runtime_error("begin"); };
    const auto throwAtSecondChunk = [](void*, void*, unsigned int offset, unsigned int, unsigned int) {
        if (offset != 0)
        {
            throw 42;
        }
    };
    const Bytes input = Deflated(Text(400'000));
    const AllocationFault allocations;

    EXPECT_THROW(CompressionLib::InflatePayload(input, throwAtBegin, nullptr, nullptr, nullptr), std::runtime_error);
    EXPECT_THROW(CompressionLib::InflatePayload(input, nullptr, nullptr, throwAtSecondChunk, nullptr), int);
    EXPECT_EQ(allocations.Live(), 0);
}

namespace
{

/// Spoils zlib's state between two rounds of an inflation: an inner error that no input can bring about.
struct Spoiler
{
    const AllocationFault& allocations;
    int chunks = 0;

    static void SpoilAtFirstChunk(void* context, void*, unsigned int, unsigned int, unsigned int)
    {
        auto* const self = static_cast<Spoiler*>(context);
        if (++self->chunks == 1)
        {
            // The stream's address stands first, then the mode; the last mode of all is refused with Z_STREAM_ERROR.
            constexpr int firstMode = 16180;
            constexpr int lastMode = 16211;
            int* const mode = static_cast<int*>(self->allocations.Second()) + 1;
            ASSERT_TRUE(*mode >= firstMode && *mode < lastMode) << *mode;
            *mode = lastMode;
        }
    }
};

} // namespace

TEST(CompressionLibPayloadTest, AnInnerErrorOfZlibGivesZeroAfterChunksAndLeavesNothingBehind)
{
    const Bytes input = Deflated(Text(400'000));
    const AllocationFault allocations;
    Spoiler spoiler{allocations};

    EXPECT_EQ(CompressionLib::InflatePayload(input, nullptr, nullptr, &Spoiler::SpoilAtFirstChunk, &spoiler), 0u);
    EXPECT_EQ(spoiler.chunks, 1);
    EXPECT_EQ(allocations.Live(), 0);
}
