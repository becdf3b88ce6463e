#include <UtilsLib/threading/ThreadPool.h>

#include <UtilsLib/threading/LambdaThreadPoolTask.h>
#include <tests/support/AllocationFault.h>
#include <tests/support/Gate.h>
#include <tests/support/ImportPatch.h>
#include <tests/support/OpenHandles.h>
#include <tests/threading/PoolFields.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

using TestSupport::Eventually;
using TestSupport::Gate;
using TestSupport::ImportPatch;
using ThreadingTests::FieldsOf;
using ThreadingTests::TakeWakeUps;
using UtilsLib::LambdaThreadPoolTask;
using UtilsLib::TaskBase;
using UtilsLib::TaskQueue;
using UtilsLib::ThreadPool;

static_assert(!std::is_copy_constructible_v<ThreadPool> && !std::is_copy_assignable_v<ThreadPool>);

namespace
{

void Submit(ThreadPool& pool, std::function<void()> work)
{
    pool.Submit(new LambdaThreadPoolTask(std::move(work)));
}

TaskQueue& QueueOf(const ThreadPool& pool)
{
    return *FieldsOf(pool).queue;
}

/// Takes the tasks out that a pool left, oldest first, and deletes them.
int DeleteLeftTasks(TaskQueue& queue)
{
    int count = 0;
    for (TaskBase* task = nullptr; queue.Pop(&task, 0);)
    {
        const std::unique_ptr<TaskBase> owned(task);
        count += task == nullptr ? 0 : 1;
    }
    return count;
}

/// Keeps a worker busy until `Finish`.
class BusyWorker
{
public:
    explicit BusyWorker(ThreadPool& pool)
    {
        Submit(pool, [this] {
            m_running.Open();
            EXPECT_TRUE(m_finish.Wait());
        });
        EXPECT_TRUE(m_running.Wait());
    }
    void Finish()
    {
        m_finish.Open();
    }

private:
    Gate m_running;
    Gate m_finish;
};

/// A task that tells what becomes of it.
class ToldTask : public TaskBase
{
public:
    using Told = std::function<void(const std::string&)>;

    explicit ToldTask(Told told) : m_told(std::move(told))
    {
    }
    ~ToldTask() override
    {
        m_told("deleted");
    }
    void Run() override
    {
        m_told("run");
    }

private:
    Told m_told;
};

/// Shows the flag that a task may ask for.
class AskingTask : public TaskBase
{
public:
    void Run() override
    {
    }
    const bool& Flag() const
    {
        return ShouldShutDown();
    }
};

/// A long task that looks at the flag now and then.
class LongTask : public TaskBase
{
public:
    LongTask(Gate& running, std::atomic<bool>& told) : m_running(running), m_told(told)
    {
    }
    void Run() override
    {
        m_running.Open();
        m_told = Eventually([this] { return ShouldShutDown(); });
    }

private:
    Gate& m_running;
    std::atomic<bool>& m_told;
};

bool SetWhenShuttingDown(const ThreadPool& pool)
{
    return Eventually([&pool] { return std::atomic_ref<bool>(const_cast<bool&>(FieldsOf(pool).shuttingDown)).load(); });
}

struct ThreadCall
{
    LPSECURITY_ATTRIBUTES security;
    SIZE_T stack;
    LPTHREAD_START_ROUTINE routine;
    LPVOID parameter;
    DWORD flags;
};
std::vector<ThreadCall> ms_threadCalls;
unsigned int ms_threadsGiven = 0;

HANDLE WINAPI LimitedThreads(LPSECURITY_ATTRIBUTES security, SIZE_T stack, LPTHREAD_START_ROUTINE routine,
                             LPVOID parameter, DWORD flags, LPDWORD id)
{
    ms_threadCalls.push_back({security, stack, routine, parameter, flags});
    return ms_threadCalls.size() <= ms_threadsGiven ? CreateThread(security, stack, routine, parameter, flags, id)
                                                    : nullptr;
}

/// The library gets `count` threads, and then none.
ImportPatch GiveThreads(unsigned int count)
{
    ms_threadCalls.clear();
    ms_threadsGiven = count;
    return ImportPatch("KERNEL32.dll", "CreateThread", &LimitedThreads);
}

HANDLE WINAPI NoSemaphore(LPSECURITY_ATTRIBUTES, LONG, LONG, LPCSTR)
{
    return nullptr;
}

std::vector<HANDLE> ms_waits;

DWORD WINAPI RecordedWait(HANDLE handle, DWORD limit)
{
    if (limit == INFINITE && GetThreadId(handle) != 0)
    {
        ms_waits.push_back(handle);
    }
    return WaitForSingleObject(handle, limit);
}

} // namespace

