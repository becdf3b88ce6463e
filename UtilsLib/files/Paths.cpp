#include <UtilsLib/files/Paths.h>

#include <UtilsLib/platform/LowerCase.h>
#include <UtilsLib/system/HelperUtils.h>
#include <UtilsLib/text/StringUtils.h>

#include <objbase.h>
#include <shlobj.h>
#include <shlwapi.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <memory>
#include <string_view>
#include <utility>

namespace UtilsLib
{

namespace
{

constexpr char kSeparator = '\\';
constexpr char kSeparators[] = "\\";
constexpr char kThisComputer[] = "127.0.0.1";
constexpr std::string_view kNetworkPrefix = "\\\\";
constexpr std::size_t kShortestNetworkPath = 3;
constexpr std::size_t kAccdataLength = 8; // of the name with its separator
constexpr std::size_t kLongestRoot = 3;   // "c:\"

// Logs in the root of the drive. The rules as they stand refuse no file there; a stricter one must not refuse these.
constexpr std::string_view kAllowedLogs[] = {"c:\\rfsdk log_v22.txt", "c:\\rfsdk log_v23.txt", "c:\\rfsdk log_v24.txt",
                                             "c:\\rfsdk log_v25.txt"};

constexpr GUID kProgramData = {0x62AB5D82, 0xFDC1, 0x4DC3, {0xA9, 0xDD, 0x07, 0x0D, 0x1D, 0x49, 0x5D, 0x97}};

struct FreeTaskMemory
{
    void operator()(void* memory) const
    {
        CoTaskMemFree(memory);
    }
};

bool Contains(const std::string& text, std::string_view part)
{
    return text.find(part) != std::string::npos;
}

/// Cuts at the last separator; nothing is left without one.
void RemoveLastComponent(std::string& path)
{
    const std::size_t separator = path.rfind(kSeparator);
    path.resize(separator == std::string::npos ? 0 : separator);
}

std::string WithoutLastSeparator(std::string path)
{
    if (!path.empty() && path.back() == kSeparator)
    {
        path.pop_back();
    }
    return path;
}

/// ASCII whatever the locale.
bool IsAllowedInFileName(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == ' ' ||
           c == '.' || c == '-';
}

} // namespace

std::string Paths::GetPath(std::string path)
{
    RemoveLastComponent(path);
    return Platform::LowerCase(std::move(path));
}

std::string Paths::GetDataPath(std::string path)
{
    RemoveLastComponent(path);
    RemoveLastComponent(path);
    return Platform::LowerCase(std::move(path));
}

std::string Paths::GetFilename(std::string path)
{
    path.erase(0, path.rfind(kSeparator) + 1); // none is -1
    return path;
}

std::string Paths::CombinePaths(std::string first, std::string second)
{
    if (first.empty())
    {
        return second;
    }
    if (second.empty())
    {
        return first;
    }
    StringUtils::TrimEnd(first, kSeparators);
    first += kSeparator;
    StringUtils::TrimStart(second, kSeparators);
    // On a code page of double bytes the result may outgrow the buffer. It then comes cut, as a success, and without a
    // terminator of its own.
    char buffer[MAX_PATH];
    std::memset(buffer, 'x', sizeof(buffer));
    if (PathCombineA(buffer, first.c_str(), second.c_str()) == nullptr ||
        std::memchr(buffer, '\0', sizeof(buffer)) == nullptr)
    {
        return {};
    }
    return buffer;
}

std::string Paths::RemoveLastBackslashAndToLower(const std::string& path)
{
    return Platform::LowerCase(WithoutLastSeparator(path));
}

std::string Paths::StripAccdata(const std::string& path)
{
    std::string stripped = WithoutLastSeparator(path);
    // kept: the word anywhere in the path costs it its last eight characters
    if (stripped.size() >= kAccdataLength && Contains(Platform::LowerCase(stripped), "accdata"))
    {
        stripped.resize(stripped.size() - kAccdataLength);
    }
    return stripped;
}

bool Paths::IsLocalMachine(std::string& host)
{
    StringUtils::ToLower(host); // kept: callers go on with the lower-cased name
    return host == Platform::LowerCase(HelperUtils::GetLocalMachineName());
}

std::string Paths::GetHost(const std::string& path)
{
    if (path.size() < kShortestNetworkPath || path.compare(0, kNetworkPrefix.size(), kNetworkPrefix) != 0)
    {
        return kThisComputer;
    }
    const std::size_t end = std::min(path.find(kSeparator, kNetworkPrefix.size()), path.size());
    std::string host = path.substr(kNetworkPrefix.size(), end - kNetworkPrefix.size());
    return IsLocalMachine(host) ? kThisComputer : host;
}

bool Paths::SecurityCheckPath(const std::string& path)
{
    // kept: letter case counts in all of these
    if (std::find(std::begin(kAllowedLogs), std::end(kAllowedLogs), path) != std::end(kAllowedLogs) ||
        Contains(path, "c:\\windows\\temp"))
    {
        return true;
    }
    if (Contains(path, "c:\\windows"))
    {
        return false;
    }
    const std::size_t separator = path.rfind(kSeparator);
    if (separator == std::string::npos || separator == 0 || path.size() > kLongestRoot)
    {
        return true;
    }
    return path[separator - 1] != ':';
}

std::string Paths::RemoveInvalidCharactersFromFileName(const std::string& name)
{
    // The regular expression [^a-zA-Z0-9_ .-] by hand: std::regex takes a thousand times as long.
    std::string safe = name;
    std::erase_if(safe, [](char c) { return !IsAllowedInFileName(c); });
    StringUtils::TrimEnd(safe, " .");
    return safe;
}

std::string Paths::SanitiseFileName(const std::string& name)
{
    return RemoveInvalidCharactersFromFileName(Platform::LowerCase(name));
}

std::string Paths::GetSpecialFolderPath(GUID folder)
{
    wchar_t* path = nullptr;
    SHGetKnownFolderPath(folder, 0, nullptr, &path);
    const std::unique_ptr<wchar_t, FreeTaskMemory> owner(path);
    return path == nullptr ? std::string() : StringUtils::FromUnicode(path);
}

std::string Paths::CreateProgramDataDatabaseFolder()
{
    const std::string path = GetSpecialFolderPath(kProgramData) + "\\Corvane\\Accounts\\Data Service";
    SHCreateDirectoryExA(nullptr, path.c_str(), nullptr);
    return path;
}

} // namespace UtilsLib
