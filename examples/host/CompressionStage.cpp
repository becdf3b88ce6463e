#include <CompressionStage.h>

#include <AnsiText.h>
#include <CompanyFolder.h>

#include <UtilsLib/compression/CompressionLib.h>
#include <UtilsLib/files/FileOperations.h>
#include <UtilsLib/progress/ScopedSubProgress.h>

#include <algorithm>
#include <filesystem>
#include <optional>
#include <system_error>
#include <vector>

using UtilsLib::CompressionLib;
using UtilsLib::FileOperations;
using UtilsLib::ProgressHandler;
using UtilsLib::ScopedSubProgress;

namespace
{

namespace fs = std::filesystem;

using Bytes = std::vector<unsigned char>;

constexpr unsigned long long kLargestPayload = 64 << 20;
constexpr unsigned int kChunk = 1 << 16; // bytes

/// What became of the payload.
struct InMemory
{
    unsigned long long size = 0;
    bool sameAgain = false; // inflates back to the same bytes
};

std::string RatioText(unsigned long long from, unsigned long long to)
{
    return BytesText(from) + " to " + BytesText(to) + ", " +
           std::to_string(from == 0 ? 100 : (to * 100 + from / 2) / from) + " %";
}

Bytes ReadAll(const std::string& path, unsigned long long size, ProgressHandler& progress)
{
    ScopedSubProgress part(progress, "reading");
    part.Begin(size);
    Bytes bytes;
    FileOperations::OperateOnFile(path, kChunk, [&](const unsigned char* data, unsigned int length, bool) {
        bytes.insert(bytes.end(), data, data + length);
        part.UpdateProgressCurrent(length, ProgressHandler::Relative);
        return true;
    });
    return bytes;
}

Bytes Deflate(Bytes& payload, ProgressHandler& progress)
{
    const ScopedSubProgress part(progress, "deflating"); // in one call: there is nothing to count
    Bytes compressed;
    CompressionLib::DeflatePayload(payload, compressed);
    return compressed;
}

bool InflatesTo(const Bytes& payload, const Bytes& compressed, ProgressHandler& progress)
{
    struct Comparison
    {
        const Bytes& payload;
        ScopedSubProgress part;
        bool same = true;
    } comparison{payload, {progress, "inflating"}};
    comparison.part.Begin(payload.size());
    const unsigned int inflated = CompressionLib::InflatePayload(
        compressed, nullptr, nullptr,
        [](void* context, void* data, unsigned int offset, unsigned int length, unsigned int total) {
            auto& here = *static_cast<Comparison*>(context);
            const auto* const chunk = static_cast<const unsigned char*>(data);
            here.same = here.same && total <= here.payload.size() &&
                        std::equal(chunk, chunk + length, here.payload.begin() + offset);
            here.part.UpdateProgressCurrent(total, ProgressHandler::Absolute);
        },
        &comparison);
    return comparison.same && inflated == payload.size();
}

bool CompressToFile(const std::string& source, const std::string& target, ProgressHandler& progress)
{
    const ScopedSubProgress part(progress, "writing " + AnsiText(fs::path(target).filename()));
    return CompressionLib::CompressFile(source, target);
}

InMemory CompressInMemory(const std::string& path, unsigned long long size, ProgressHandler& progress)
{
    Bytes payload = ReadAll(path, size, progress);
    progress.UpdateProgressCurrent(1, ProgressHandler::Relative);
    const Bytes compressed = Deflate(payload, progress);
    progress.UpdateProgressCurrent(1, ProgressHandler::Relative);
    const bool same = InflatesTo(payload, compressed, progress);
    progress.UpdateProgressCurrent(1, ProgressHandler::Relative);
    return {compressed.size(), same};
}

} // namespace

std::string CompressLargestFile(Console& console, Job& job, const std::string& company, const std::string& outFolder)
{
    const std::vector<CompanyFile> files = ListCompany(company);
    const auto largest = std::max_element(files.begin(), files.end(),
                                          [](const CompanyFile& a, const CompanyFile& b) { return a.size < b.size; });
    if (largest == files.end())
    {
        console.Line("There is no file to compress.");
        return {};
    }
    const std::string source = company + "\\" + largest->path;
    const std::string target = outFolder + "\\" + AnsiText(fs::path(largest->path).filename()) + ".gz";
    bool written = false;
    std::optional<InMemory> inMemory;
    job.RunStage(Compressing, [&](ProgressHandler& progress) {
        const bool alsoInMemory = largest->size <= kLargestPayload;
        progress.Begin(alsoInMemory ? 4 : 1, 0); // steps
        written = CompressToFile(source, target, progress);
        progress.UpdateProgressCurrent(1, ProgressHandler::Relative);
        if (alsoInMemory)
        {
            inMemory = CompressInMemory(source, largest->size, progress);
        }
    });
    if (!written)
    {
        console.Line(source + " cannot be compressed to " + target);
        return {};
    }
    std::error_code error;
    console.Value(largest->path, RatioText(largest->size, fs::file_size(target, error)));
    if (inMemory)
    {
        console.Value("the same in memory",
                      RatioText(largest->size, inMemory->size) +
                          (inMemory->sameAgain ? ", inflates back to the same bytes" : ", DIFFERS"));
    }
    return target;
}
