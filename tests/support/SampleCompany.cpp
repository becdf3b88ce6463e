#include <tests/support/SampleCompany.h>

#include <UtilsLib/WindowsTypes.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace TestSupport
{

void WriteSampleCompany(const TempFolder& root, const std::string& relative)
{
    const std::string company = relative + "\\";
    root.Write(company + "company.ini", "[Company]\r\nName=M\xFCller & Sons\r\n");
    root.Write(company + "seed.dat", "4711");
    root.Write(company + "accdata\\ledger.dat", BinaryContent(70'000, 1));
    root.Write(company + "accdata\\customer.dat", BinaryContent(4'096, 2));
    root.Write(company + "accdata\\queue.dat", "");
    root.Write(company + "accdata\\errors.rpt", "No errors found.\r\n");
    root.Write(company + "accdata\\images\\logo.bmp", BinaryContent(1'500, 3));
    root.Write(company + "accdata\\images\\old\\logo.bmp", BinaryContent(900, 4));
    root.Write(company + "reports\\sales\\monthly\\november.rpt", "Total 1,234.50\r\n");
    root.Write(company + "reports\\list.rpt", "sales\r\n");
    root.Write(company + "invoices\\INV00001.dat", BinaryContent(512, 5));
    root.Write(company + "InvoiceReminders\\first.txt", "Please pay.\r\n");
    root.Write(company + "layouts\\invoice.lyt", BinaryContent(2'000, 6));
    root.Write(company + "bitmaps\\paid.bmp", BinaryContent(333, 7));
    root.Write(company + "attachments\\scan.pdf", BinaryContent(10'000, 8));
    root.Write(company + "Transaction Attachments\\2026\\11\\bill.pdf", BinaryContent(777, 9));
    root.Write(company + "private\\notes.txt", "no snapshot takes this\r\n");
    root.MakeFolder(company + "memo");
    SetFileAttributesA((root / (company + "accdata\\customer.dat")).c_str(), FILE_ATTRIBUTE_READONLY);
    SetFileAttributesA((root / (company + "invoices\\INV00001.dat")).c_str(),
                       FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM);
}

std::string BinaryContent(std::size_t size, unsigned int seed)
{
    std::string content(size, '\0');
    unsigned int state = seed;
    for (char& byte : content)
    {
        state = state * 1'103'515'245u + 12'345u;
        byte = static_cast<char>(state >> 16);
    }
    return content;
}

std::map<std::string, std::string> ContentsOf(const std::string& folder)
{
    std::map<std::string, std::string> contents;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder))
    {
        const std::string path = entry.path().string();
        const std::string name = path.substr(folder.size() + 1);
        if (entry.is_directory())
        {
            contents[name + "\\"];
            continue;
        }
        std::ifstream file(entry.path(), std::ios::binary);
        contents[name].assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
        if (!file)
        {
            throw std::runtime_error("cannot read " + path);
        }
    }
    return contents;
}

} // namespace TestSupport
