#include <benchmarks/Job.h>

#include <UtilsLib/WindowsTypes.h>
#include <UtilsLib/platform/UniqueHandle.h>
#include <UtilsLib/threading/TaskQueue.h>
#include <UtilsLib/threading/ThreadPool.h>

#include <atomic>
#include <chrono>
#include <climits>
#include <deque>
#include <memory>

using UtilsLib::TaskBase;
using UtilsLib::TaskQueue;
using UtilsLib::ThreadPool;
using UtilsLib::Platform::UniqueHandle;

namespace Bench
{
namespace
{

constexpr unsigned int kBatch = 500;
constexpr unsigned int kRoundTrips = 200;

/// Counts the tasks of a batch down, and wakes the submitter after the last.
class Countdown
{
public:
    explicit Countdown(unsigned int count) : m_left(count), m_done(CreateEventA(nullptr, FALSE, FALSE, nullptr))
    {
    }
    void Restart(unsigned int count)
    {
        m_left = count;
    }
    void Tick()
    {
        if (--m_left == 0)
        {
            SetEvent(m_done.Get());
        }
    }
    void Wait() const
    {
        WaitForSingleObject(m_done.Get(), INFINITE);
    }

private:
    std::atomic<unsigned int> m_left;
    UniqueHandle m_done;
};

/// An empty task: only its end is told.
class EmptyTask : public TaskBase
{
public:
    explicit EmptyTask(Countdown& countdown) : m_countdown(countdown)
    {
    }
    ~EmptyTask() override
    {
        m_countdown.Tick();
    }
    void Run() override
    {
    }

private:
    Countdown& m_countdown;
};

/// A task that tells when it began.
class StampTask : public TaskBase
{
public:
    StampTask(std::chrono::steady_clock::time_point& began, Countdown& countdown)
        : m_began(began), m_countdown(countdown)
    {
    }
    ~StampTask() override
    {
        m_countdown.Tick();
    }
    void Run() override
    {
        m_began = std::chrono::steady_clock::now();
    }

private:
    std::chrono::steady_clock::time_point& m_began;
    Countdown& m_countdown;
};

/// The least that hands a task over by a kernel semaphore: a deque under a critical section, one release and one wait
/// for each task.
class PlainQueue
{
public:
    PlainQueue() : m_semaphore(CreateSemaphoreA(nullptr, 0, LONG_MAX, nullptr))
    {
        InitializeCriticalSection(&m_section);
    }
    ~PlainQueue()
    {
        DeleteCriticalSection(&m_section);
    }
    PlainQueue(const PlainQueue&) = delete;
    PlainQueue& operator=(const PlainQueue&) = delete;

    __attribute__((noinline)) void Push(TaskBase* task)
    {
        EnterCriticalSection(&m_section);
        m_tasks.push_front(task);
        LeaveCriticalSection(&m_section);
        ReleaseSemaphore(m_semaphore.Get(), 1, nullptr);
    }

    __attribute__((noinline)) TaskBase* Pop()
    {
        WaitForSingleObject(m_semaphore.Get(), INFINITE);
        EnterCriticalSection(&m_section);
        TaskBase* const task = m_tasks.back();
        m_tasks.pop_back();
        LeaveCriticalSection(&m_section);
        return task;
    }

private:
    CRITICAL_SECTION m_section;
    std::deque<TaskBase*> m_tasks;
    UniqueHandle m_semaphore;
};

class PlainPool
{
public:
    PlainPool() : m_worker(CreateThread(nullptr, 0, &Work, &m_queue, 0, nullptr))
    {
    }
    ~PlainPool()
    {
        Submit(nullptr);
        WaitForSingleObject(m_worker.Get(), INFINITE);
    }
    PlainPool(const PlainPool&) = delete;
    PlainPool& operator=(const PlainPool&) = delete;

    void Submit(TaskBase* task)
    {
        m_queue.Push(task);
    }

private:
    static DWORD WINAPI Work(void* queue)
    {
        while (TaskBase* const task = static_cast<PlainQueue*>(queue)->Pop())
        {
            task->Run();
            delete task;
        }
        return 0;
    }