TEST(ThreadPoolTest, OneWorkerRunsTasksInTheOrderOfTheirSubmission)
{
    std::string order;
    Gate done;
    ThreadPool pool(1, "pool");

    for (const char task : {'a', 'b', 'c'})
    {
        Submit(pool, [&order, task] { order += task; });
    }
    Submit(pool, [&done] { done.Open(); });

    ASSERT_TRUE(done.Wait());
    EXPECT_EQ(order, "abc");
}

TEST(ThreadPoolTest, WorkersRunTasksAtTheSameTimeOnThreadsOfTheirOwn)
{
    constexpr unsigned int kWorkers = 4;
    ThreadPool pool(kWorkers, "pool");
    std::mutex lock;
    std::condition_variable changed;
    std::vector<unsigned long> threads;
    Gate all;
    for (unsigned int i = 0; i < kWorkers; ++i)
    {
        Submit(pool, [&] {
            std::unique_lock<std::mutex> hold(lock);
            threads.push_back(GetCurrentThreadId());
            changed.notify_all();
            if (changed.wait_for(hold, std::chrono::seconds(5), [&] { return threads.size() == kWorkers; }))
            {
                all.Open();
            }
        });
    }

    EXPECT_TRUE(all.Wait());
    pool.Shutdown();
    EXPECT_EQ(std::count(threads.begin(), threads.end(), GetCurrentThreadId()), 0);
}

TEST(ThreadPoolTest, HasAsManyThreadsAsWasSaidUntilShutdown)
{
    for (const unsigned int count : {0u, 1u, 5u})
    {
        const unsigned long before = TestSupport::RunningThreads();
        ThreadPool pool(count, "pool");
        EXPECT_EQ(TestSupport::RunningThreads(), before + count);
        EXPECT_EQ(FieldsOf(pool).workers.size(), count);

        pool.Shutdown();

        EXPECT_TRUE(Eventually([before] { return TestSupport::RunningThreads() == before; }));
        EXPECT_TRUE(FieldsOf(pool).workers.empty());
    }
}

TEST(ThreadPoolTest, WorkersAreMadeWithTheSystemsDefaultsAndTheirHandlesKeptInOrder)
{
    const ImportPatch create = GiveThreads(2);
    ThreadPool pool(2, "pool");

    ASSERT_EQ(ms_threadCalls.size(), 2u);
    for (const ThreadCall& call : ms_threadCalls)
    {
        EXPECT_EQ(call.security, nullptr);
        EXPECT_EQ(call.stack, 0u);
        EXPECT_EQ(call.parameter, &pool);
        EXPECT_EQ(call.flags, 0u);
    }
    for (const HANDLE worker : FieldsOf(pool).workers)
    {
        EXPECT_EQ(WaitForSingleObject(worker, 0), static_cast<DWORD>(WAIT_TIMEOUT)); // a thread that runs
    }
}

TEST(ThreadPoolTest, WorkersThatTheSystemDoesNotGiveAreNullAndTheOthersWork)
{
    const ImportPatch create = GiveThreads(1);
    ThreadPool pool(3, "pool");
    Gate done;
    ASSERT_EQ(FieldsOf(pool).workers.size(), 3u);
    EXPECT_NE(FieldsOf(pool).workers[0], nullptr);
    EXPECT_EQ(FieldsOf(pool).workers[1], nullptr);
    EXPECT_EQ(FieldsOf(pool).workers[2], nullptr);

    Submit(pool, [&done] { done.Open(); });

    EXPECT_TRUE(done.Wait());
    pool.Shutdown();
    EXPECT_TRUE(FieldsOf(pool).workers.empty());
}

