#include <benchmarks/Job.h>

#include <UtilsLib/WindowsTypes.h>
#include <UtilsLib/text/StringUtils.h>

#include <absl/strings/match.h>
#include <absl/strings/str_split.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstddef>
#include <string>
#include <vector>

using UtilsLib::StringUtils;

namespace Bench
{
namespace
{

// Split

std::string g_fields = "4711,Bergmann & Sons,2026-11-15,1284.50,EUR,open,Invoice 2026/0815 of November,,north,7f3c90aa";

std::vector<std::string> SplitByAbsl()
{
    return absl::StrSplit(Opaque(g_fields), ',');
}

std::vector<std::string> SplitByFinding()
{
    const std::string& text = Opaque(g_fields);
    std::vector<std::string> fields;
    std::size_t start = 0;
    for (std::size_t end; (end = text.find(',', start)) != std::string::npos; start = end + 1)
    {
        fields.push_back(text.substr(start, end - start));
    }
    fields.push_back(text.substr(start));
    return fields;
}

std::vector<std::string> SplitCounted()
{
    const std::string& text = Opaque(g_fields);
    std::vector<std::string> fields;
    fields.reserve(static_cast<std::size_t>(std::count(text.begin(), text.end(), ',')) + 1);
    const char* start = text.data();
    const char* const end = start + text.size();
    for (const char* at = start; at != end; ++at)
    {
        if (*at == ',')
        {
            fields.emplace_back(start, at);
            start = at + 1;
        }
    }
    fields.emplace_back(start, end);
    return fields;
}

// StartsWithCaseInsensitive

std::string g_address = "HTTPS://drive.corvane.example/mc/signon";
std::string g_prefix = "https://";

const std::array<char, 256>& LowerTable()
{
    static const std::array<char, 256> table = [] {
        std::array<char, 256> lower{};
        for (int i = 0; i < 256; ++i)
        {
            lower[static_cast<std::size_t>(i)] = static_cast<char>(std::tolower(i));
        }
        return lower;
    }();
    return table;
}

__attribute__((noinline)) bool StartsByTable(std::string text, std::string prefix)
{
    const std::array<char, 256>& table = LowerTable();
    const auto lower = [&table](char c) { return table[static_cast<unsigned char>(c)]; };
    return prefix.size() <= text.size() && std::equal(prefix.begin(), prefix.end(), text.begin(),
                                                      [lower](char a, char b) { return lower(a) == lower(b); });
}

// Conversions

std::string g_narrow = "C:\\ProgramData\\Corvane\\Accounts\\Data Service"; // 44 characters
std::wstring g_wide = L"C:\\ProgramData\\Corvane\\Accounts\\Data Service";

std::wstring WidenByOneCall()
{
    const std::string& text = Opaque(g_narrow);
    wchar_t buffer[260];
    const int size = MultiByteToWideChar(CP_ACP, 0, text.c_str(), static_cast<int>(text.size()), buffer, 260);
    return std::wstring(buffer, static_cast<std::size_t>(size));
}

std::string NarrowByOneCall()
{
    const std::wstring& text = Opaque(g_wide);
    char buffer[260];
    const int size =
        WideCharToMultiByte(CP_ACP, 0, text.c_str(), static_cast<int>(text.size()), buffer, 260, nullptr, nullptr);
    return std::string(buffer, static_cast<std::size_t>(size));
}

} // namespace

void AddStringsJobs()
{
    Job::Add("Split: 10 fields", {.leastOfBestOther = 1.0})
        .Ours(Calling([] { return StringUtils::Split(Opaque(g_fields), ','); }))
        .Alternative("absl::StrSplit", Calling(&SplitByAbsl))
        .Alternative("find and substr", Calling(&SplitByFinding))
        .Floor("counted, one allocation", Calling(&SplitCounted));
    Job::Add("StartsWithCaseInsensitive", {.mostOfFloor = 1.1})
        .Ours(Calling([] { return StringUtils::StartsWithCaseInsensitive(Opaque(g_address), Opaque(g_prefix)); }))
        .Alternative("absl::StartsWithIgnoreCase (no copies)",
                     Calling([] { return absl::StartsWithIgnoreCase(Opaque(g_address), Opaque(g_prefix)); }))
        .Floor("table, arguments by value", Calling([] { return StartsByTable(Opaque(g_address), Opaque(g_prefix)); }));
    Job::Add("ToUnicode: 44 characters", {.leastOfBestOther = 1.0})
        .Ours(Calling([] { return StringUtils::ToUnicode(Opaque(g_narrow)); }))
        .Alternative("one platform call", Calling(&WidenByOneCall))
        .Floor("copy of the result", Calling([] { return std::wstring(Opaque(g_wide)); }));
    Job::Add("FromUnicode: 44 characters", {.leastOfBestOther = 1.0})
        .Ours(Calling([] { return StringUtils::FromUnicode(Opaque(g_wide)); }))
        .Alternative("one platform call", Calling(&NarrowByOneCall))
        .Floor("copy of the result", Calling([] { return std::string(Opaque(g_narrow)); }));
}

} // namespace Bench
