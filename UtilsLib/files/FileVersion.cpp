#include <UtilsLib/files/FileVersion.h>

#include <UtilsLib/WindowsTypes.h>
#include <UtilsLib/system/HelperUtils.h>
#include <UtilsLib/text/StringUtils.h>

#include <winver.h>

#include <cstdlib>
#include <vector>

namespace UtilsLib
{

namespace
{

// The system's parser runs on to the end of a text: a damaged resource must end in zeros, inside our buffer.
constexpr std::size_t kGuard = 64;

/// The whole version resource, with zeros behind it; empty when the file has none.
std::vector<char> ReadResource(const std::string& path)
{
    const DWORD size = GetFileVersionInfoSizeA(path.c_str(), nullptr);
    if (size == 0)
    {
        return {};
    }
    std::vector<char> resource(size + kGuard);
    if (!GetFileVersionInfoA(path.c_str(), 0, size, resource.data()))
    {
        return {};
    }
    return resource;
}

std::string FormatVersion(const VS_FIXEDFILEINFO& info)
{
    return std::to_string(HIWORD(info.dwFileVersionMS)) + "." + std::to_string(LOWORD(info.dwFileVersionMS)) + "." +
           std::to_string(HIWORD(info.dwFileVersionLS)) + "." + std::to_string(LOWORD(info.dwFileVersionLS));
}

std::string ReadVersion(const std::string& path)
{
    const std::vector<char> resource = ReadResource(path);
    void* info = nullptr;
    UINT length = 0;
    if (resource.empty() || !VerQueryValueA(resource.data(), "\\", &info, &length) || length < sizeof(VS_FIXEDFILEINFO))
    {
        return {};
    }
    const char* const first = static_cast<const char*>(info);
    if (first < resource.data() || first + sizeof(VS_FIXEDFILEINFO) > resource.data() + resource.size())
    {
        return {};
    }
    return FormatVersion(*static_cast<const VS_FIXEDFILEINFO*>(info));
}

} // namespace

FileVersion::FileVersion(const std::string& path)
    : m_version(ReadVersion(path.empty() ? HelperUtils::GetBinaryPath() : path))
{
}

std::string FileVersion::GetVersion() const
{
    return m_version;
}

FileVersion::Version FileVersion::ParseVersion(const std::string& text)
{
    std::vector<std::string> parts = StringUtils::Split(text, '.');
    parts.resize(4);
    return {std::atoi(parts[0].c_str()), std::atoi(parts[1].c_str()), std::atoi(parts[2].c_str()),
            std::atoi(parts[3].c_str())};
}

} // namespace UtilsLib