    PlainQueue m_queue;
    UniqueHandle m_worker;
};

/// The system's own pool, held to one thread.
class SystemPool
{
public:
    SystemPool() : m_pool(CreateThreadpool(nullptr))
    {
        SetThreadpoolThreadMaximum(m_pool, 1);
        SetThreadpoolThreadMinimum(m_pool, 1);
        InitializeThreadpoolEnvironment(&m_environment);
        SetThreadpoolCallbackPool(&m_environment, m_pool);
    }
    ~SystemPool()
    {
        CloseThreadpool(m_pool);
    }
    SystemPool(const SystemPool&) = delete;
    SystemPool& operator=(const SystemPool&) = delete;

    void Submit(TaskBase* task)
    {
        TrySubmitThreadpoolCallback(&Work, task, &m_environment);
    }

private:
    static void CALLBACK Work(PTP_CALLBACK_INSTANCE, void* argument)
    {
        const std::unique_ptr<TaskBase> task(static_cast<TaskBase*>(argument));
        task->Run();
    }

    PTP_POOL m_pool;
    TP_CALLBACK_ENVIRON m_environment;
};

class OurPool
{
public:
    void Submit(TaskBase* task)
    {
        m_pool.Submit(task);
    }

private:
    ThreadPool m_pool{1, "bench"};
};

/// Tasks that wait in the queue while one runs: what the hand-over itself costs.
template <typename Pool>
void MeasureThroughput(benchmark::State& state)
{
    Countdown countdown(kBatch);
    Pool pool;
    for (auto _ : state)
    {
        const auto start = std::chrono::steady_clock::now();
        countdown.Restart(kBatch);
        for (unsigned int i = 0; i < kBatch; ++i)
        {
            pool.Submit(new EmptyTask(countdown));
        }
        countdown.Wait();
        const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
        state.SetIterationTime(taken.count() / kBatch);
    }
}

/// From the submission to an idle worker until the task begins.
template <typename Pool>
void MeasureLatency(benchmark::State& state)
{
    Countdown countdown(1);
    std::chrono::steady_clock::time_point began;
    Pool pool;
    for (auto _ : state)
    {
        auto* const task = new StampTask(began, countdown);
        countdown.Restart(1);
        const auto start = std::chrono::steady_clock::now();
        pool.Submit(task);
        countdown.Wait();
        state.SetIterationTime(std::chrono::duration<double>(began - start).count());
    }
}

void MeasureOurQueue(benchmark::State& state)
{
    TaskQueue queue;
    Countdown countdown(UINT_MAX);
    EmptyTask task(countdown);
    for (auto _ : state)
    {
        TaskBase* popped = nullptr;
        queue.Push(&task);
        queue.Pop(&popped, INFINITE);
        benchmark::DoNotOptimize(popped);
    }
}

void MeasurePlainQueue(benchmark::State& state)
{
    PlainQueue queue;
    Countdown countdown(UINT_MAX);
    EmptyTask task(countdown);
    for (auto _ : state)
    {
        queue.Push(&task);
        benchmark::DoNotOptimize(queue.Pop());
    }
}

} // namespace

void AddThreadPoolJobs()
{
    // The same work without the scheduler's part in it, which hides all else on a busy machine.
    Job::Add("pool: push and pop of its queue, one thread", {.mostOfFloor = 1.1})
        .Ours(&MeasureOurQueue)
        .Floor("kernel semaphore, deque under a critical section", &MeasurePlainQueue);

    Job::Add("pool: submit, run and delete an empty task", {.mostOfFloor = 1.1})
        .OwnClock()
        .Operations(20)
        .Ours(&MeasureThroughput<OurPool>)
        .Alternative("TrySubmitThreadpoolCallback", &MeasureThroughput<SystemPool>)
        .Floor("kernel semaphore, deque under a critical section", &MeasureThroughput<PlainPool>);

    Job::Add("pool: from submit to the start of the task", {.mostOfFloor = 1.1})
        .OwnClock()
        .Operations(kRoundTrips)
        .Ours(&MeasureLatency<OurPool>)
        .Alternative("TrySubmitThreadpoolCallback", &MeasureLatency<SystemPool>)
        .Floor("kernel semaphore, deque under a critical section", &MeasureLatency<PlainPool>);
}

} // namespace Bench
