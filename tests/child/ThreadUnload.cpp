// Loads a library with a static thread and unloads it while that runs: child_thread_unload WORK ROUNDS AT_ONCE.
#include <tests/child/StaticThread.h>
#include <tests/support/OpenHandles.h>

#include <windows.h>

#include <cstdio>
#include <cstdlib>

namespace
{

// The C++ run-time makes a few more when threads first wait for each other; a leak makes one in every round.
constexpr unsigned long kAllowance = 8;

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

bool ThreadsAndHandlesReturnTo(unsigned long threads, unsigned long handles)
{
    for (int i = 0; i < 200; ++i)
    {
        if (TestSupport::RunningThreads() <= threads && TestSupport::OpenHandles() <= handles + kAllowance)
        {
            return true;
        }
        Sleep(10);
    }
    std::printf("threads %lu, were %lu; handles %lu, were %lu\n", TestSupport::RunningThreads(), threads,
                TestSupport::OpenHandles(), handles);
    return false;
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
    const unsigned long threads = 1;
    const unsigned long handles = TestSupport::OpenHandles();
    for (int i = 0; i < rounds; ++i)
    {
        if (const int failure = Round(work, atOnce))
        {
            return failure;
        }
    }
    return ThreadsAndHandlesReturnTo(threads, handles) ? 0 : 5;
}
