#include <tests/support/OpenHandles.h>

#include <UtilsLib/WindowsTypes.h>
#include <UtilsLib/platform/LastErrorKeeper.h>
#include <UtilsLib/platform/UniqueFileHandle.h>

#include <tlhelp32.h>

#include <cstdint>

namespace TestSupport
{

namespace
{

// Handles are multiples of four, and the lowest free one is given out first: so long a gap is the end.
constexpr unsigned int kLongestGap = 256;

} // namespace

unsigned long OpenHandles()
{
    // Each by itself. The system's list of the handles of all processes would be one call, but when that list is long,
    // Wine's server has been seen to hang up on the thread that asks: it is then gone without a word.
    const UtilsLib::Platform::LastErrorKeeper keep;
    unsigned long count = 0;
    unsigned int gap = 0;
    for (std::uintptr_t value = 4; gap < kLongestGap; value += 4)
    {
        DWORD flags = 0;
        const bool open = GetHandleInformation(reinterpret_cast<HANDLE>(value), &flags);
        count += open ? 1 : 0;
        gap = open ? 0 : gap + 1;
    }
    return count;
}

unsigned long RunningThreads()
{
    const UtilsLib::Platform::UniqueFileHandle snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0));
    THREADENTRY32 entry = {};
    entry.dwSize = sizeof(entry);
    unsigned long count = 0;
    for (BOOL more = Thread32First(snapshot.Get(), &entry); more; more = Thread32Next(snapshot.Get(), &entry))
    {
        count += entry.th32OwnerProcessID == GetCurrentProcessId() ? 1 : 0;
    }
    return count;
}

} // namespace TestSupport
