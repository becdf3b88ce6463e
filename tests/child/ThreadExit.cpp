// A host that ends without shutting its static thread down: child_thread_exit WAY.
#include <UtilsLib/threading/Thread.h>

#include <tests/child/StaticThread.h>

#include <climits>
#include <cstdlib>
#include <string>

namespace
{

class Worker : public UtilsLib::Thread
{
public:
    explicit Worker(const std::string& name) : Thread(name)
    {
    }
    ~Worker()
    {
        Shutdown();
    }

    bool m_endsProcess = false;
    std::atomic<bool> m_runs = false;

private:
    void ThreadProc() override
    {
        m_runs = true;
        if (m_endsProcess)
        {
            std::exit(9);
        }
        ControlledSleep(UINT_MAX);
    }
};

// One that exists before main and one that is made later, when the library has made its own statics.
Worker ms_early("early");

Worker& Late()
{
    static Worker worker("late");
    return worker;
}

void StartAndWait(Worker& worker)
{
    worker.Start();
    while (!worker.m_runs)
    {
        Sleep(1);
    }
}

void StartInLibrary(int work, bool wait)
{
    const HMODULE library = LoadLibraryA("child_static_thread.dll");
    const auto start =
        reinterpret_cast<StartStaticThread*>(reinterpret_cast<void*>(GetProcAddress(library, "StartStatic")));
    const auto runs =
        reinterpret_cast<StaticThreadRuns*>(reinterpret_cast<void*>(GetProcAddress(library, "StaticRuns")));
    start(work);
    while (wait && !runs())
    {
        Sleep(1);
    }
}

} // namespace

int main(int argc, char** argv)
{
    const std::string way = argc == 2 ? argv[1] : "";
    if (way == "host")
    {
        StartAndWait(ms_early);
        StartAndWait(Late());
        return 7;
    }
    if (way == "library")
    {
        StartInLibrary(SleepUntilStopped, true);
        return 8;
    }
    if (way == "library-at-once")
    {
        StartInLibrary(SleepUntilStopped, false);
        return 8;
    }
    if (way == "thread-exits")
    {
        Late().m_endsProcess = true;
        Late().Start();
        Sleep(INFINITE);
    }
    if (way == "library-thread-exits")
    {
        StartInLibrary(EndProcess, false);
        Sleep(INFINITE);
    }
    return 2;
}
