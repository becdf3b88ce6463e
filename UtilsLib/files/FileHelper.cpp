#include <UtilsLib/files/FileHelper.h>

#include <UtilsLib/platform/UniqueFileHandle.h>

#include <cstdint>

namespace UtilsLib
{

unsigned long long FileHelper::GetFileSize(const std::string& path)
{
    const Platform::UniqueFileHandle file(CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                                      OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    LARGE_INTEGER size = {};
    if (!file || !GetFileSizeEx(file.Get(), &size))
    {
        return 0;
    }
    // kept: the low 32 bits, widened with their sign.
    return static_cast<unsigned long long>(static_cast<std::int32_t>(size.LowPart));
}

} // namespace UtilsLib
