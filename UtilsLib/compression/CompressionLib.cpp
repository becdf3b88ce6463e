#include <UtilsLib/compression/CompressionLib.h>

#include <UtilsLib/WindowsTypes.h>
#include <UtilsLib/platform/UniqueFileHandle.h>

#include <zlib.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <fcntl.h>
#include <io.h>
#include <memory>
#include <new>
#include <utility>

namespace UtilsLib
{

namespace
{

constexpr unsigned int kBufferSize = 0x20000;
constexpr const char* kZlibVersion = "1.2.13";
constexpr int kStreamSize = static_cast<int>(sizeof(z_stream));
constexpr int kGzipWindowBits = 15 + 16; // the largest window, in the gzip wrapper
constexpr int kMemoryLevel = 9;

/// A deflate stream that is ended with its scope. zlib keeps its address: not copied.
struct Deflater
{
    Deflater() = default;
    Deflater(const Deflater&) = delete;
    Deflater& operator=(const Deflater&) = delete;
    ~Deflater()
    {
        deflateEnd(&stream); // does nothing after a failed beginning
    }

    bool BeginGzip()
    {
        return deflateInit2_(&stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, kGzipWindowBits, kMemoryLevel,
                             Z_DEFAULT_STRATEGY, kZlibVersion, kStreamSize) == Z_OK;
    }
    bool BeginZlib()
    {
        return deflateInit_(&stream, Z_DEFAULT_COMPRESSION, kZlibVersion, kStreamSize) == Z_OK;
    }

    z_stream stream = {};
};

/// The same for inflating.
struct Inflater
{
    Inflater() = default;
    Inflater(const Inflater&) = delete;
    Inflater& operator=(const Inflater&) = delete;
    ~Inflater()
    {
        inflateEnd(&stream); // does nothing after a failed beginning
    }

    bool BeginGzip()
    {
        return inflateInit2_(&stream, kGzipWindowBits, kZlibVersion, kStreamSize) == Z_OK;
    }
    bool BeginZlib()
    {
        return inflateInit_(&stream, kZlibVersion, kStreamSize) == Z_OK;
    }

