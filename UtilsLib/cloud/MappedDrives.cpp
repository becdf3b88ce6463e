#include <UtilsLib/cloud/MappedDrives.h>

#include <UtilsLib/WindowsTypes.h>
#include <UtilsLib/platform/LowerCase.h>
#include <UtilsLib/text/StringUtils.h>

#include <winnetwk.h>

#include <vector>

namespace UtilsLib
{

namespace
{

constexpr DWORD kDrivesSize = 512; // bytes; 26 drives take 105
constexpr DWORD kNameSize = 1024;  // bytes

std::vector<std::string> DriveRoots()
{
    char buffer[kDrivesSize] = "";
    const DWORD length = GetLogicalDriveStringsA(kDrivesSize, buffer);
    if (length == 0 || length > kDrivesSize)
    {
        return {};
    }
    return StringUtils::Split({buffer, length - 1}, '\0');
}

/// The UNC name of a network drive in lower case; empty when it is not connected.
std::string UniversalName(const std::string& root)
{
    alignas(REMOTE_NAME_INFOA) char buffer[kNameSize] = "";
    DWORD size = kNameSize;
    if (WNetGetUniversalNameA(root.c_str(), REMOTE_NAME_INFO_LEVEL, buffer, &size) != NO_ERROR)
    {
        return {};
    }
    const char* const name = reinterpret_cast<const REMOTE_NAME_INFOA*>(buffer)->lpUniversalName;
    return name == nullptr ? std::string() : Platform::LowerCase(std::string(name));
}

} // namespace

void MappedDrives::GetRemoteDrives(std::map<char, std::string>& drives)
{
    for (std::string root : DriveRoots())
    {
        StringUtils::ToLower(root);
        if (root.empty())
        {
            continue;
        }
        std::string& name = drives[root.front()];
        name.clear();
        if (GetDriveTypeA(root.c_str()) == DRIVE_REMOTE)
        {
            name = UniversalName(root);
        }
    }
}

} // namespace UtilsLib