TEST(ThreadPoolTest, CountThatNoMemoryIsThereForThrowsAndStartsNothing)
{
    const unsigned long threads = TestSupport::RunningThreads();
    const unsigned long handles = TestSupport::OpenHandles();

    EXPECT_THROW(ThreadPool(0xFFFFFFFF, "pool"), std::exception);

    EXPECT_EQ(TestSupport::RunningThreads(), threads);
    EXPECT_EQ(TestSupport::OpenHandles(), handles);
}

TEST(ThreadPoolTest, FieldsStandInTheirOrder)
{
    ThreadPool pool(1, "reports");

    EXPECT_EQ(FieldsOf(pool).workers.size(), 1u);
    EXPECT_EQ(FieldsOf(pool).name, "reports");
    EXPECT_EQ(TakeWakeUps(QueueOf(pool)), 0);
    EXPECT_EQ(FieldsOf(pool).lock.OwningThread, nullptr);
    EXPECT_FALSE(FieldsOf(pool).shuttingDown);

    pool.Shutdown();

    EXPECT_TRUE(FieldsOf(pool).shuttingDown);
    EXPECT_EQ(FieldsOf(pool).lock.OwningThread, nullptr);
}

TEST(ThreadPoolTest, WorkerDeletesATaskRightAfterRunAndBeforeTheNext)
{
    std::vector<std::string> events;
    std::vector<unsigned long> threads;
    Gate done;
    ThreadPool pool(1, "pool");
    const auto told = [&](const std::string& event) {
        events.push_back(event);
        threads.push_back(GetCurrentThreadId());
    };
    BusyWorker busy(pool);
    pool.Submit(new ToldTask(told));
    pool.Submit(new ToldTask(told));
    Submit(pool, [&done] { done.Open(); });

    busy.Finish();

    ASSERT_TRUE(done.Wait());
    EXPECT_EQ(events, (std::vector<std::string>{"run", "deleted", "run", "deleted"}));
    EXPECT_EQ(threads, std::vector<unsigned long>(4, threads.front()));
    EXPECT_NE(threads.front(), GetCurrentThreadId());
}

TEST(ThreadPoolTest, PoolOfNoThreadsTakesTasksAndNeverRunsThem)
{
    std::atomic<int> runs = 0;
    ThreadPool pool(0, "pool");
    Submit(pool, [&runs] { ++runs; });
    Submit(pool, [&runs] { ++runs; });

    pool.Shutdown();

    EXPECT_EQ(DeleteLeftTasks(QueueOf(pool)), 2);
    EXPECT_EQ(runs, 0);
}

TEST(ThreadPoolTest, TaskSubmittedAfterShutdownIsQueuedAndNeverRun)
{
    std::atomic<int> runs = 0;
    ThreadPool pool(2, "pool");
    pool.Shutdown();
    TakeWakeUps(QueueOf(pool));

    Submit(pool, [&runs] { ++runs; });

    EXPECT_EQ(DeleteLeftTasks(QueueOf(pool)), 1);
    EXPECT_EQ(runs, 0);
}

TEST(ThreadPoolTest, NullIsNotQueued)
{
    ThreadPool pool(0, "pool");

    pool.Submit(nullptr);

    EXPECT_EQ(TakeWakeUps(QueueOf(pool)), 0);
    EXPECT_TRUE(FieldsOf(QueueOf(pool)).tasks->empty());
}

TEST(ThreadPoolTest, WorkersOutliveNullsAndSignalsInTheQueue)
{
    Gate done;
    ThreadPool pool(1, "pool");
    QueueOf(pool).Push(nullptr);
    QueueOf(pool).Signal();

    Submit(pool, [&done] { done.Open(); });

    EXPECT_TRUE(done.Wait());
}

TEST(ThreadPoolTest, WorkerThatIsBusyAtShutdownEndsWithoutAnotherTask)
{
    std::atomic<int> runs = 0;
    ThreadPool pool(1, "pool");
    BusyWorker busy(pool);
    for (int i = 0; i < 5; ++i)
    {
        Submit(pool, [&runs] { ++runs; });
    }
    std::thread shutdown([&pool] { pool.Shutdown(); });
    EXPECT_TRUE(SetWhenShuttingDown(pool));

    busy.Finish();
    shutdown.join();

    EXPECT_EQ(runs, 0);
    EXPECT_EQ(DeleteLeftTasks(QueueOf(pool)), 5);
}

