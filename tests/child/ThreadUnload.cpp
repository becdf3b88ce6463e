// Loads a library with a static thread and unloads it while that runs: child_thread_unload WORK ROUNDS AT_ONCE.
#include <tests/child/AfterUnload.h>
#include <tests/child/StaticThread.h>
#include <tests/support/OpenHandles.h>

#include <windows.h>

#include <cstdlib>

namespace
{

template <typename Function>
Function* Find(HMODULE library, const char* name)
{
    return reinterpret_cast<Function*>(reinterpret_cast<void*>(GetProcAddress(library, name)));
}

/// 0 when the library and the one it uses were there and are gone again.
int Round(int work, bool atOnce)
{
    const HMODULE library = LoadLibraryA("child_static_thread.dll");
    if (library == nullptr || GetModuleHandleA("UtilsLib.dll") == nullptr)
    {
        return 3;
    }
    Find<StartStaticThread>(library, "StartStatic")(work);
    const auto runs = Find<StaticThreadRuns>(library, "StaticRuns");
    while (!atOnce && !runs())
    {
        Sleep(0);
    }
    FreeLibrary(library);
    return GetModuleHandleA("child_static_thread.dll") || GetModuleHandleA("UtilsLib.dll") ? 4 : 0;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 4)
    {
        return 2;
    }
    const int work = std::atoi(argv[1]);
    const int rounds = std::atoi(argv[2]);
    const bool atOnce = std::atoi(argv[3]) != 0;
    Round(work, atOnce); // opens what the system itself keeps
    const unsigned long handles = TestSupport::OpenHandles();
    for (int i = 0; i < rounds; ++i)
    {
        if (const int failure = Round(work, atOnce))
        {
            return failure;
        }
    }
    return OnlyMainThreadAndHandlesStay(handles + kHandlesOfTheRunTime) ? 0 : 5;
}
