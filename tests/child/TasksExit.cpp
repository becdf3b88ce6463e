// A host that ends while a pool or a future works: child_tasks_exit WAY.
#include <UtilsLib/threading/LambdaThreadPoolTask.h>
#include <UtilsLib/threading/SingleFutureTask.h>
#include <UtilsLib/threading/ThreadPool.h>

#include <tests/child/Signals.h>
#include <tests/child/StaticTasks.h>

#include <atomic>
#include <cstdlib>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>

using UtilsLib::LambdaThreadPoolTask;
using UtilsLib::SingleFutureTask;
using UtilsLib::TaskBase;
using UtilsLib::ThreadPool;

namespace
{

std::atomic<bool> ms_runs = false;

ThreadPool& Pool()
{
    static ThreadPool pool(3, "host");
    return pool;
}

SingleFutureTask& Future()
{
    static SingleFutureTask task;
    return task;
}

class UntilShutdown : public TaskBase
{
public:
    void Run() override
    {
        ms_runs = true;
        while (!ShouldShutDown())
        {
            Sleep(1);
        }
        SignalReady();
    }
};

void WaitUntilItRuns(const std::function<bool()>& runs)
{
    while (!runs())
    {
        Sleep(1);
    }
}

int PoolOfHost()
{
    Pool().Submit(new UntilShutdown);
    WaitUntilItRuns([] { return ms_runs.load(); });
    return 7;
}

int FutureOfHost()
{
    Future().Run([] {
        ms_runs = true;
        Sleep(200);
        SignalReady();
    });
    WaitUntilItRuns([] { return ms_runs.load(); });
    return 8;
}

int InLibrary(const char* start, StaticWork work)
{
    const HMODULE library = LoadLibraryA("child_static_tasks.dll");
    const auto find = [library](const char* name) { return reinterpret_cast<void*>(GetProcAddress(library, name)); };
    reinterpret_cast<StartStaticWork*>(find(start))(work);
    WaitUntilItRuns(reinterpret_cast<StaticWorkRuns*>(find("StaticRuns")));
    Sleep(work == StaticWork::EndProcess ? INFINITE : 0);
    return 9;
}

int PoolTask(std::function<void()> work)
{
    Pool().Submit(new LambdaThreadPoolTask(std::move(work)));
    Sleep(INFINITE);
    return 1;
}

int FutureWork(std::function<void()> work)
{
    Future().Run(std::move(work));
    Sleep(INFINITE);
    return 1;
}

} // namespace

int main(int argc, char** argv)
{
    const std::map<std::string, std::function<int()>> ways = {
        {"pool", [] { return PoolOfHost(); }},
        {"future", [] { return FutureOfHost(); }},
        {"pool-library", [] { return InLibrary("StartInPool", StaticWork::Endless); }},
        {"future-library", [] { return InLibrary("StartInFuture", StaticWork::Endless); }},
        {"pool-library-exits", [] { return InLibrary("StartInPool", StaticWork::EndProcess); }},
        {"future-library-exits", [] { return InLibrary("StartInFuture", StaticWork::EndProcess); }},
        {"pool-exits", [] { return PoolTask([] { std::exit(10); }); }},
        {"future-exits", [] { return FutureWork([] { std::exit(11); }); }},
        {"pool-throws", [] { return PoolTask([] { throw std::runtime_error("escaped"); }); }},
    };
    const auto way = ways.find(argc == 2 ? argv[1] : "");
    return way == ways.end() ? 2 : way->second();
}
