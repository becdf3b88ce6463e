#include <UtilsLib/platform/VersionResource.h>

#include <cstdint>
#include <cstring>
#include <vector>

namespace UtilsLib::Platform
{

namespace
{

// No file's path is longer; the narrow call need not survive one that is (Wine's follows a pointer that it never set).
constexpr std::size_t kLongestPath = 32'766;
// The system's parser runs on to the end of a text: a damaged resource must end in zeros, inside our buffer.
constexpr std::size_t kGuard = 64;
// The lengths in a version resource are of 16 bits; what claims to be larger than a few of those is damaged.
constexpr DWORD kLargestResource = 1 << 20;

/// The whole version resource, with zeros behind it; empty when the file has none.
std::vector<char> ReadResource(const std::string& path)
{
    if (path.size() > kLongestPath)
    {
        return {};
    }
    const DWORD size = GetFileVersionInfoSizeA(path.c_str(), nullptr);
    if (size == 0 || size > kLargestResource)
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

} // namespace

std::optional<VS_FIXEDFILEINFO> ReadFixedFileInfo(const std::string& path)
{
    const std::vector<char> resource = ReadResource(path);
    void* found = nullptr;
    UINT length = 0;
    if (resource.empty() || !VerQueryValueA(resource.data(), "\\", &found, &length) ||
        length < sizeof(VS_FIXEDFILEINFO))
    {
        return std::nullopt;
    }
    // A damaged resource can send the system's parser anywhere, to an odd address too.
    const std::size_t place =
        reinterpret_cast<std::uintptr_t>(found) - reinterpret_cast<std::uintptr_t>(resource.data());
    const std::size_t size = resource.size() - kGuard;
    if (place > size || size - place < sizeof(VS_FIXEDFILEINFO))
    {
        return std::nullopt;
    }
    VS_FIXEDFILEINFO info;
    std::memcpy(&info, resource.data() + place, sizeof(info));
    return info;
}

} // namespace UtilsLib::Platform