TEST(ThreadPoolTest, WorkerThatIsIdleAtShutdownRunsOneTaskOfThoseThatAreQueued)
{
    std::string order;
    std::atomic<int> deletions = 0;
    const auto count = [&](const std::string& event) { deletions += event == "deleted" ? 1 : 0; };
    ThreadPool pool(1, "pool");
    BusyWorker busy(pool);
    Submit(pool, [&order] { order += 'a'; });
    pool.Submit(new ToldTask(count));
    pool.Submit(new ToldTask(count));
    // The worker is to find tasks in the queue only when the shutdown wakes it.
    EXPECT_EQ(TakeWakeUps(QueueOf(pool)), 3);
    busy.Finish();
    EXPECT_FALSE(Eventually([&order] { return !order.empty(); }, std::chrono::milliseconds(50)));

    pool.Shutdown();

    EXPECT_EQ(order, "a");
    EXPECT_EQ(deletions, 0);
    EXPECT_EQ(FieldsOf(QueueOf(pool)).tasks->size(), 2u);
    QueueOf(pool).Signal();
    QueueOf(pool).Signal();
    EXPECT_EQ(DeleteLeftTasks(QueueOf(pool)), 2);
}

TEST(ThreadPoolTest, ShutdownOwesOneWakeUpAWorker)
{
    for (const unsigned int workers : {0u, 1u, 3u})
    {
        const ImportPatch create = GiveThreads(0); // nobody takes the wake-ups
        ThreadPool pool(workers, "pool");

        pool.Shutdown();
        pool.Shutdown();

        EXPECT_EQ(TakeWakeUps(QueueOf(pool)), static_cast<int>(workers));
    }
}

TEST(ThreadPoolTest, ShutdownWaitsForTheWorkersFromTheLastToTheFirstAndClosesTheirHandles)
{
    ThreadPool pool(3, "pool");
    const std::vector<HANDLE> workers = FieldsOf(pool).workers;
    ms_waits.clear();
    {
        const ImportPatch wait("KERNEL32.dll", "WaitForSingleObject", &RecordedWait);
        pool.Shutdown();
    }

    EXPECT_EQ(ms_waits, (std::vector<HANDLE>{workers[2], workers[1], workers[0]}));
    for (const HANDLE worker : workers)
    {
        DWORD flags = 0;
        EXPECT_FALSE(GetHandleInformation(worker, &flags));
    }
}

TEST(ThreadPoolTest, ShutdownReturnsOnlyWhenTheBusyTaskIsOverAndThenAgainAtOnce)
{
    ThreadPool pool(2, "pool");
    BusyWorker busy(pool);
    Gate returned;
    std::thread shutdown([&] {
        pool.Shutdown();
        returned.Open();
    });

    EXPECT_FALSE(returned.Wait(std::chrono::milliseconds(50)));
    busy.Finish();
    EXPECT_TRUE(returned.Wait());

    pool.Shutdown();
    shutdown.join();
}

TEST(ThreadPoolTest, SecondShutdownAtTheSameTimeReturnsWhenTheFirstHasJoinedTheWorkers)
{
    ThreadPool pool(1, "pool");
    BusyWorker busy(pool);
    std::thread first([&pool] { pool.Shutdown(); });
    EXPECT_TRUE(SetWhenShuttingDown(pool));
    Gate returned;
    std::thread second([&] {
        pool.Shutdown();
        returned.Open();
    });

    EXPECT_FALSE(returned.Wait(std::chrono::milliseconds(50)));
    busy.Finish();

    EXPECT_TRUE(returned.Wait());
    first.join();
    second.join();
}

TEST(ThreadPoolTest, ShutdownWaitsForTheLockOfThePool)
{
    ThreadPool pool(1, "pool");
    auto* const lock = const_cast<CRITICAL_SECTION*>(&FieldsOf(pool).lock);
    Gate returned;
    EnterCriticalSection(lock);
    std::thread shutdown([&] {
        pool.Shutdown();
        returned.Open();
    });

    EXPECT_FALSE(returned.Wait(std::chrono::milliseconds(30)));
    EXPECT_FALSE(FieldsOf(pool).shuttingDown);
    LeaveCriticalSection(lock);

    EXPECT_TRUE(returned.Wait());
    shutdown.join();
}

