// Damaged compressed data: nothing crashes, hangs, takes memory out of proportion or differs from zlib's own answer.
#include <UtilsLib/compression/CompressionLib.h>

#include <robustness/RandomRun.h>
#include <tests/compression/ZlibReference.h>
#include <tests/support/AllocationFault.h>
#include <tests/support/OpenHandles.h>
#include <tests/support/TempFolder.h>

#include <gtest/gtest.h>

#include <zlib.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

using TestSupport::AllocationFault;
using TestSupport::OpenHandles;
using TestSupport::TempFolder;
using UtilsLib::CompressionLib;
using namespace ZlibReference;

namespace
{

constexpr std::size_t kRatio = 1032; // the most that deflated data can grow by

Bytes WithHeaderFields(Bytes gzip)
{
    const std::string fields = std::string("\x06\x00XX\x02\x00yz", 8) + std::string("name\0comment\0", 13);
    gzip[3] = 0x1C; // extra field, name, comment
    gzip.insert(gzip.begin() + 10, fields.begin(), fields.end());
    return gzip;
}

/// What is damaged.
struct Streams
{
    std::vector<Bytes> small;
    std::vector<Bytes> large; // of whole buffers: each takes as long as fifty small ones
};

Streams StreamsOf(Container container)
{
    Streams streams;
    for (const Bytes& data : {Bytes{}, Bytes{'x'}, Text(100), Text(1500), Noise(300), Zeros(1000), Text(6000)})
    {
        streams.small.push_back(Deflated(data, container));
    }
    if (container == Container::Gzip)
    {
        streams.small.push_back(WithHeaderFields(Deflated(Text(200))));
        streams.small.push_back(Deflated(Text(50)));
        streams.small.back().insert(streams.small.back().end(), streams.small[2].begin(), streams.small[2].end());
    }
    for (const std::size_t size : {kBuffer, kBuffer + 700})
    {
        streams.large.push_back(Deflated(Zeros(size), container));
    }
    return streams;
}

/// Draws damage for one stream.
class Mutator
{
public:
    Mutator(const Streams& streams, unsigned int seed) : m_streams(streams), m_random(seed)
    {
    }

    Bytes Next()
    {
        Bytes bytes = Any();
        for (unsigned int changes = 1 + Below(4); changes > 0 && !bytes.empty(); --changes)
        {
            Change(bytes);
        }
        return bytes;
    }

private:
    unsigned int Below(std::size_t limit)
    {
        return static_cast<unsigned int>(m_random() % limit);
    }
    const Bytes& Any()
    {
        const std::vector<Bytes>& streams = Below(16) == 0 ? m_streams.large : m_streams.small;
        return streams[Below(streams.size())];
    }
    Bytes::iterator At(Bytes& bytes)
    {
        // Every second time in the header or the beginning of the data, where most decisions fall.
        const std::size_t size = Below(2) == 0 ? std::min<std::size_t>(bytes.size(), 24) : bytes.size();
        return bytes.begin() + Below(size);
    }
    Bytes::iterator After(Bytes& bytes, Bytes::iterator begin)
    {
        return begin + Below(static_cast<std::size_t>(bytes.end() - begin) + 1);
    }

    void Change(Bytes& bytes)
    {
        const Bytes::iterator at = At(bytes);
        switch (Below(8))
        {
        case 0:
            *at ^= static_cast<unsigned char>(1u << Below(8));
            break;
        case 1:
            *at = static_cast<unsigned char>(m_random());
            break;
        case 2:
            *at = Below(2) == 0 ? 0x00 : 0xFF;
            break;
        case 3:
            bytes.erase(at, bytes.end());
            break;
        case 4:
            bytes.erase(at, After(bytes, at));
            break;
        case 5:
            bytes.insert(at, 1 + Below(8), static_cast<unsigned char>(m_random()));
            break;
        case 6: // a piece twice
        {
            const Bytes piece(at, After(bytes, at));
            bytes.insert(At(bytes), piece.begin(), piece.end());
            break;
        }
        default: // the end of another stream
        {
            const Bytes& other = Any();
            bytes.erase(at, bytes.end());
            bytes.insert(bytes.end(), other.begin() + Below(other.size()), other.end());
            break;
        }
        }
    }

