#include <SnapshotStage.h>

#include <CompanyFolder.h>

#include <UtilsLib/compression/CompressionLib.h>
#include <UtilsLib/compression/DataSnapshot.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <future>
#include <iterator>
#include <system_error>
#include <vector>

using UtilsLib::CompressionLib;
using UtilsLib::DataSnapshot;
using UtilsLib::DataSnapshotStatus;

namespace
{

namespace fs = std::filesystem;

constexpr int kLedgers = 0x1;
constexpr int kReports = 0x2;
constexpr int kLayouts = 0x4;
constexpr std::uintmax_t kLargestPayload = 64 << 20;

unsigned long long TotalSize(const std::string& folder)
{
    unsigned long long bytes = 0;
    for (const CompanyFile& file : ListCompany(folder))
    {
        bytes += file.size;
    }
    return bytes;
}

std::string RatioText(unsigned long long from, unsigned long long to)
{
    return BytesText(from) + " to " + BytesText(to) + ", " +
           std::to_string(from == 0 ? 100 : (to * 100 + from / 2) / from) + " %";
}

/// Copies on a thread of its own, so that this one can draw the bar.
bool Copy(Console& console, DataSnapshot& snapshot, unsigned long long expected, unsigned long& error)
{
    std::future<bool> copied = std::async(std::launch::async, [&] { return snapshot.Execute(error); });
    while (copied.wait_for(std::chrono::milliseconds(100)) == std::future_status::timeout)
    {
        const unsigned long long done = TotalSize(snapshot.GetSnapshotPath());
        console.Progress("copying", expected == 0 ? 1 : std::min(1.0, static_cast<double>(done) / expected));
    }
    console.EndProgress();
    return copied.get();
}

void TakeSnapshot(Console& console, DataSnapshot& snapshot, const std::string& company, const std::string& root)
{
    if (snapshot.Enumerate(root) != DataSnapshotStatus::Success)
    {
        console.Line("The snapshot folder cannot be made in " + root);
        return;
    }
    unsigned long error = 0;
    if (!Copy(console, snapshot, TotalSize(company), error))
    {
        console.Line(error == 0 ? "A file is being written by another program: nothing is taken."
                                : "The copy failed with error " + std::to_string(error));
        return;
    }
    const std::vector<CompanyFile> files = ListCompany(snapshot.GetSnapshotPath());
    console.Value("taken",
                  std::to_string(files.size()) + " files, " + BytesText(TotalSize(snapshot.GetSnapshotPath())));
    console.Value("in", snapshot.GetSnapshotPath());
}

std::vector<unsigned char> ReadAll(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void CompressPayload(Console& console, const std::string& path)
{
    std::vector<unsigned char> payload = ReadAll(path);
    std::vector<unsigned char> compressed;
    std::vector<unsigned char> restored;
    CompressionLib::DeflatePayload(payload, compressed);
    CompressionLib::InflatePayload(compressed, restored);
    console.Value("the same in memory", RatioText(payload.size(), compressed.size()) +
                                            (restored == payload ? ", inflates back to the same bytes" : ", DIFFERS"));
}

} // namespace

void SnapshotCompany(Console& console, const std::string& company, const std::string& outFolder)
{
    const unsigned long long before = CompanyDigest(company);
    const std::string root = outFolder + "\\snapshots";
    std::error_code error;
    fs::create_directories(root, error);
    std::string path;
    {
        DataSnapshot snapshot(company, kLedgers | kReports | kLayouts);
        TakeSnapshot(console, snapshot, company, root);
        path = snapshot.GetSnapshotPath();
    } // undone here
    console.Line(fs::exists(path, error) ? "Undone, but " + path + " is still there (is the retain switch on?)."
                                         : "Undone: the snapshot folder is gone.");
    console.Line(CompanyDigest(company) == before ? "The company is byte for byte what it was."
                                                  : "THE COMPANY HAS CHANGED.");
}

std::string CompressLargestFile(Console& console, const std::string& company, const std::string& outFolder)
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
    const std::string target = outFolder + "\\" + fs::path(largest->path).filename().string() + ".gz";
    if (!CompressionLib::CompressFile(source, target))
    {
        console.Line(source + " cannot be compressed to " + target);
        return {};
    }
    std::error_code error;
    console.Value(largest->path, RatioText(largest->size, fs::file_size(target, error)));
    if (largest->size <= kLargestPayload)
    {
        CompressPayload(console, source);
    }
    return target;
}