TEST(ThreadPoolTest, DestructorShutsDownAndLeavesQueuedTasksUndeleted)
{
    std::vector<std::unique_ptr<TaskBase>> left;
    std::atomic<int> deletions = 0;
    const auto count = [&](const std::string& event) { deletions += event == "deleted" ? 1 : 0; };
    bool finished = false;
    {
        Gate running;
        ThreadPool pool(1, "pool");
        Submit(pool, [&] {
            running.Open();
            finished = SetWhenShuttingDown(pool);
        });
        EXPECT_TRUE(running.Wait());
        for (int i = 0; i < 3; ++i)
        {
            left.push_back(std::make_unique<ToldTask>(count));
            pool.Submit(left.back().get());
        }
    }

    EXPECT_TRUE(finished);
    EXPECT_EQ(deletions, 0);
    left.clear();
    EXPECT_EQ(deletions, 3);
}

TEST(ThreadPoolTest, PoolLeavesTheSemaphoreOfItsQueueOpenAndNothingElse)
{
    const auto make = [] {
        const ThreadPool pool(3, "pool");
        return FieldsOf(QueueOf(pool)).semaphore;
    };
    CloseHandle(make()); // the system itself keeps something from the first threads
    const unsigned long threads = TestSupport::RunningThreads();
    const unsigned long handles = TestSupport::OpenHandles();

    const HANDLE semaphore = make();

    EXPECT_TRUE(Eventually([threads] { return TestSupport::RunningThreads() == threads; }));

    EXPECT_TRUE(Eventually([handles] { return TestSupport::OpenHandles() == handles + 1; }));
    EXPECT_TRUE(CloseHandle(semaphore));
}

TEST(ThreadPoolTest, PoolFreesItsMemory)
{
    const std::string name(100, 'p');
    const ThreadPool first(0, name); // what a thread's first use costs stays
    const TestSupport::AllocationFault allocations;
    {
        ThreadPool pool(0, name);
        pool.Shutdown();
        EXPECT_GT(allocations.Live(), 0);
    }

    EXPECT_EQ(allocations.Live(), 0);
}

TEST(ThreadPoolTest, WithoutASemaphoreTheWorkersEndAndTasksAreKept)
{
    std::atomic<int> runs = 0;
    const ImportPatch create("KERNEL32.dll", "CreateSemaphoreA", &NoSemaphore);
    ThreadPool pool(2, "pool");
    Submit(pool, [&runs] { ++runs; });

    for (const HANDLE worker : FieldsOf(pool).workers)
    {
        EXPECT_EQ(WaitForSingleObject(worker, 5000), static_cast<DWORD>(WAIT_OBJECT_0));
    }
    pool.Shutdown();

    EXPECT_EQ(runs, 0);
    ASSERT_EQ(FieldsOf(QueueOf(pool)).tasks->size(), 1u);
    delete FieldsOf(QueueOf(pool)).tasks->front();
}

TEST(ThreadPoolTest, LongTaskIsToldToReturnEarly)
{
    Gate running;
    std::atomic<bool> told = false;
    ThreadPool pool(1, "pool");
    pool.Submit(new LongTask(running, told));
    ASSERT_TRUE(running.Wait());
    EXPECT_FALSE(told);

    pool.Shutdown();

    EXPECT_TRUE(told);
}

TEST(ThreadPoolTest, TaskRefersToTheFlagOfThePoolItWasSubmittedToLast)
{
    ThreadPool first(0, "first");
    ThreadPool second(0, "second");
    AskingTask task;

    first.Submit(&task);
    EXPECT_EQ(&task.Flag(), &FieldsOf(first).shuttingDown);
    second.Submit(&task);
    EXPECT_EQ(&task.Flag(), &FieldsOf(second).shuttingDown);
    EXPECT_FALSE(task.Flag());

    second.Shutdown();
    EXPECT_TRUE(task.Flag());
}