    const Streams& m_streams;
    std::mt19937 m_random;
};

void CollectChunk(void* context, void*, unsigned int offset, unsigned int length, unsigned int total)
{
    static_cast<std::vector<Chunk>*>(context)->push_back({offset, length, total});
}

/// What is wrong with the answer to `input`; empty when nothing is.
std::string ComplaintAboutPayload(const Bytes& input, Bytes& output)
{
    const Inflation expected = InflatedByBuffers(input);
    std::vector<Chunk> chunks;
    if (CompressionLib::InflatePayload(input, nullptr, nullptr, &CollectChunk, &chunks) != expected.result ||
        chunks != expected.chunks)
    {
        return "the callback form differs from zlib";
    }
    const std::size_t before = output.capacity();
    const unsigned int total = CompressionLib::InflatePayload(input, output);
    if (!input.empty() && (total != expected.result || output != expected.data))
    {
        return "the vector form differs from zlib";
    }
    if (total > kRatio * input.size())
    {
        return "more came out than can be in";
    }
    const std::size_t most = std::max<std::size_t>(17 * input.size(), 2 * (total + kBuffer));
    return output.capacity() > std::max(before, most) ? "too much memory taken" : "";
}

/// Whether zlib itself comes to the end of the stream, and how much it gives before.
bool ReachesEnd(const Bytes& input, Container container)
{
    z_stream stream = {};
    inflateInit2(&stream, container == Container::Gzip ? 31 : 15);
    Bytes buffer(kBuffer);
    stream.next_in = const_cast<unsigned char*>(input.data());
    stream.avail_in = static_cast<uInt>(input.size());
    int result = Z_OK;
    while (result == Z_OK)
    {
        stream.next_out = buffer.data();
        stream.avail_out = kBuffer;
        result = inflate(&stream, Z_NO_FLUSH);
    }
    inflateEnd(&stream);
    return result == Z_STREAM_END;
}

} // namespace

TEST(MutatedStreams, PayloadsAreAnsweredAsZlibDoes)
{
    const RandomRun run(100'000);
    const Streams streams = StreamsOf(Container::Gzip);
    unsigned int inflated = 0;
    std::string complaint;
    const AllocationFault allocations; // counts only
    {
        Bytes output;
        for (unsigned int round = 0; round < run.rounds && complaint.empty(); ++round)
        {
            const Bytes input = Mutator(streams, run.seed + round).Next();
            if (round % 16 == 0)
            {
                Bytes().swap(output); // else the next one reuses its memory
            }
            complaint = ComplaintAboutPayload(input, output);
            inflated += output.empty() ? 0 : 1;
            if (!complaint.empty())
            {
                complaint += ": round " + std::to_string(round);
            }
        }
    }
    EXPECT_EQ(complaint, "");
    complaint = {};
    EXPECT_EQ(allocations.Live(), 0);
    EXPECT_GT(inflated, run.rounds / 4); // not all of it was refused at the first byte
    EXPECT_LT(inflated, run.rounds);
}

TEST(MutatedStreams, FilesAreAnsweredAsZlibDoes)
{
    const RandomRun run(1500);
    const TempFolder folder;
    const std::string source = folder / "source";
    const std::string result = folder / "result";
    const unsigned long handles = OpenHandles();
    unsigned int succeeded = 0;
    for (const Container container : {Container::Gzip, Container::Zlib})
    {
        const Streams streams = StreamsOf(container);
        for (unsigned int round = 0; round < run.rounds; ++round)
        {
            SCOPED_TRACE(round);
            const Bytes input = Mutator(streams, run.seed + round).Next();
            folder.Write("source", AsText(input));
            const bool good = container == Container::Gzip ? CompressionLib::DecompressFile(source, result)
                                                           : CompressionLib::DecompressFile_Legacy(source, result);
            ASSERT_EQ(good, ReachesEnd(input, container));
            succeeded += good ? 1 : 0;
            if (container == Container::Gzip)
            {
                const Inflation expected = InflatedByBuffers(input);
                ASSERT_TRUE(!good || folder.Read("result") == AsText(expected.data));
                ASSERT_EQ(CompressionLib::InflatePayload(input, result), expected.result);
                ASSERT_TRUE(folder.Read("result") == AsText(expected.data));
            }
        }
    }
    EXPECT_EQ(OpenHandles(), handles);
    EXPECT_GT(succeeded, run.rounds / 50);
    EXPECT_LT(succeeded, run.rounds);
}
