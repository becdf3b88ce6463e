#include <benchmarks/Job.h>

#include <UtilsLib/files/FileOperations.h>
#include <UtilsLib/platform/UniqueFileHandle.h>
#include <UtilsLib/platform/UniqueHandle.h>
#include <tests/support/TempFolder.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

using TestSupport::TempFolder;
using UtilsLib::Platform::UniqueFileHandle;
using UtilsLib::Platform::UniqueHandle;

namespace Bench
{
namespace
{

constexpr unsigned int kFileBytes = 64 << 20;

/// The file that all jobs read, made when it is first used.
const std::string& InputPath()
{
    static TempFolder folder;
    static const std::string path = [] {
        std::string content(kFileBytes, '\0');
        for (std::size_t i = 0; i < content.size(); ++i)
        {
            content[i] = static_cast<char>(i * 31 >> 3);
        }
        folder.Write("input.dat", content);
        return folder / "input.dat";
    }();
    return path;
}

/// What a caller does with a chunk: it passes a copy on.
unsigned int PassOn(const unsigned char* data, unsigned int size)
{
    static std::vector<unsigned char> receiver(1 << 20);
    std::memcpy(receiver.data(), data, size);
    benchmark::DoNotOptimize(receiver.data());
    benchmark::ClobberMemory();
    return receiver[0] + receiver[size - 1];
}

unsigned int ReadByOurs(unsigned int chunk)
{
    unsigned int sum = 0;
    UtilsLib::FileOperations::OperateOnFile(InputPath(), chunk,
                                            [&sum](const unsigned char* data, unsigned int size, bool) {
                                                sum += PassOn(data, size);
                                                return true;
                                            });
    return sum;
}

unsigned int ReadByStream(unsigned int chunk)
{
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(InputPath().c_str(), "rb"), &std::fclose);
    std::vector<unsigned char> buffer(chunk);
    unsigned int sum = 0;
    while (const std::size_t size = std::fread(buffer.data(), 1, buffer.size(), file.get()))
    {
        sum += PassOn(buffer.data(), static_cast<unsigned int>(size));
    }
    return sum;
}

UniqueFileHandle OpenInput()
{
    return UniqueFileHandle(CreateFileA(InputPath().c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                        FILE_ATTRIBUTE_NORMAL, nullptr));
}

unsigned int ReadByMapping(unsigned int chunk)
{
    const UniqueFileHandle file = OpenInput();
    const UniqueHandle mapping(CreateFileMappingA(file.Get(), nullptr, PAGE_READONLY, 0, 0, nullptr));
    const void* const view = MapViewOfFile(mapping.Get(), FILE_MAP_READ, 0, 0, 0);
    unsigned int sum = 0;
    for (unsigned int at = 0; view && at < kFileBytes; at += chunk)
    {
        sum += PassOn(static_cast<const unsigned char*>(view) + at, std::min(chunk, kFileBytes - at));
    }
    UnmapViewOfFile(view);
    return sum;
}

unsigned int ReadByReadFile(unsigned int chunk)
{
    const UniqueFileHandle file = OpenInput();
    std::vector<unsigned char> buffer(chunk);
    unsigned int sum = 0;
    DWORD size = 0;
    while (ReadFile(file.Get(), buffer.data(), chunk, &size, nullptr) && size > 0)
    {
        sum += PassOn(buffer.data(), size);
    }
    return sum;
}

Job::Body Measured(unsigned int (*read)(unsigned int), unsigned int chunk)
{
    return [read, chunk](benchmark::State& state) {
        const unsigned int expected = ReadByReadFile(chunk);
        for (auto _ : state)
        {
            if (read(chunk) != expected)
            {
                state.SkipWithError("the data read is not the file's");
            }
        }
    };
}

} // namespace

void AddFileOperationsJobs()
{
    for (const unsigned int kibibytes : {4u, 64u, 1024u})
    {
        const unsigned int chunk = kibibytes << 10;
        Job::Add("OperateOnFile: 64 MiB in chunks of " + std::to_string(kibibytes) + " KiB", {.leastOfBestOther = 0.9})
            .BytesAnOperation(kFileBytes)
            .Ours(Measured(&ReadByOurs, chunk))
            .Alternative("fread", Measured(&ReadByStream, chunk))
            .Alternative("mapping", Measured(&ReadByMapping, chunk))
            .Floor("ReadFile, one buffer", Measured(&ReadByReadFile, chunk));
    }
}

} // namespace Bench
