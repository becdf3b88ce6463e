#include <UtilsLib/compression/CompressionLib.h>

#include <UtilsLib/platform/UniqueFileHandle.h>

#include <tests/compression/ZlibReference.h>
#include <tests/compression/data/ForeignGzip.h>
#include <tests/support/OpenFile.h>
#include <tests/support/OpenHandles.h>
#include <tests/support/TempFolder.h>

#include <gtest/gtest.h>

#include <zlib.h>

#include <iterator>
#include <string>

using TestSupport::LastErrorText;
using TestSupport::OpenHandles;
using TestSupport::TempFolder;
using UtilsLib::CompressionLib;
using UtilsLib::Platform::UniqueFileHandle;
using namespace ZlibReference;

namespace
{

using Operation = bool (*)(const std::string&, const std::string&);

/// Both formats: what makes and reads them, and zlib's own form.
struct Format
{
    const char* name;
    Operation compress;
    Operation decompress;
    Container container;
    int memoryLevel;
};

const Format kFormats[] = {
    {"gzip", &CompressionLib::CompressFile, &CompressionLib::DecompressFile, Container::Gzip, 9},
    {"zlib", &CompressionLib::CompressFile_Legacy, &CompressionLib::DecompressFile_Legacy, Container::Zlib, 8},
};

const Operation kOperations[] = {&CompressionLib::CompressFile, &CompressionLib::DecompressFile,
                                 &CompressionLib::CompressFile_Legacy, &CompressionLib::DecompressFile_Legacy};

std::string DeflatedText(const std::string& text, const Format& format = kFormats[0])
{
    return AsText(Deflated(AsBytes(text), format.container, format.memoryLevel));
}

std::string SomeText(std::size_t size)
{
    return AsText(Text(size));
}

std::string SomeNoise(std::size_t size)
{
    return AsText(Noise(size));
}

UniqueFileHandle OpenToWrite(const std::string& path)
{
    return TestSupport::OpenFile(path, GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE);
}

/// zlib data that asks for a preset dictionary.
std::string DeflatedWithDictionary()
{
    const Bytes data = Text(1000);
    z_stream stream = {};
    Bytes output(5000);
    deflateInit(&stream, -1);
    deflateSetDictionary(&stream, data.data(), 100);
    stream.next_in = const_cast<unsigned char*>(data.data());
    stream.avail_in = static_cast<uInt>(data.size());
    stream.next_out = output.data();
    stream.avail_out = static_cast<uInt>(output.size());
    deflate(&stream, Z_FINISH);
    output.resize(stream.total_out);
    deflateEnd(&stream);
    return AsText(output);
}

/// What `DecompressFile` leaves of `input`; "(failed) " before it when it fails.
std::string Decompressed(const std::string& input, const Format& format = kFormats[0])
{
    const TempFolder folder;
    folder.Write("input", input);
    const bool good = format.decompress(folder / "input", folder / "output");
    return (good ? "" : "(failed) ") + folder.Read("output");
}

} // namespace

TEST(CompressionLibFileTest, FilesOfEverySizeComeBackAndAreExactlyZlibsBytes)
{
    ASSERT_NE(Deflated(Text(100'000), Container::Zlib, 9), Deflated(Text(100'000), Container::Zlib, 8));
    const TempFolder folder;
    for (const Format& format : kFormats)
    {
        for (const std::size_t size : {0u, 1u, 4095u, 4096u, 65'536u, kBuffer - 1, kBuffer, kBuffer + 1, 2 * kBuffer,
                                       2 * kBuffer + 1, 1'000'000u})
        {
            for (const Bytes& data : {Text(size), Noise(size), Zeros(size)})
            {
                SCOPED_TRACE(std::string(format.name) + ", " + std::to_string(size) + " bytes");
                folder.Write("source", AsText(data));

                ASSERT_TRUE(format.compress(folder / "source", folder / "packed"));
                ASSERT_TRUE(folder.Read("packed") == AsText(Deflated(data, format.container, format.memoryLevel)));
                ASSERT_TRUE(format.decompress(folder / "packed", folder / "unpacked"));
                ASSERT_TRUE(folder.Read("unpacked") == AsText(data));
                ASSERT_TRUE(folder.Read("source") == AsText(data));
            }
        }
    }
}

TEST(CompressionLibFileTest, CompressedSizesRoundMultiplesOfTheBufferAreWhole)
{
    const TempFolder folder;
    for (const std::size_t size : {kBuffer - 1, kBuffer, kBuffer + 1, 2 * kBuffer})
    {
        const std::string data = AsText(NoiseDeflatingTo(size));
        folder.Write("source", data);

        ASSERT_TRUE(CompressionLib::CompressFile(folder / "source", folder / "packed"));
        ASSERT_EQ(folder.Read("packed").size(), size);
        ASSERT_TRUE(CompressionLib::DecompressFile(folder / "packed", folder / "unpacked"));
        ASSERT_TRUE(folder.Read("unpacked") == data);
    }
}

