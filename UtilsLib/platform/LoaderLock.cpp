#include <UtilsLib/platform/LoaderLock.h>

#include <UtilsLib/WindowsTypes.h>

// In the system since Windows XP, but in no header.
extern "C" __declspec(dllimport) LONG NTAPI LdrLockLoaderLock(ULONG flags, ULONG* state, ULONG_PTR* cookie);
extern "C" __declspec(dllimport) LONG NTAPI LdrUnlockLoaderLock(ULONG flags, ULONG_PTR cookie);

namespace UtilsLib::Platform
{

namespace
{

constexpr ULONG kTryOnly = 2;
constexpr ULONG kNotTaken = 2; // the state when another thread has the lock
constexpr DWORD kPause = 10;   // ms between two attempts

bool IsLoaderFree()
{
    ULONG state = 0;
    ULONG_PTR cookie = 0;
    if (LdrLockLoaderLock(kTryOnly, &state, &cookie) < 0)
    {
        return true; // cannot be told
    }
    if (state == kNotTaken)
    {
        return false;
    }
    LdrUnlockLoaderLock(0, cookie);
    return true;
}

} // namespace

bool WaitForLoader(unsigned long limit)
{
    const ULONGLONG start = GetTickCount64();
    while (!IsLoaderFree())
    {
        if (GetTickCount64() - start >= limit)
        {
            return false;
        }
        Sleep(kPause);
    }
    return true;
}

} // namespace UtilsLib::Platform
