#include <UtilsLib/system/Process.h>

#include <UtilsLib/WindowsTypes.h>
#include <UtilsLib/platform/UniqueFileHandle.h>
#include <UtilsLib/text/StringUtils.h>

#include <tlhelp32.h>

namespace UtilsLib
{

namespace
{

/// As the file system compares names: no locale has a say.
bool AreSameFileName(const std::wstring& left, const std::wstring& right)
{
    return CompareStringOrdinal(left.data(), static_cast<int>(left.size()), right.data(),
                                static_cast<int>(right.size()), TRUE) == CSTR_EQUAL;
}

} // namespace

bool Process::IsRunning(const std::string& executableName, bool& running)
{
    // A failed snapshot is no null: the tool-help functions answer like CreateFile.
    const Platform::UniqueFileHandle snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    if (!snapshot)
    {
        return false;
    }
    // kept: `running` is never set to false
    const std::wstring name = StringUtils::ToUnicode(executableName);
    PROCESSENTRY32 entry = {};
    entry.dwSize = sizeof(entry);
    for (BOOL more = Process32First(snapshot.Get(), &entry); more; more = Process32Next(snapshot.Get(), &entry))
    {
        if (AreSameFileName(StringUtils::ToUnicode(entry.szExeFile), name))
        {
            running = true;
            break;
        }
    }
    return true;
}

void Process::KillCurrentProcess()
{
    TerminateProcess(GetCurrentProcess(), 0);
    WaitForSingleObject(GetCurrentProcess(), INFINITE);
}

} // namespace UtilsLib
