#include <UtilsLib/system/HelperUtils.h>

#include <UtilsLib/platform/LastErrorKeeper.h>
#include <UtilsLib/platform/LowerCase.h>
#include <UtilsLib/platform/ModulePath.h>
#include <UtilsLib/platform/UniqueLocalMemory.h>
#include <UtilsLib/text/StringUtils.h>

#include <algorithm>
#include <iterator>
#include <string_view>

namespace UtilsLib
{

namespace
{

constexpr DWORD kUserNameSize = 260; // characters with the terminator
constexpr std::string_view kAccdata = "\\accdata";

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

bool HelperUtils::DirectoryExists(const std::string& path)
{
    const DWORD attributes = GetFileAttributesA(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
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
