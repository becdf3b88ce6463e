// Loads a library that starts the live settings and unloads it while they run: child_live_settings_unload ROUNDS.
#include <tests/child/AfterUnload.h>
#include <tests/support/ImportPatch.h>
#include <tests/support/OpenHandles.h>

#include <windows.h>

#include <cstdlib>

namespace
{

bool g_failCreation = false;
int g_closedNull = 0;

HANDLE WINAPI CreateOrFail(SECURITY_ATTRIBUTES* security, LONG initial, LONG maximum, const char* name)
{
    return g_failCreation ? nullptr : CreateSemaphoreA(security, initial, maximum, name);
}

BOOL WINAPI CountNull(HANDLE handle)
{
    g_closedNull += handle == nullptr ? 1 : 0;
    return CloseHandle(handle);
}

bool SemaphoreExists()
{
    const HANDLE semaphore = OpenSemaphoreA(SYNCHRONIZE, FALSE, "hxds_drivetest_sm");
    if (semaphore != nullptr)
    {
        CloseHandle(semaphore);
    }
    return semaphore != nullptr;
}

/// 0 when the library and the one it uses were there and are gone again.
int Round()
{
    const HMODULE library = LoadLibraryA("child_live_settings_library.dll");
    if (library == nullptr || GetModuleHandleA("UtilsLib.dll") == nullptr)
    {
        return 3;
    }
    // Never undone: the module that they change is gone by then.
    new TestSupport::ImportPatch("KERNEL32.dll", "CreateSemaphoreA", &CreateOrFail);
    new TestSupport::ImportPatch("KERNEL32.dll", "CloseHandle", &CountNull);
    reinterpret_cast<void (*)()>(reinterpret_cast<void*>(GetProcAddress(library, "StartLiveSettings")))();
    if (!g_failCreation && !SemaphoreExists())
    {
        return 4;
    }
    FreeLibrary(library);
    return GetModuleHandleA("UtilsLib.dll") != nullptr ? 5 : 0;
}

} // namespace

int main(int argc, char** argv)
{
    const int rounds = argc == 2 ? std::atoi(argv[1]) : 0;
    Round(); // opens what the system itself keeps
    const unsigned long handles = TestSupport::OpenHandles();
    for (int i = 0; i < rounds; ++i)
    {
        g_failCreation = i % 2 != 0;
        if (const int failure = Round())
        {
            return failure;
        }
    }
    if (g_closedNull != 0)
    {
        return 6;
    }
    return OnlyMainThreadAndHandlesStay(handles) ? 0 : 7;
}
