// A library with a static pool and a static future, which are destroyed when the process ends.
#include <UtilsLib/threading/LambdaThreadPoolTask.h>
#include <UtilsLib/threading/SingleFutureTask.h>
#include <UtilsLib/threading/ThreadPool.h>

#include <tests/child/StaticTasks.h>

#include <atomic>

namespace
{

std::atomic<bool> ms_runs = false;

void Do(StaticWork work)
{
    ms_runs = true;
    if (work == StaticWork::EndProcess)
    {
        ExitProcess(12);
    }
    Sleep(INFINITE);
}

} // namespace

extern "C" __declspec(dllexport) void StartInPool(StaticWork work)
{
    static UtilsLib::ThreadPool pool(3, "static");
    pool.Submit(new UtilsLib::LambdaThreadPoolTask([work] { Do(work); }));
}

extern "C" __declspec(dllexport) void StartInFuture(StaticWork work)
{
    static UtilsLib::SingleFutureTask task;
    task.Run([work] { Do(work); });
}

extern "C" __declspec(dllexport) bool StaticRuns()
{
    return ms_runs;
}
