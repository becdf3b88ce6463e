#include <benchmarks/Job.h>

#include <UtilsLib/WindowsTypes.h>
#include <UtilsLib/compression/CompressionLib.h>
#include <UtilsLib/platform/UniqueFileHandle.h>
#include <tests/support/TempFolder.h>

#include <zlib.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

using TestSupport::TempFolder;
using UtilsLib::CompressionLib;
using UtilsLib::Platform::UniqueFileHandle;

namespace Bench
{
namespace
{

using Bytes = std::vector<unsigned char>;

constexpr std::size_t kInputBytes = 2 << 20;
constexpr int kGzip = 31; // window bits

/// Lines as a program logs them.
Bytes MakeText()
{
    const char* const words[] = {"opened",   "the",          "file",  "invoice", "could",  "not",     "be",
                                 "sent",     "retry",        "after", "account", "ledger", "balance", "of",
                                 "customer", "synchronised", "in",    "ms",      "with"};
    std::mt19937 random(1);
    std::string text;
    while (text.size() < kInputBytes)
    {
        text += "15/11/2026 04:38:" + std::to_string(10 + random() % 50) + ", tid: " + std::to_string(random() % 5000);
        for (unsigned int i = 5 + random() % 8; i > 0; --i)
        {
            text += std::string(" ") + words[random() % std::size(words)];
        }
        text += "\r\n";
    }
    return Bytes(text.begin(), text.begin() + kInputBytes);
}

/// Binary records of a ledger.
Bytes MakeRecords()
{
    struct Record
    {
        std::uint32_t number, account;
        double amount;
        char currency[4];
        std::uint32_t date;
    };
    std::mt19937 random(2);
    Bytes bytes(kInputBytes);
    for (std::size_t i = 0; i < kInputBytes / sizeof(Record); ++i)
    {
        const Record record = {static_cast<std::uint32_t>(i),
                               static_cast<std::uint32_t>(random() % 300),
                               static_cast<double>(random() % 1'000'000) / 100,
                               {'E', 'U', 'R', 0},
                               20'000 + static_cast<std::uint32_t>(i / 50)};
        std::memcpy(&bytes[i * sizeof(Record)], &record, sizeof(record));
    }
    return bytes;
}

/// One call of zlib into a buffer that is large enough; the compressed size, 0 on failure.
uLong DeflateOnce(const Bytes& input, Bytes& buffer)
{
    z_stream stream{};
    if (deflateInit2(&stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, kGzip, 9, Z_DEFAULT_STRATEGY) != Z_OK)
    {
        return 0;
    }
    stream.next_in = const_cast<Bytef*>(input.data());
    stream.avail_in = static_cast<uInt>(input.size());
    stream.next_out = buffer.data();
    stream.avail_out = static_cast<uInt>(buffer.size());
    const bool done = deflate(&stream, Z_FINISH) == Z_STREAM_END;
    deflateEnd(&stream);
    return done ? stream.total_out : 0;
}

uLong InflateOnce(const Bytes& input, Bytes& buffer)
{
    z_stream stream{};
    if (inflateInit2(&stream, kGzip) != Z_OK)
    {
        return 0;
    }
    stream.next_in = const_cast<Bytef*>(input.data());
    stream.avail_in = static_cast<uInt>(input.size());
    stream.next_out = buffer.data();
    stream.avail_out = static_cast<uInt>(buffer.size());
    const bool done = inflate(&stream, Z_FINISH) == Z_STREAM_END;
    inflateEnd(&stream);
    return done ? stream.total_out : 0;
}

/// A payload, compressed and not, in memory and in files; made when it is first used.
class Payload
{
public:
    explicit Payload(Bytes (*make)()) : m_make(make)
    {
    }

    void Prepare()
    {
        if (m_folder)
        {
            return;
        }
        plain = m_make();
        Bytes buffer(kInputBytes * 2);
        compressed.assign(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(DeflateOnce(plain, buffer)));
        m_folder = std::make_unique<TempFolder>();
        m_folder->Write("plain", std::string(plain.begin(), plain.end()));
        m_folder->Write("compressed", std::string(compressed.begin(), compressed.end()));
    }
    std::string Path(const char* name) const
    {
        return *m_folder / name;
    }

    Bytes plain;
    Bytes compressed;

private:
    Bytes (*m_make)();
    std::unique_ptr<TempFolder> m_folder;
};

using PayloadPtr = std::shared_ptr<Payload>;

/// `work` gives the number of bytes that it produced.
Job::Body Measured(PayloadPtr payload, bool inflating, std::function<std::size_t(Payload&)> work)
{
    return [payload, inflating, work](benchmark::State& state) {
        payload->Prepare();
        const std::size_t expected = inflating ? payload->plain.size() : payload->compressed.size();
        for (auto _ : state)
        {
            if (work(*payload) != expected)
            {
                state.SkipWithError("the result has another size");
            }
        }
    };
}

Bytes ReadWhole(const std::string& path)
{
    const UniqueFileHandle file(CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                            FILE_ATTRIBUTE_NORMAL, nullptr));
    Bytes bytes(GetFileSize(file.Get(), nullptr));
    DWORD size = 0;
    ReadFile(file.Get(), bytes.data(), static_cast<DWORD>(bytes.size()), &size, nullptr);
    return bytes;
}

std::size_t WriteWhole(const std::string& path, const Bytes& bytes, uLong size)
{
    const UniqueFileHandle file(
        CreateFileA(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    DWORD written = 0;
    WriteFile(file.Get(), bytes.data(), size, &written, nullptr);
    return written;
}

std::size_t SizeOf(const std::string& path)
{
    WIN32_FILE_ATTRIBUTE_DATA data{};
    GetFileAttributesExA(path.c_str(), GetFileExInfoStandard, &data);
    return data.nFileSizeLow;
}

/// Buffers of all calls, made once: a new one of this size costs as much as inflating into it.
Bytes& Buffer()
{
    static Bytes buffer(kInputBytes * 2);
    return buffer;
}

Bytes& OurOutput()
{
    static Bytes output;
    return output;
}

void AddMemoryJobs(const std::string& kind, PayloadPtr payload)
{
    Job::Add("Deflate in memory: " + kind, {.leastOfBestOther = 0.97})
        .BytesAnOperation(kInputBytes)
        .Ours(Measured(payload, false, [](Payload& p) { return CompressionLib::DeflatePayload(p.plain, OurOutput()); }))
        .Alternative("zlib, one call", Measured(payload, false, [](Payload& p) -> std::size_t {
                         return DeflateOnce(p.plain, Buffer());
                     }));
    Job::Add("Inflate in memory: " + kind, {.leastOfBestOther = 0.97})
        .BytesAnOperation(kInputBytes)
        .Ours(Measured(payload, true,
                       [](Payload& p) { return CompressionLib::InflatePayload(p.compressed, OurOutput()); }))
        .Alternative("zlib, one call", Measured(payload, true, [](Payload& p) -> std::size_t {
                         return InflateOnce(p.compressed, Buffer());
                     }));
}

void AddFileJobs(PayloadPtr payload)
{
    Job::Add("CompressFile: text", {.leastOfBestOther = 0.97})
        .BytesAnOperation(kInputBytes)
        .Ours(Measured(payload, false,
                       [](Payload& p) {
                           CompressionLib::CompressFile(p.Path("plain"), p.Path("ours"));
                           return SizeOf(p.Path("ours"));
                       }))
        .Alternative("zlib, one call", Measured(payload, false, [](Payload& p) {
                         return WriteWhole(p.Path("other"), Buffer(),
                                           DeflateOnce(ReadWhole(p.Path("plain")), Buffer()));
                     }));
    Job::Add("DecompressFile: text", {.leastOfBestOther = 0.97})
        .BytesAnOperation(kInputBytes)
        .Ours(Measured(payload, true,
                       [](Payload& p) {
                           CompressionLib::DecompressFile(p.Path("compressed"), p.Path("ours"));
                           return SizeOf(p.Path("ours"));
                       }))
        .Alternative("zlib, one call", Measured(payload, true, [](Payload& p) {
                         return WriteWhole(p.Path("other"), Buffer(),
                                           InflateOnce(ReadWhole(p.Path("compressed")), Buffer()));
                     }));
}

} // namespace

void AddCompressionJobs()
{
    const auto text = std::make_shared<Payload>(&MakeText);
    const auto records = std::make_shared<Payload>(&MakeRecords);
    AddMemoryJobs("text", text);
    AddMemoryJobs("records", records);
    AddFileJobs(text);
}

} // namespace Bench
