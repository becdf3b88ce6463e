#include <UtilsLib/platform/OwnFileHandle.h>

#include <UtilsLib/platform/UniqueFileHandle.h>

#include <winternl.h>

namespace UtilsLib::Platform
{
namespace
{

constexpr ULONG_PTR kHandleStep = 4;
constexpr ULONG_PTR kLastHandle = 0x10000;

bool IsOpenForReadingAndWriting(HANDLE handle)
{
    // Asked of the handle alone. To ask the object of a pipe would wait for whoever is reading from it.
    // NOLINTNEXTLINE(misc-redundant-expression): the two masks share rights
    constexpr ACCESS_MASK kAccess = FILE_GENERIC_READ | FILE_GENERIC_WRITE;
    PUBLIC_OBJECT_BASIC_INFORMATION information{};
    return NtQueryObject(handle, ObjectBasicInformation, &information, sizeof(information), nullptr) >= 0 &&
           information.GrantedAccess == kAccess;
}

bool IsStandardHandle(HANDLE handle)
{
    return handle == GetStdHandle(STD_INPUT_HANDLE) || handle == GetStdHandle(STD_OUTPUT_HANDLE) ||
           handle == GetStdHandle(STD_ERROR_HANDLE);
}

bool IsSameFile(HANDLE handle, const BY_HANDLE_FILE_INFORMATION& file)
{
    BY_HANDLE_FILE_INFORMATION other{};
    return GetFileType(handle) == FILE_TYPE_DISK && GetFileInformationByHandle(handle, &other) &&
           other.dwVolumeSerialNumber == file.dwVolumeSerialNumber && other.nFileIndexHigh == file.nFileIndexHigh &&
           other.nFileIndexLow == file.nFileIndexLow;
}

} // namespace

HANDLE FindOwnFileHandle(const std::string& path)
{
    // Without any access but to its attributes, a file opens however it is shared.
    const UniqueFileHandle file(CreateFileA(path.c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                            nullptr, OPEN_EXISTING, 0, nullptr));
    BY_HANDLE_FILE_INFORMATION information{};
    if (!file || !GetFileInformationByHandle(file.Get(), &information))
    {
        return INVALID_HANDLE_VALUE;
    }
    for (ULONG_PTR value = kHandleStep; value < kLastHandle; value += kHandleStep)
    {
        const HANDLE handle = reinterpret_cast<HANDLE>(value);
        if (IsOpenForReadingAndWriting(handle) && !IsStandardHandle(handle) && IsSameFile(handle, information))
        {
            return handle;
        }
    }
    return INVALID_HANDLE_VALUE;
}

} // namespace UtilsLib::Platform
