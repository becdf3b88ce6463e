#include <UtilsLib/threading/ThreadUtils.h>

#include <UtilsLib/platform/UniqueFileHandle.h>

#include <tlhelp32.h>

namespace UtilsLib
{

unsigned long ThreadUtils::GetMainThreadId()
{
    const Platform::UniqueFileHandle snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0));
    if (!snapshot)
    {
        return 0;
    }
    const DWORD process = GetCurrentProcessId();
    THREADENTRY32 entry = {};
    entry.dwSize = sizeof(entry);
    // A step may succeed and yet say that it was the last one. What an earlier call of this thread left must not be
    // taken for that.
    SetLastError(ERROR_SUCCESS);
    for (BOOL more = Thread32First(snapshot.Get(), &entry); more && GetLastError() != ERROR_NO_MORE_FILES;
         more = Thread32Next(snapshot.Get(), &entry))
    {
        if (entry.th32OwnerProcessID == process)
        {
            return entry.th32ThreadID;
        }
    }
    return 0;
}

void ThreadUtils::SetThreadName(const std::string&)
{
}

} // namespace UtilsLib
