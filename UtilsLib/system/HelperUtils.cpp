#include <UtilsLib/system/HelperUtils.h>

#include <UtilsLib/WindowsTypes.h>
#include <UtilsLib/logging/Logger.h>
#include <UtilsLib/platform/LastErrorKeeper.h>
#include <UtilsLib/platform/LowerCase.h>
#include <UtilsLib/platform/ModulePath.h>
#include <UtilsLib/platform/UniqueFindHandle.h>
#include <UtilsLib/platform/UniqueLocalMemory.h>
#include <UtilsLib/platform/UniqueRegKey.h>
#include <UtilsLib/text/StringUtils.h>

#include <accctrl.h>
#include <aclapi.h>
#include <lm.h>
#include <shellapi.h>

#include <algorithm>
#include <cwchar>
#include <iterator>
#include <string_view>

namespace UtilsLib
{

namespace
{

constexpr DWORD kUserNameSize = 260;     // characters with the terminator
constexpr DWORD kWorkstationLevel = 102; // the lowest that gives the LAN group to every user
constexpr const char* kUninstallKey = "SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\";
constexpr std::string_view kAccdata = "\\accdata";

struct UniqueNetBufferTraits
{
    using Type = BYTE*;
    static Type Invalid()
    {
        return nullptr;
    }
    static void Close(Type value)
    {
        NetApiBufferFree(value);
    }
};

/// What a network function returned for the caller to free.
using UniqueNetBuffer = Platform::UniqueResource<UniqueNetBufferTraits>;

bool Contains(const std::string& text, std::string_view part)
{
    return text.find(part) != std::string::npos;
}

/// The user's folder for temporary files with a separator at its end; empty when the system does not tell.
std::string TempFolderPath()
{
    char buffer[MAX_PATH + 1] = "";
    const DWORD length = GetTempPathA(sizeof(buffer), buffer);
    return length < sizeof(buffer) ? std::string(buffer, length) : std::string();
}

/// `path` from its drive on, without separators at its end; empty when it is empty or has more than 259 characters.
std::wstring FullPath(const std::string& path)
{
    wchar_t buffer[MAX_PATH] = L"";
    DWORD length = GetFullPathNameW(StringUtils::ToUnicode(path).c_str(), MAX_PATH, buffer, nullptr);
    if (length >= MAX_PATH)
    {
        return {};
    }
    while (length > 0 && buffer[length - 1] == L'\\')
    {
        --length;
    }
    return {buffer, length};
}

bool IsDots(const wchar_t* name)
{
    return std::wcscmp(name, L".") == 0 || std::wcscmp(name, L"..") == 0;
}

/// Whether no path in `folder` has more than 259 characters. What a link leads to is not in it.
bool AllPathsAreShort(const std::wstring& folder)
{
    WIN32_FIND_DATAW entry = {};
    const Platform::UniqueFindHandle search(FindFirstFileW((folder + L"\\*").c_str(), &entry));
    for (bool more = static_cast<bool>(search); more; more = FindNextFileW(search.Get(), &entry) != FALSE)
    {
        if (IsDots(entry.cFileName))
        {
            continue;
        }
        const std::wstring path = folder + L"\\" + entry.cFileName;
        const bool isFolder = (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0 &&
                              (entry.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0;
        if (path.size() >= MAX_PATH || (isFolder && !AllPathsAreShort(path)))
        {
            return false;
        }
    }
    return true;
}

/// Whether the shell can be trusted to delete this folder and nothing else. It takes wildcards, which name more than
/// one folder, and its paths end at 259 characters: a shell has been seen to take a longer one in the folder for the
/// current directory, and to delete that.
bool IsSafeForTheShell(const std::string& path)
{
    const std::wstring fullPath = FullPath(path);
    return !fullPath.empty() && fullPath.find_first_of(L"*?") == std::wstring::npos && AllPathsAreShort(fullPath);
}

/// Full access for the system's own account, handed down to folders and files.
EXPLICIT_ACCESSA LocalSystemEntry()
{
    static char name[] = "SYSTEM"; // only read, but the record wants it writable
    EXPLICIT_ACCESSA entry = {};
    BuildExplicitAccessWithNameA(&entry, name, FILE_ALL_ACCESS, GRANT_ACCESS, SUB_CONTAINERS_AND_OBJECTS_INHERIT);
    return entry;
}

/// Returns the error code of the failed step, with the last error as that step left it.
DWORD GrantAccessToLocalSystem(std::string path)
{
    if (path.empty())
    {
        return ERROR_INVALID_PARAMETER;
    }
    ACL* oldList = nullptr; // part of the descriptor
    Platform::UniqueLocalMemory descriptor;
    DWORD error = GetNamedSecurityInfoA(path.c_str(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr,
                                        &oldList, nullptr, descriptor.Put());
    if (error != ERROR_SUCCESS)
    {
        return error;
    }
    // Without a list everybody has full access. One that only grants it to this account would shut all others out.
    if (oldList == nullptr)
    {
        return ERROR_SUCCESS;
    }
    EXPLICIT_ACCESSA entry = LocalSystemEntry();
    Platform::UniqueLocalMemory newList;
    error = SetEntriesInAclA(1, &entry, oldList, reinterpret_cast<ACL**>(newList.Put()));
    if (error != ERROR_SUCCESS)
    {
        return error;
    }
    return SetNamedSecurityInfoA(path.data(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr,
                                 static_cast<ACL*>(newList.Get()), nullptr);
}

} // namespace

std::string HelperUtils::GetLocalMachineName()
{
    char buffer[MAX_COMPUTERNAME_LENGTH + 1] = "";
    DWORD length = sizeof(buffer);
    if (!GetComputerNameA(buffer, &length))
    {
        return {};
    }
    return {buffer, length};
}

std::string HelperUtils::GetDomainName()
{
    std::wstring machine = StringUtils::ToUnicode(GetLocalMachineName());
    UniqueNetBuffer buffer;
    const NET_API_STATUS status = NetWkstaGetInfo(machine.data(), kWorkstationLevel, buffer.Put());
    const auto* const information = reinterpret_cast<const WKSTA_INFO_102*>(buffer.Get());
    if (status != NERR_Success || information == nullptr || information->wki102_langroup == nullptr)
    {
        return "unknown";
    }
    return StringUtils::FromUnicode(information->wki102_langroup);
}

std::string HelperUtils::GetCurrentUserName()
{
    char buffer[kUserNameSize] = "";
    DWORD size = sizeof(buffer);
    if (!GetUserNameA(buffer, &size))
    {
        return {};
    }
    std::string name(buffer, size);
    StringUtils::Clean(name); // the size counts the terminator
    return name;
}

std::string HelperUtils::GetBinaryPath()
{
    return Platform::ModulePath(nullptr);
}

std::string HelperUtils::GetModulePath(const std::string& moduleName)
{
    const HMODULE module = GetModuleHandleA(moduleName.c_str());
    return module == nullptr ? std::string() : Platform::ModulePath(module);
}

bool HelperUtils::GetApplicationInstalled(const std::string& applicationKey)
{
    Platform::UniqueRegKey key;
    return RegOpenKeyExA(HKEY_LOCAL_MACHINE, (kUninstallKey + applicationKey).c_str(), 0, KEY_READ, key.Put()) ==
           ERROR_SUCCESS;
}

bool HelperUtils::DirectoryExists(const std::string& path)
{
    const DWORD attributes = GetFileAttributesA(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

bool HelperUtils::DeleteDirectory(const std::string& path, bool permanently)
{
    if (IsSafeForTheShell(path))
    {
        // A list of paths, each with its terminator and one more at the end. What stands behind a zero byte in `path`
        // is not part of it, and must not become a second path to delete.
        std::string list = path;
        StringUtils::Clean(list);
        list.push_back('\0');
        SHFILEOPSTRUCTA operation = {};
        operation.wFunc = FO_DELETE;
        operation.pFrom = list.c_str();
        operation.fFlags = FOF_SILENT | FOF_NOCONFIRMATION | (permanently ? 0 : FOF_ALLOWUNDO);
        SHFileOperationA(&operation);
    }
    // kept: what the shell answers does not count, only what is there afterwards
    return !DirectoryExists(path);
}

bool HelperUtils::GrantLocalSystemFullAccessToDirectory(const std::string& path)
{
    const DWORD error = GrantAccessToLocalSystem(path);
    if (error == ERROR_SUCCESS)
    {
        return true;
    }
    const Platform::LastErrorKeeper keep; // making the logger may change it
    ILogger& logger = Logger::GetInstance();
    logger.Log(LogCategory::CloudConfiguration, LogTraceLevel::Error,
               "GrantDirectoryAccessToLocalSystem Failed with error code %d", static_cast<int>(error));
    logger.Log(LogCategory::CloudConfiguration, LogTraceLevel::Error,
               "GetLastError after call to GrantDirectoryAccessToLocalSystem is %d", static_cast<int>(keep.Value()));
    return false;
}

bool HelperUtils::IsUnitTestRun(const std::string& path)
{
    const std::string lowered = Platform::LowerCase(path);
    return Contains(lowered, "\\testresults\\") && Contains(lowered, "\\out\\");
}

bool HelperUtils::IsTemp(const std::string& path)
{
    const std::string folder = Platform::LowerCase(TempFolderPath());
    // Every text contains the empty one.
    return !folder.empty() && Contains(Platform::LowerCase(path), folder);
}

std::string HelperUtils::GetLastErrorMessage()
{
    const Platform::LastErrorKeeper keep;
    Platform::UniqueLocalMemory buffer;
    const DWORD length =
        FormatMessageA(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
                       nullptr, keep.Value(), LANG_SYSTEM_DEFAULT, reinterpret_cast<char*>(buffer.Put()), 0, nullptr);
    if (length == 0)
    {
        return {};
    }
    const std::string text(static_cast<const char*>(buffer.Get()), length);
    OutputDebugStringA(text.c_str());
    return text;
}

void HelperUtils::TrimAccdata(std::string& path)
{
    // kept: the first occurrence counts, so an earlier one prevents the cut
    if (path.size() >= kAccdata.size() && path.find(kAccdata) == path.size() - kAccdata.size())
    {
        path.resize(path.size() - kAccdata.size());
    }
}

std::vector<Event> HelperUtils::FilterEvents(const std::vector<Event>& events, const std::vector<EventDontShow>& hidden)
{
    std::vector<Event> shown;
    std::copy_if(events.begin(), events.end(), std::back_inserter(shown), [&hidden](const Event& event) {
        return std::count_if(hidden.begin(), hidden.end(), [&event](const EventDontShow& kind) {
                   return kind.scope == event.scope && kind.zone == event.zone && kind.type == event.type;
               }) == 0;
    });
    return shown;
}

} // namespace UtilsLib