TEST(CompressionLibFileTest, AnEmptyFileBecomesAShortGzipFile)
{
    const TempFolder folder;
    folder.Write("source", "");

    EXPECT_TRUE(CompressionLib::CompressFile(folder / "source", folder / "packed"));
    EXPECT_EQ(folder.Read("packed").size(), 20u);
    EXPECT_TRUE(CompressionLib::DecompressFile(folder / "packed", folder / "unpacked"));
    EXPECT_TRUE(folder.Exists("unpacked"));
    EXPECT_EQ(folder.Read("unpacked"), "");
}

TEST(CompressionLibFileTest, NoByteIsTakenAsText)
{
    const TempFolder folder;
    const std::string bytes = std::string("\r\n\n\r\x1A") + std::string(256, '\0') + "\x1A\n";
    // Stored by zlib as they are, the bytes stand in the compressed file too.
    const std::string stored = DeflatedText(bytes + SomeNoise(1000) + bytes);
    folder.Write("packed", stored);

    EXPECT_TRUE(CompressionLib::DecompressFile(folder / "packed", folder / "unpacked"));
    EXPECT_TRUE(folder.Read("unpacked") == bytes + SomeNoise(1000) + bytes);
    EXPECT_TRUE(CompressionLib::CompressFile(folder / "unpacked", folder / "again"));
    EXPECT_TRUE(folder.Read("again") == stored);
}

