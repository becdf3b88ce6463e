#include <CompanyFolder.h>

#include <AnsiText.h>

#include <UtilsLib/files/FileOperations.h>
#include <UtilsLib/progress/ScopedSubProgress.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <numeric>
#include <random>
#include <system_error>

using UtilsLib::FileOperations;
using UtilsLib::ProgressHandler;
using UtilsLib::ScopedSubProgress;

namespace
{

namespace fs = std::filesystem;

void WriteFile(const fs::path& path, const std::string& content)
{
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary | std::ios::trunc) << content;
}

/// Fixed-size records with an account number and an amount, as ledger files have them.
std::string LedgerRecords(std::size_t count)
{
    constexpr std::size_t kRecord = 64;
    std::mt19937 random(static_cast<unsigned int>(count));
    std::string records(count * kRecord, '\0');
    for (std::size_t i = 0; i < count; ++i)
    {
        char* const record = &records[i * kRecord];
        const std::string account = "ACC" + std::to_string(1000 + i % 250);
        account.copy(record, account.size());
        const std::uint32_t amount = random() % 1'000'000;
        std::copy_n(reinterpret_cast<const char*>(&amount), sizeof(amount), record + 16);
    }
    return records;
}

std::string ReportText(int lines)
{
    std::string text = "Aged debtors\r\n============\r\n";
    for (int i = 0; i < lines; ++i)
    {
        text += "Customer " + std::to_string(100 + i) + "   due " + std::to_string(i * 37 % 5000) + ".00\r\n";
    }
    return text;
}

std::string InvoiceText(int number)
{
    return "INVOICE " + std::to_string(20260000 + number) + "\r\nWidgets, 12 at 9.50\r\nTotal 114.00\r\n";
}

constexpr unsigned int kChunk = 1 << 16; // bytes

/// FNV-1a, 64 bits.
class Digest
{
public:
    void Add(const unsigned char* bytes, std::size_t count)
    {
        for (std::size_t i = 0; i < count; ++i)
        {
            m_value = (m_value ^ bytes[i]) * 0x100000001B3;
        }
    }
    unsigned long long Value() const
    {
        return m_value;
    }

private:
    unsigned long long m_value = 0xCBF29CE484222325;
};

std::string Picture(std::size_t size)
{
    std::mt19937 random(7);
    std::string bytes = "BM";
    while (bytes.size() < size)
    {
        bytes += static_cast<char>(random());
    }
    return bytes;
}

} // namespace

void MakeSampleCompany(const std::string& folder)
{
    const fs::path root = folder;
    WriteFile(root / "company.ini", "[company]\r\nname=Sample Trading Ltd\r\n");
    WriteFile(root / "accdata" / "ledger.dta", LedgerRecords(40'000));
    WriteFile(root / "accdata" / "accounts.dta", LedgerRecords(2'000));
    WriteFile(root / "accdata" / "audit" / "audit.dta", LedgerRecords(6'000));
    for (int i = 1; i <= 12; ++i)
    {
        WriteFile(root / "invoices" / ("invoice" + std::to_string(i) + ".txt"), InvoiceText(i));
    }
    WriteFile(root / "reports" / "debtors.rpt", ReportText(400));
    WriteFile(root / "reports" / "archive" / "debtors 2025.rpt", ReportText(900));
    WriteFile(root / "criteria" / "default.crt", "region=all\r\n");
    WriteFile(root / "journals" / "2026-11.jnl", LedgerRecords(500));
    WriteFile(root / "bitmaps" / "logo.bmp", Picture(60'000));
    WriteFile(root / "layouts" / "invoice.lyt", std::string("\x01\x02layout\0\0header", 16));
}

std::vector<CompanyFile> ListCompany(const std::string& folder)
{
    std::vector<CompanyFile> files;
    std::error_code error;
    const fs::path root = folder;
    for (fs::recursive_directory_iterator entry(root, fs::directory_options::skip_permission_denied, error), end;
         !error && entry != end; entry.increment(error))
    {
        std::error_code gone;
        const unsigned long long size = entry->is_regular_file(gone) ? entry->file_size(gone) : 0;
        if (!gone && entry->is_regular_file(gone))
        {
            files.push_back({AnsiText(fs::relative(entry->path(), root, gone)), size});
        }
    }
    return files;
}

std::optional<unsigned long long> CompanyDigest(const std::string& folder, ProgressHandler& progress,
                                                const std::string& what)
{
    std::vector<CompanyFile> files = ListCompany(folder);
    std::sort(files.begin(), files.end(), [](const CompanyFile& a, const CompanyFile& b) { return a.path < b.path; });
    ScopedSubProgress part(progress, what);
    part.Begin(std::accumulate(files.begin(), files.end(), 0ull,
                               [](unsigned long long sum, const CompanyFile& file) { return sum + file.size; }));
    Digest digest;
    for (const CompanyFile& file : files)
    {
        digest.Add(reinterpret_cast<const unsigned char*>(file.path.data()), file.path.size());
        const auto add = [&](const unsigned char* data, unsigned int length, bool) {
            digest.Add(data, length);
            part.UpdateProgressCurrent(length, ProgressHandler::Relative);
            return true;
        };
        if (!FileOperations::OperateOnFile(folder + "\\" + file.path, kChunk, add))
        {
            return std::nullopt;
        }
    }
    return digest.Value();
}