TEST(ThreadPoolTest, CopiesOfATaskReferToItsPool)
{
    ThreadPool pool(0, "pool");
    AskingTask task;
    pool.Submit(&task);

    const AskingTask copy(task);
    AskingTask assigned;
    assigned = task;

    EXPECT_EQ(&copy.Flag(), &FieldsOf(pool).shuttingDown);
    EXPECT_EQ(&assigned.Flag(), &FieldsOf(pool).shuttingDown);
}

TEST(ThreadPoolTest, TaskThatWasNeverSubmittedIsNotToShutDown)
{
    const AskingTask task;

    EXPECT_FALSE(task.Flag());
}

TEST(ThreadPoolTest, ThreadRunOfAPoolThatIsShutDownReturns0WithoutATask)
{
    std::atomic<int> runs = 0;
    ThreadPool pool(0, "pool");
    pool.Shutdown();
    Submit(pool, [&runs] { ++runs; });

    EXPECT_EQ(ThreadPool::ThreadRun(&pool), 0u);

    EXPECT_EQ(runs, 0);
    EXPECT_EQ(DeleteLeftTasks(QueueOf(pool)), 1);
}

TEST(ThreadPoolTest, HostMayLendAThreadThatWorksUntilTheShutdown)
{
    std::string order;
    ThreadPool pool(0, "pool");
    Submit(pool, [&order] { order += 'a'; });
    Submit(pool, [&] {
        order += 'b';
        pool.Shutdown();
    });
    Submit(pool, [&order] { order += 'c'; });

    EXPECT_EQ(ThreadPool::ThreadRun(&pool), 0u);

    EXPECT_EQ(order, "ab");
    EXPECT_EQ(DeleteLeftTasks(QueueOf(pool)), 1);
}

TEST(ThreadPoolTest, TaskMayShutItsPoolDownAndOthersThenWaitForTheWorkers)
{
    ThreadPool pool(3, "pool");
    Gate returned;
    Gate finish;
    std::atomic<bool> over = false;
    Submit(pool, [&] {
        pool.Shutdown();
        returned.Open();
        over = finish.Wait();
    });
    EXPECT_TRUE(returned.Wait()); // it did not wait for itself
    EXPECT_TRUE(FieldsOf(pool).shuttingDown);

    finish.Open();
    pool.Shutdown();

    EXPECT_TRUE(over);
    EXPECT_TRUE(FieldsOf(pool).workers.empty());
}

TEST(ThreadPoolTest, TasksMayShutTheirPoolDownWhileAnotherThreadDoes)
{
    for (int round = 0; round < 50; ++round)
    {
        ThreadPool pool(3, "pool");
        for (int i = 0; i < 3; ++i)
        {
            Submit(pool, [&pool] { pool.Shutdown(); });
        }
        pool.Shutdown();
        EXPECT_TRUE(FieldsOf(pool).workers.empty());
        TakeWakeUps(QueueOf(pool));
        for (int i = 0; i < 3; ++i)
        {
            QueueOf(pool).Signal();
        }
        DeleteLeftTasks(QueueOf(pool));
        CloseHandle(FieldsOf(QueueOf(pool)).semaphore);
    }
}

TEST(ThreadPoolTest, TaskMayDestroyItsPoolAndNoWorkerTouchesItAfterwards)
{
    // In a page of its own, which nobody may touch when the pool is gone.
    void* const place = VirtualAlloc(nullptr, sizeof(ThreadPool), MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE);
    ASSERT_NE(place, nullptr);
    const unsigned long threads = TestSupport::RunningThreads();
    auto* const pool = new (place) ThreadPool(3, "pool");
    Gate destroyed;
    Submit(*pool, [&destroyed, pool, place] {
        pool->~ThreadPool();
        DWORD before = 0;
        EXPECT_TRUE(VirtualProtect(place, sizeof(ThreadPool), PAGE_NOACCESS, &before));
        destroyed.Open();
    });

    EXPECT_TRUE(destroyed.Wait());
    EXPECT_TRUE(Eventually([threads] { return TestSupport::RunningThreads() == threads; }));
    VirtualFree(place, 0, MEM_RELEASE);
}