    z_stream stream = {};
};

struct StreamTraits
{
    using Type = std::FILE*;
    static Type Invalid()
    {
        return nullptr;
    }
    static void Close(Type value)
    {
        std::fclose(value);
    }
};

/// An open file of the C run-time.
using UniqueStream = Platform::UniqueResource<StreamTraits>;

UniqueStream Open(const std::string& path, const char* mode)
{
    UniqueStream stream;
    if (fopen_s(stream.Put(), path.c_str(), mode) != 0)
    {
        return {};
    }
    const int descriptor = _fileno(stream.Get());
    _setmode(descriptor, _O_BINARY);
    // All reads and writes are of whole buffers. Without one of its own the stream has nothing left to write at its
    // end, when nobody would look at the result.
    std::setvbuf(stream.Get(), nullptr, _IONBF, 0);
    // A program that the host starts meanwhile must not keep the file open.
    SetHandleInformation(reinterpret_cast<HANDLE>(_get_osfhandle(descriptor)), HANDLE_FLAG_INHERIT, 0);
    return stream;
}

bool Write(std::FILE* file, const unsigned char* data, std::size_t size)
{
    return std::fwrite(data, 1, size, file) == size && !std::ferror(file);
}

/// Closes the written file `destination`; false when that fails: the file may then lack its end.
bool Finish(UniqueStream destination)
{
    return std::fclose(destination.Release()) == 0;
}

void SetInput(z_stream& stream, const unsigned char* data, std::size_t size)
{
    stream.next_in = const_cast<unsigned char*>(data); // only read; zlib's field is const by a build option alone
    stream.avail_in = static_cast<uInt>(size);
}

void SetWindow(z_stream& stream, unsigned char* window, std::size_t size = kBufferSize)
{
    stream.next_out = window;
    stream.avail_out = static_cast<uInt>(size);
}

/// Deflates the stream's input to its end and writes what comes out.
bool DeflateInput(z_stream& stream, int flush, unsigned char* window, std::FILE* destination)
{
    do
    {
        SetWindow(stream, window);
        deflate(&stream, flush);
        if (!Write(destination, window, kBufferSize - stream.avail_out))
        {
            return false;
        }
    } while (stream.avail_out == 0);
    return true;
}

bool DeflateFile(std::FILE* source, std::FILE* destination, z_stream& stream)
{
    unsigned char input[kBufferSize];
    unsigned char window[kBufferSize];
    bool atEnd = false;
    while (!atEnd)
    {
        const std::size_t size = std::fread(input, 1, kBufferSize, source);
        if (std::ferror(source))
        {
            return false;
        }
        atEnd = std::feof(source) != 0;
        SetInput(stream, input, size);
        if (!DeflateInput(stream, atEnd ? Z_FINISH : Z_NO_FLUSH, window, destination))
        {
            return false;
        }
    }
    return true;
}

bool IsInflateFailure(int result)
{
    return result == Z_MEM_ERROR || result == Z_DATA_ERROR || result == Z_NEED_DICT;
}

/// Inflates the stream's input to its end and writes what comes out; false on failure. `atEnd` says whether the
/// compressed data has ended.
bool InflateInput(z_stream& stream, unsigned char* window, std::FILE* destination, bool& atEnd)
{
    do
    {
        SetWindow(stream, window);
        const int result = inflate(&stream, Z_NO_FLUSH);
        if (IsInflateFailure(result) || !Write(destination, window, kBufferSize - stream.avail_out))
        {
            return false;
        }
        atEnd = result == Z_STREAM_END;
    } while (stream.avail_out == 0 && !atEnd);
    return true;
}

bool InflateFile(std::FILE* source, std::FILE* destination, z_stream& stream)
{
    unsigned char input[kBufferSize];
    unsigned char window[kBufferSize];
    bool atEnd = false;
    while (!atEnd)
    {
        const std::size_t size = std::fread(input, 1, kBufferSize, source);
        if (std::ferror(source) || size == 0)
        {
            return false;
        }
        SetInput(stream, input, size);
        if (!InflateInput(stream, window, destination, atEnd))
        {
            return false;
        }
    }
    return true;
}

/// Opens both files and runs `routine` on them; the shared frame of the file operations.
template <typename Routine>
bool WithFiles(const std::string& source, const std::string& destination, Routine routine)
{
    if (source == destination) // kept: the texts are compared, with letter case; other spellings of one name fail below
    {
        return false;
    }
    // Whoever opens a file for writing empties it: a destination that is the source under another spelling must not be
    // opened. Windows' fopen_s denies writers by itself, other C run-times do not. Where another program is writing the
    // source already, this handle is not to be had, and the operation goes on without it.
    const Platform::UniqueFileHandle denyWriters(
        CreateFileA(source.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
    const UniqueStream from = Open(source, "r");
    if (!from)
    {
        return false;
    }
    UniqueStream to = Open(destination, "w");
    return to && routine(from.Get(), to.Get()) && Finish(std::move(to));
}

void AppendToFile(void* context, void* data, unsigned int, unsigned int length, unsigned int)
{
    auto* const file = static_cast<std::FILE*>(context);
    if (file != nullptr && !std::ferror(file))
    {
        std::fwrite(data, 1, length, file);
    }
}

/// Makes a vector at least `size` bytes long. Not cut here: bytes that are written over anyway need no clearing.
void Extend(std::vector<unsigned char>& vector, std::size_t size)
{
    if (vector.size() < size)
    {
        vector.resize(size);
    }
}

/// `output` becomes the whole of `input` in the gzip format. Written into the vector itself: a buffer between would
/// cost small payloads more than their deflation.
void DeflateAll(const std::vector<unsigned char>& input, std::vector<unsigned char>& output)
{
    Deflater deflater;
    z_stream& stream = deflater.stream;
    if (deflater.BeginGzip())
    {
        SetInput(stream, input.data(), input.size());
        const std::size_t bound = deflateBound(&stream, static_cast<uLong>(input.size()));
        const std::size_t window = std::min<std::size_t>(bound, kBufferSize);
        int result = Z_OK;
        do
        {
            const std::size_t offset = stream.total_out;
            Extend(output, offset + window);
            SetWindow(stream, output.data() + offset, window);
            result = deflate(&stream, Z_FINISH);
        } while (result != Z_STREAM_END && stream.avail_out == 0);
    }
    output.resize(stream.total_out);
}

/// Where a round of inflation writes to.
struct Window
{
    unsigned char* data;
    std::size_t size;
};

/// Inflates the gzip data `input` and gives the total. `nextWindow(offset)` gives the place for the output from
/// `offset` on: up to the next multiple of the buffer's size, or less. `produced(data, offset, length)` is called after
/// every round, once there has been output.
///
/// Input that ends just when the output comes to such a multiple ends the inflation, even in the middle of a match that
/// is being copied: the same for every form, whatever its windows.
template <typename NextWindow, typename Produced>
unsigned int Inflate(const std::vector<unsigned char>& input, NextWindow nextWindow, Produced produced)
{
    Inflater inflater;
    z_stream& stream = inflater.stream;
    if (!inflater.BeginGzip())
    {
        return 0;
    }
    SetInput(stream, input.data(), input.size());
    bool more = true;
    while (more)
    {
        const unsigned int offset = stream.total_out;
        const Window window = nextWindow(offset);
        SetWindow(stream, window.data, window.size);
        if (inflate(&stream, Z_NO_FLUSH) == Z_STREAM_ERROR)
        {
            return 0;
        }
        if (stream.total_out != 0)
        {
            produced(window.data, offset, static_cast<unsigned int>(window.size - stream.avail_out));
        }
        // Comes to an end: only a filled window goes on, and input gives at most 1032 times its size.
        more = stream.avail_out == 0 && (stream.avail_in != 0 || stream.total_out % kBufferSize != 0);
    }
    return stream.total_out;
}

/// The inflated size that gzip data states in its last four bytes. It is not verified at this point, so it is believed
/// up to a usual ratio only; 0 beyond that.
std::size_t StatedSize(const std::vector<unsigned char>& input)
{
    constexpr std::size_t usualRatio = 16;
    std::size_t size = 0;
    for (std::size_t i = 1; i <= 4 && i <= input.size(); ++i)
    {
        size = size << 8 | input[input.size() - i];
    }
    return size / usualRatio <= input.size() ? size : 0;
}

/// One allocation instead of many where that is possible.
void ReserveFor(std::vector<unsigned char>& output, const std::vector<unsigned char>& input)
{
    try
    {
        output.reserve(StatedSize(input) + 1); // with the one byte more, the last round leaves space and ends
    }
    catch (const std::exception&)
    {
        // What the payload states may be wrong: the output grows by what really comes.
    }
}

/// `output` becomes what `input` inflates to. Inflated into the vector itself, which saves a copy.
unsigned int InflateAll(const std::vector<unsigned char>& input, std::vector<unsigned char>& output)
{
    ReserveFor(output, input);
    const auto nextWindow = [&output](std::size_t offset) {
        const std::size_t toMultiple = kBufferSize - offset % kBufferSize;
        const std::size_t left = output.capacity() - offset;
        const std::size_t size = left == 0 ? toMultiple : std::min(left, toMultiple);
        Extend(output, offset + size);
        return Window{output.data() + offset, size};
    };
    const unsigned int total = Inflate(input, nextWindow, [](unsigned char*, unsigned int, unsigned int) {});
    output.resize(total);
    return total;
}

void Release(std::vector<unsigned char>& vector)
{
    std::vector<unsigned char>().swap(vector);
}

} // namespace

unsigned int CompressionLib::DeflatePayload(std::vector<unsigned char>& input, std::vector<unsigned char>& output)
{
    if (input.empty())
    {
        return 0;
    }
    if (&input == &output)
    {
        std::vector<unsigned char> original;
        original.swap(input);
        return DeflatePayload(original, output);
    }
    try
    {
        DeflateAll(input, output);
    }
    catch (const std::exception&) // out of memory
    {
        Release(output);
    }
    return static_cast<unsigned int>(output.size());
}

unsigned int CompressionLib::InflatePayload(const std::vector<unsigned char>& input, BeginCallback begin,
                                            void* beginContext, ChunkCallback chunk, void* chunkContext)
{
    if (input.empty())
    {
        return 0;
    }
    const std::unique_ptr<unsigned char[]> buffer(new (std::nothrow) unsigned char[kBufferSize]);
    if (!buffer)
    {
        return 0;
    }
    if (begin != nullptr)
    {
        begin(beginContext);
    }
    const auto window = [&buffer](unsigned int) { return Window{buffer.get(), kBufferSize}; };
    const auto report = [chunk, chunkContext](void* data, unsigned int offset, unsigned int length) {
        if (chunk != nullptr)
        {
            chunk(chunkContext, data, offset, length, offset + length);
        }
    };
    return Inflate(input, window, report);
}

unsigned int CompressionLib::InflatePayload(const std::vector<unsigned char>& input, std::vector<unsigned char>& output)
{
    if (input.empty())
    {
        return 0;
    }
    if (&input == &output)
    {
        std::vector<unsigned char> original;
        original.swap(output);
        return InflatePayload(original, output);
    }
    try
    {
        return InflateAll(input, output);
    }
    catch (const std::exception&) // out of memory
    {
        Release(output);
        return 0;
    }
}

unsigned int CompressionLib::InflatePayload(const std::vector<unsigned char>& input, const std::string& path)
{
    const UniqueStream file = Open(path, "w");
    return InflatePayload(input, nullptr, nullptr, &AppendToFile, file.Get());
}

bool CompressionLib::CompressFile(const std::string& source, const std::string& destination)
{
    return CompressFile(source, destination, CompressionMethod::Gzip);
}

bool CompressionLib::DecompressFile(const std::string& source, const std::string& destination)
{
    return DecompressFile(source, destination, CompressionMethod::Gzip);
}

bool CompressionLib::CompressFile_Legacy(const std::string& source, const std::string& destination)
{
    return CompressFile(source, destination, CompressionMethod::LegacyZlib);
}

bool CompressionLib::DecompressFile_Legacy(const std::string& source, const std::string& destination)
{
    return DecompressFile(source, destination, CompressionMethod::LegacyZlib);
}

void CompressionLib::CompressFile(std::string& path)
{
    try
    {
        const std::string temporary = path + ".temp";
        if (CompressFile(path, temporary))
        {
            DeleteFileA(path.c_str());
            MoveFileA(temporary.c_str(), path.c_str());
        }
    }
    catch (const std::exception&)
    {
        // No memory for the name: a failure like the others, with nothing touched.
    }
}

bool CompressionLib::CompressFile(const std::string& source, const std::string& destination, CompressionMethod method)
{
    return WithFiles(source, destination, [method](std::FILE* from, std::FILE* to) {
        Deflater deflater;
        switch (method)
        {
        case CompressionMethod::Gzip:
            return deflater.BeginGzip() && DeflateFile(from, to, deflater.stream);
        case CompressionMethod::LegacyZlib:
            return deflater.BeginZlib() && DeflateFile(from, to, deflater.stream);
        }
        return false;
    });
}

bool CompressionLib::DecompressFile(const std::string& source, const std::string& destination, CompressionMethod method)
{
    return WithFiles(source, destination, [method](std::FILE* from, std::FILE* to) {
        Inflater inflater;
        switch (method)
        {
        case CompressionMethod::Gzip:
            return inflater.BeginGzip() && InflateFile(from, to, inflater.stream);
        case CompressionMethod::LegacyZlib:
            return inflater.BeginZlib() && InflateFile(from, to, inflater.stream);
        }
        return false;
    });
}

} // namespace UtilsLib