TEST(CompressionLibFileTest, TheDestinationIsReplaced)
{
    const TempFolder folder;
    folder.Write("source", "short");
    folder.Write("packed", std::string(300'000, 'x'));
    folder.Write("unpacked", std::string(300'000, 'x'));

    EXPECT_TRUE(CompressionLib::CompressFile(folder / "source", folder / "packed"));
    EXPECT_TRUE(CompressionLib::DecompressFile(folder / "packed", folder / "unpacked"));
    EXPECT_EQ(folder.Read("packed"), DeflatedText("short"));
    EXPECT_EQ(folder.Read("unpacked"), "short");
}

TEST(CompressionLibFileTest, IdenticalNamesAreRefusedWithoutTouchingTheFile)
{
    const TempFolder folder;
    const std::string content = DeflatedText("content");
    folder.Write("file", content);
    // While another program writes the file, nothing but the names tells.
    const UniqueFileHandle writer = OpenToWrite(folder / "file");
    ASSERT_TRUE(writer) << LastErrorText("CreateFileA");
    for (const Operation operation : kOperations)
    {
        EXPECT_FALSE(operation(folder / "file", folder / "file"));
        EXPECT_FALSE(operation(folder / "missing", folder / "missing"));
    }
    EXPECT_EQ(folder.Read("file"), content);
    EXPECT_EQ(folder.Tree(), std::vector<std::string>{"file"});
}

TEST(CompressionLibFileTest, TheSourceUnderAnotherSpellingIsRefusedWithoutTouchingTheFile)
{
    const TempFolder folder;
    const std::string content = DeflatedText("content");
    folder.Write("file", content);
    CreateHardLinkA((folder / "link").c_str(), (folder / "file").c_str(), nullptr);
    const unsigned long handles = OpenHandles();
    for (const Operation operation : kOperations)
    {
        for (const char* const other : {"FILE", ".\\file", "\\file", "link"})
        {
            EXPECT_FALSE(operation(folder / "file", folder / other)) << other;
            EXPECT_FALSE(operation(folder / other, folder / "file")) << other;
        }
    }
    EXPECT_EQ(folder.Read("file"), content);
    EXPECT_EQ(OpenHandles(), handles);
}

TEST(CompressionLibFileTest, NamesThatDifferInLetterCaseAreNotIdentical)
{
    // The one name that can be read and written at the same time; it is empty.
    EXPECT_TRUE(CompressionLib::CompressFile("NUL", "nul"));
    EXPECT_FALSE(CompressionLib::CompressFile("NUL", "NUL"));
}

TEST(CompressionLibFileTest, ASourceThatAnotherProgramWritesIsStillRead)
{
    const TempFolder folder;
    folder.Write("source", "content");
    const UniqueFileHandle writer = OpenToWrite(folder / "source");
    ASSERT_TRUE(writer) << LastErrorText("CreateFileA");

    EXPECT_TRUE(CompressionLib::CompressFile(folder / "source", folder / "packed"));
    EXPECT_EQ(folder.Read("packed"), DeflatedText("content"));
}

TEST(CompressionLibFileTest, ASourceThatCannotBeOpenedFailsBeforeTheDestinationIsTouched)
{
    const TempFolder folder;
    folder.Write("old", "old content");
    folder.Write("exclusive", "x");
    folder.MakeFolder("folder");
    const UniqueFileHandle holder(
        CreateFileA((folder / "exclusive").c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
    ASSERT_TRUE(holder) << LastErrorText("CreateFileA");
    const unsigned long handles = OpenHandles();
    for (const Operation operation : kOperations)
    {
        for (const std::string& source : {folder / "missing", folder / "nowhere\\file", folder / "folder",
                                          folder / "exclusive", std::string(), folder / "bad*name"})
        {
            EXPECT_FALSE(operation(source, folder / "old")) << source;
            EXPECT_FALSE(operation(source, folder / "new")) << source;
        }
    }
    EXPECT_EQ(OpenHandles(), handles);
    EXPECT_EQ(folder.Read("old"), "old content");
    EXPECT_FALSE(folder.Exists("new"));
}

TEST(CompressionLibFileTest, ADestinationThatCannotBeOpenedFailsAndClosesTheSource)
{
    const TempFolder folder;
    folder.Write("source", "content");
    folder.Write("held", "old content");
    folder.MakeFolder("folder");
    const UniqueFileHandle holder(
        CreateFileA((folder / "held").c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
    ASSERT_TRUE(holder) << LastErrorText("CreateFileA");
    const unsigned long handles = OpenHandles();
    for (const Operation operation : kOperations)
    {
        for (const std::string& destination :
             {folder / "nowhere\\file", folder / "folder", folder / "held", std::string(), folder / "bad*name"})
        {
            EXPECT_FALSE(operation(folder / "source", destination)) << destination;
        }
    }
    EXPECT_EQ(OpenHandles(), handles);
    EXPECT_EQ(folder.Read("held"), "old content");
    EXPECT_TRUE(DeleteFileA((folder / "source").c_str())) << LastErrorText("DeleteFileA");
}

TEST(CompressionLibFileTest, NoHandleStaysOpenAfterSuccessOrFailure)
{
    const TempFolder folder;
    folder.Write("source", SomeText(300'000));
    const unsigned long handles = OpenHandles();
    for (const Format& format : kFormats)
    {
        EXPECT_TRUE(format.compress(folder / "source", folder / "packed"));
        EXPECT_TRUE(format.decompress(folder / "packed", folder / "unpacked"));
        EXPECT_FALSE(format.decompress(folder / "source", folder / "unpacked"));
    }
    EXPECT_EQ(OpenHandles(), handles);
}

TEST(CompressionLibFileTest, ATruncatedFileFailsAtEveryLength)
{
    for (const Format& format : kFormats)
    {
        const std::string text = SomeText(2000);
        const std::string packed = DeflatedText(text, format);
        for (std::size_t size = 0; size < packed.size(); size += size < 30 || size + 15 > packed.size() ? 1 : 41)
        {
            SCOPED_TRACE(std::string(format.name) + " cut to " + std::to_string(size));
            const std::string result = Decompressed(packed.substr(0, size), format);
            ASSERT_EQ(result.rfind("(failed) ", 0), 0u);
            EXPECT_EQ(text.rfind(result.substr(9), 0), 0u); // the beginning of the text
        }
        EXPECT_EQ(Decompressed(packed.substr(0, packed.size() - 1), format), "(failed) " + text);
    }
}

TEST(CompressionLibFileTest, ATruncatedFileKeepsTheWholeBuffersBeforeTheCut)
{
    const std::string text = SomeText(1'000'000);
    for (const Format& format : kFormats)
    {
        const std::string packed = DeflatedText(text, format);
        const std::string result = Decompressed(packed.substr(0, packed.size() / 2), format);
        EXPECT_GT(result.size(), 400'000u);
        EXPECT_TRUE(text.rfind(result.substr(9), 0) == 0);
    }
}

TEST(CompressionLibFileTest, ADamagedFileFailsAndKeepsWhatWasWrittenBefore)
{
    const std::string text = SomeText(3 * kBuffer);
    for (const Format& format : kFormats)
    {
        std::string packed = DeflatedText(text, format);
        packed[packed.size() - 1] ^= 1; // the last byte of gzip's size, of zlib's checksum
        const std::string result = Decompressed(packed, format);
        ASSERT_EQ(result.rfind("(failed) ", 0), 0u);
        EXPECT_TRUE(result.substr(9) == text.substr(0, 2 * kBuffer));
    }
}

TEST(CompressionLibFileTest, EachFormatRefusesTheOther)
{
    const std::string text = SomeText(1000);
    EXPECT_EQ(Decompressed(DeflatedText(text, kFormats[0]), kFormats[1]), "(failed) ");
    EXPECT_EQ(Decompressed(DeflatedText(text, kFormats[1]), kFormats[0]), "(failed) ");
    for (const Format& format : kFormats)
    {
        EXPECT_EQ(Decompressed("", format), "(failed) ");
        EXPECT_EQ(Decompressed(text, format), "(failed) ");
        EXPECT_EQ(Decompressed(AsText(Deflated(AsBytes(text), Container::Raw)), format), "(failed) ");
    }
}

TEST(CompressionLibFileTest, DataThatNeedsADictionaryFails)
{
    EXPECT_EQ(Decompressed(DeflatedWithDictionary(), kFormats[1]), "(failed) ");
}

TEST(CompressionLibFileTest, BytesAfterTheEndOfTheStreamAreIgnored)
{
    for (const std::size_t size : {std::size_t(1000), std::size_t(kBuffer), std::size_t(1'000'000)})
    {
        const std::string text = SomeText(size);
        for (const Format& format : kFormats)
        {
            const std::string packed = DeflatedText(text, format);
            EXPECT_TRUE(Decompressed(packed + "x", format) == text);
            EXPECT_TRUE(Decompressed(packed + packed, format) == text);
            EXPECT_TRUE(Decompressed(packed + SomeNoise(300'000), format) == text);
        }
    }
}

TEST(CompressionLibFileTest, FilesOfOtherProgramsDecompress)
{
    const std::string files[] = {{std::begin(ForeignGzip::kByGzip), std::end(ForeignGzip::kByGzip)},
                                 {std::begin(ForeignGzip::kByPython), std::end(ForeignGzip::kByPython)},
                                 {std::begin(ForeignGzip::kByPerl), std::end(ForeignGzip::kByPerl)},
                                 {std::begin(ForeignGzip::kWithHeaderCheck), std::end(ForeignGzip::kWithHeaderCheck)}};
    for (const std::string& file : files)
    {
        EXPECT_EQ(Decompressed(file), ForeignGzip::kText);
    }
}

TEST(CompressionLibFileTest, PayloadsAndFilesHaveTheSameForm)
{
    const TempFolder folder;
    Bytes data = Text(500'000);
    Bytes payload;
    CompressionLib::DeflatePayload(data, payload);
    folder.Write("payload", AsText(payload));

    EXPECT_TRUE(CompressionLib::DecompressFile(folder / "payload", folder / "file"));
    EXPECT_TRUE(folder.Read("file") == AsText(data));
    EXPECT_TRUE(CompressionLib::CompressFile(folder / "file", folder / "packed"));
    EXPECT_TRUE(folder.Read("packed") == AsText(payload));
}

// The method is a private parameter that no operation sets to another value. An explicit instantiation may name private
// members: so the shared routines can be called with one.
namespace
{

template <typename Method, bool (*Compress)(const std::string&, const std::string&, Method),
          bool (*Decompress)(const std::string&, const std::string&, Method)>
struct PrivateRoutines
{
    friend bool CompressBy(int method, const std::string& source, const std::string& destination)
    {
        return Compress(source, destination, static_cast<Method>(method));
    }
    friend bool DecompressBy(int method, const std::string& source, const std::string& destination)
    {
        return Decompress(source, destination, static_cast<Method>(method));
    }
};
bool CompressBy(int method, const std::string& source, const std::string& destination);
bool DecompressBy(int method, const std::string& source, const std::string& destination);
template struct PrivateRoutines<CompressionLib::CompressionMethod, &CompressionLib::CompressFile,
                                &CompressionLib::DecompressFile>;

} // namespace

TEST(CompressionLibFileTest, MethodsHaveTheirNumbersAndOthersFail)
{
    const TempFolder folder;
    const std::string text = SomeText(1000);
    folder.Write("source", text);
    for (const int method : {0, 1})
    {
        EXPECT_TRUE(CompressBy(method, folder / "source", folder / "packed"));
        EXPECT_TRUE(folder.Read("packed") == DeflatedText(text, kFormats[method]));
        EXPECT_TRUE(DecompressBy(method, folder / "packed", folder / "unpacked"));
        EXPECT_EQ(folder.Read("unpacked"), text);
    }
    for (const int method : {2, -1, 3, 1000})
    {
        EXPECT_FALSE(CompressBy(method, folder / "source", folder / "packed"));
        EXPECT_EQ(folder.Read("packed"), "");
        EXPECT_FALSE(DecompressBy(method, folder / "source", folder / "packed"));
        EXPECT_EQ(folder.Read("packed"), "");
    }
}
