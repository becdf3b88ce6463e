#include <UtilsLib/files/FileVersion.h>

#include <UtilsLib/platform/VersionResource.h>
#include <UtilsLib/system/HelperUtils.h>

#include <algorithm>
#include <cstdlib>
#include <optional>

namespace UtilsLib
{

namespace
{

std::string FormatVersion(const VS_FIXEDFILEINFO& info)
{
    return std::to_string(HIWORD(info.dwFileVersionMS)) + "." + std::to_string(LOWORD(info.dwFileVersionMS)) + "." +
           std::to_string(HIWORD(info.dwFileVersionLS)) + "." + std::to_string(LOWORD(info.dwFileVersionLS));
}

std::string ReadVersion(const std::string& path)
{
    const std::optional<VS_FIXEDFILEINFO> info = Platform::ReadFixedFileInfo(path);
    return info ? FormatVersion(*info) : "";
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
    int numbers[4] = {};
    std::size_t start = 0;
    for (int& number : numbers)
    {
        const std::size_t end = std::min(text.find('.', start), text.size());
        number = std::atoi(text.substr(start, end - start).c_str());
        start = std::min(end + 1, text.size());
    }
    return {numbers[0], numbers[1], numbers[2], numbers[3]};
}

} // namespace UtilsLib
