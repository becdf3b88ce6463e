#include <UtilsLib/threading/Thread.h>

#include <UtilsLib/platform/UniqueHandle.h>
#include <UtilsLib/threading/ThreadMonitor.h>
#include <UtilsLib/time/TimeService.h>
#include <tests/support/Gate.h>
#include <tests/support/ImportPatch.h>
#include <tests/support/OpenHandles.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <new>
#include <set>
#include <stdexcept>
#include <thread>
#include <type_traits>
#include <vector>

#if defined(_MSC_VER)
#include <intrin.h>
#define RETURN_ADDRESS() _ReturnAddress()
#else
#define RETURN_ADDRESS() __builtin_return_address(0)
#endif

using TestSupport::Eventually;
using TestSupport::Gate;
using TestSupport::ImportPatch;
using TestSupport::OpenHandles;
using UtilsLib::Thread;
using UtilsLib::ThreadMonitor;
using UtilsLib::ThreadState;
using UtilsLib::ThreadStruct;
using UtilsLib::TimeService;

static_assert(std::is_polymorphic_v<Thread> && std::is_abstract_v<Thread>);
static_assert(!std::has_virtual_destructor_v<Thread>);
static_assert(std::is_same_v<decltype(std::declval<const Thread&>().GetThreadId()), unsigned long>);
static_assert(std::is_aggregate_v<ThreadStruct> && sizeof(ThreadStruct) == 2 * sizeof(void*));

namespace
{

class Worker : public Thread
{
public:
    using Work = std::function<void(Worker&)>;

    explicit Worker(Work work = {}, const std::string& name = "worker") : Thread(name), m_work(std::move(work))
    {
    }
    Worker(const Worker&) = default;
    Worker& operator=(const Worker&) = default;
    ~Worker()
    {
        Shutdown();
    }

    using Thread::ControlledSleep;
    using Thread::ControlledSleepEx;
    using Thread::HasThread;
    using Thread::InterruptibleSleep;
    using Thread::StopRequested;

protected:
    void ThreadProc() override
    {
        if (m_work)
        {
            m_work(*this);
        }
    }

private:
    Work m_work;
};

/// The fields as every program that was built against the class knows them.
struct Fields
{
    const void* functions;
    HANDLE thread;
    bool stop;
    HANDLE doneEvent;
    unsigned long threadId;
};

Fields FieldsOf(const Thread& thread)
{
    Fields fields;
    std::memcpy(&fields, static_cast<const void*>(&thread), sizeof(fields));
    return fields;
}

std::map<unsigned int, ThreadState> Status()
{
    return ThreadMonitor::GetInstance().GetThreadStatus();
}

bool IsSignalled(HANDLE handle, DWORD limit = 0)
{
    return WaitForSingleObject(handle, limit) == WAIT_OBJECT_0;
}

void SleepUntilStopped(Worker& worker)
{
    while (!worker.StopRequested())
    {
        worker.ControlledSleep(100);
    }
}

/// Quicker to stop.
void SpinUntilStopped(Worker& worker)
{
    while (!worker.StopRequested())
    {
        SwitchToThread();
    }
}

/// Starts a thread, waits until it is gone from the system and shuts it down.
void RunToTheEnd(const Worker::Work& work)
{
    Worker worker(work);
    worker.Start();
    EXPECT_TRUE(IsSignalled(FieldsOf(worker).thread, 5000));
    EXPECT_TRUE(Status().empty());
    worker.Shutdown();
}

/// Starts and stops workers on several threads at once; the number of workers that ran.
int RunOwners(int count, int rounds)
{
    std::atomic<int> runs = 0;
    std::vector<std::thread> owners;
    for (int i = 0; i < count; ++i)
    {
        owners.emplace_back([&runs, rounds] {
            for (int round = 0; round < rounds; ++round)
            {
                Gate ran;
                Worker worker([&](Worker&) {
                    ++runs;
                    ran.Open();
                });
                worker.Start();
                EXPECT_TRUE(round % 2 != 0 || ran.Wait()); // every other one is stopped at once
                worker.Shutdown();
            }
        });
    }
    for (std::thread& owner : owners)
    {
        owner.join();
    }
    return runs;
}

/// The mock clock for a test; its sleeps are recorded.
class ThreadSleepTest : public testing::Test
{
protected:
    ThreadSleepTest()
    {
        TimeService::GetMock().SetSleepCallback([this](unsigned long long milliseconds) {
            m_steps.push_back(milliseconds);
            if (m_onStep)
            {
                m_onStep();
            }
        });
        TimeService::EnableMock(true);
    }
    ~ThreadSleepTest() override
    {
        TimeService::EnableMock(false);
        TimeService::GetMock().SetSleepCallback({});
    }

    /// Runs `work` as a thread to its end.
    void Run(const Worker::Work& work)
    {
        Gate done;
        Worker worker([&](Worker& self) {
            work(self);
            done.Open();
        });
        worker.Start();
        EXPECT_TRUE(done.Wait(std::chrono::seconds(50)));
        worker.Shutdown();
    }

    std::vector<unsigned long long> m_steps;
    std::function<void()> m_onStep;
};

std::vector<unsigned long long> Steps(std::size_t count)
{
    return std::vector<unsigned long long>(count, 100);
}

long long LastCheck(unsigned int id)
{
    const auto status = Status();
    const auto found = status.find(id);
    return found == status.end() ? -1 : found->second.lastShutdownCheck;
}

// Stand-ins for calls out of the library.

HANDLE WINAPI NoThread(LPSECURITY_ATTRIBUTES, SIZE_T, LPTHREAD_START_ROUTINE, LPVOID, DWORD, LPDWORD)
{
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return nullptr;
}

HANDLE WINAPI NoEvent(LPSECURITY_ATTRIBUTES, BOOL, BOOL, LPCSTR)
{
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return nullptr;
}

struct
{
    LPSECURITY_ATTRIBUTES security;
    SIZE_T stackSize;
    DWORD flags;
} ms_threadArguments;

HANDLE WINAPI RecordedThread(LPSECURITY_ATTRIBUTES security, SIZE_T stackSize, LPTHREAD_START_ROUTINE routine,
                             LPVOID parameter, DWORD flags, LPDWORD id)
{
    ms_threadArguments = {security, stackSize, flags};
    return CreateThread(security, stackSize, routine, parameter, flags, id);
}

struct
{
    LPSECURITY_ATTRIBUTES security;
    BOOL manualReset;
    BOOL signalled;
    LPCSTR name;
} ms_eventArguments;

HANDLE WINAPI RecordedEvent(LPSECURITY_ATTRIBUTES security, BOOL manualReset, BOOL signalled, LPCSTR name)
{
    ms_eventArguments = {security, manualReset, signalled, name};
    return CreateEventA(security, manualReset, signalled, name);
}

Gate* ms_beforeReturn = nullptr;

HANDLE WINAPI ThreadWhoseStarterFallsBehind(LPSECURITY_ATTRIBUTES security, SIZE_T stackSize,
                                            LPTHREAD_START_ROUTINE routine, LPVOID parameter, DWORD flags, LPDWORD id)
{
    const HANDLE thread = CreateThread(security, stackSize, routine, parameter, flags, id);
    EXPECT_TRUE(ms_beforeReturn->Wait());
    return thread;
}

HANDLE WINAPI ThreadThatEndsFirst(LPSECURITY_ATTRIBUTES security, SIZE_T stackSize, LPTHREAD_START_ROUTINE routine,
                                  LPVOID parameter, DWORD flags, LPDWORD id)
{
    const HANDLE thread = CreateThread(security, stackSize, routine, parameter, flags, id);
    EXPECT_TRUE(IsSignalled(thread, 5000));
    return thread;
}

HANDLE WINAPI HeldThread(LPSECURITY_ATTRIBUTES security, SIZE_T stackSize, LPTHREAD_START_ROUTINE routine,
                         LPVOID parameter, DWORD, LPDWORD id)
{
    return CreateThread(security, stackSize, routine, parameter, CREATE_SUSPENDED, id);
}

/// The start blocks that the library has allocated and not freed.
std::mutex ms_blocksLock;
std::set<void*> ms_blocks;
unsigned int ms_blocksMade = 0;

void* RecordedNew(std::size_t size)
{
    void* const memory = ::operator new(size);
    if (size == sizeof(ThreadStruct))
    {
        const std::lock_guard<std::mutex> hold(ms_blocksLock);
        ms_blocks.insert(memory);
        ++ms_blocksMade;
    }
    return memory;
}

void RecordedDelete(void* memory, std::size_t)
{
    {
        const std::lock_guard<std::mutex> hold(ms_blocksLock);
        ms_blocks.erase(memory);
    }
    ::operator delete(memory);
}

class StartBlocks
{
public:
    StartBlocks()
        : m_new("libstdc++-6.dll", "_Znwj", &RecordedNew), m_delete("libstdc++-6.dll", "_ZdlPvj", &RecordedDelete)
    {
        ms_blocks.clear();
        ms_blocksMade = 0;
    }
    static unsigned int Made()
    {
        const std::lock_guard<std::mutex> hold(ms_blocksLock);
        return ms_blocksMade;
    }
    static std::size_t Alive()
    {
        const std::lock_guard<std::mutex> hold(ms_blocksLock);
        return ms_blocks.size();
    }

private:
    const ImportPatch m_new;
    const ImportPatch m_delete;
};

const void* ms_signalReturnsTo = nullptr;
std::size_t ms_blocksAtSignal = 99;

BOOL WINAPI RecordedSetEvent(HANDLE event)
{
    ms_signalReturnsTo = RETURN_ADDRESS();
    ms_blocksAtSignal = StartBlocks::Alive();
    return SetEvent(event);
}

HMODULE ModuleOf(const void* address)
{
    HMODULE module = nullptr;
    GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                       static_cast<const char*>(address), &module);
    return module;
}

#if defined(__GNUC__)
struct Shifted
{
    LPTHREAD_START_ROUTINE routine;
    void* parameter;
    unsigned int shift;
};

unsigned int ms_shift = 0;

/// Calls the thread's routine with the stack moved by a few bytes.
DWORD WINAPI RunShifted(LPVOID parameter)
{
    const std::unique_ptr<Shifted> shifted(static_cast<Shifted*>(parameter));
    DWORD result = 0;
    asm volatile("subl %1, %%esp\n\t pushl %2\n\t call *%3\n\t addl %1, %%esp"
                 : "=a"(result)
                 : "b"(shifted->shift), "S"(shifted->parameter), "D"(shifted->routine)
                 : "ecx", "edx", "memory", "cc");
    return result;
}

HANDLE WINAPI ThreadWithShiftedStack(LPSECURITY_ATTRIBUTES security, SIZE_T stackSize, LPTHREAD_START_ROUTINE routine,
                                     LPVOID parameter, DWORD flags, LPDWORD id)
{
    return CreateThread(security, stackSize, &RunShifted, new Shifted{routine, parameter, ms_shift}, flags, id);
}
#endif

bool ms_called = false;

void CALLBACK NoteCall(ULONG_PTR)
{
    ms_called = true;
}

} // namespace

TEST(ThreadTest, ConstructorCreatesNoThread)
{
    ThreadMonitor::GetInstance();
    const unsigned long handles = OpenHandles();
    const unsigned long threads = TestSupport::RunningThreads();
    {
        const Worker worker;
        const Fields fields = FieldsOf(worker);
        EXPECT_EQ(fields.thread, INVALID_HANDLE_VALUE);
        EXPECT_FALSE(fields.stop);
        EXPECT_EQ(fields.doneEvent, INVALID_HANDLE_VALUE);
        EXPECT_EQ(OpenHandles(), handles);
        EXPECT_LE(TestSupport::RunningThreads(), threads);
        EXPECT_TRUE(Status().empty());
    }
    EXPECT_EQ(OpenHandles(), handles);
}

TEST(ThreadTest, StartRunsThreadProcOnAThreadOfItsOwn)
{
    Gate ran;
    unsigned long id = 0;
    unsigned long known = 0;
    Worker worker([&](Worker& self) {
        id = GetCurrentThreadId();
        known = self.GetThreadId();
        ran.Open();
    });

    worker.Start();

    ASSERT_TRUE(ran.Wait());
    EXPECT_NE(id, GetCurrentThreadId());
    EXPECT_EQ(known, id);
    EXPECT_EQ(worker.GetThreadId(), id);
    EXPECT_EQ(FieldsOf(worker).threadId, id);
    EXPECT_EQ(::GetThreadId(FieldsOf(worker).thread), id);
    worker.Shutdown();
    EXPECT_EQ(worker.GetThreadId(), id);
}

TEST(ThreadTest, StartAsksForAPlainThreadThatRunsAtOnceAndAnUnnamedAutoResetEvent)
{
    const ImportPatch thread("KERNEL32.dll", "CreateThread", &RecordedThread);
    const ImportPatch event("KERNEL32.dll", "CreateEventA", &RecordedEvent);
    Worker worker(&SleepUntilStopped);

    worker.Start();

    EXPECT_EQ(ms_threadArguments.security, nullptr);
    EXPECT_EQ(ms_threadArguments.stackSize, 0u);
    EXPECT_EQ(ms_threadArguments.flags, 1u);
    EXPECT_EQ(ms_eventArguments.security, nullptr);
    EXPECT_FALSE(ms_eventArguments.manualReset);
    EXPECT_FALSE(ms_eventArguments.signalled);
    EXPECT_EQ(ms_eventArguments.name, nullptr);
    EXPECT_FALSE(IsSignalled(FieldsOf(worker).doneEvent));
    for (const HANDLE handle : {FieldsOf(worker).thread, FieldsOf(worker).doneEvent})
    {
        DWORD flags = HANDLE_FLAG_INHERIT;
        EXPECT_TRUE(GetHandleInformation(handle, &flags));
        EXPECT_EQ(flags & HANDLE_FLAG_INHERIT, 0u);
    }
}

TEST(ThreadTest, StartTwiceStartsOneThread)
{
    std::atomic<int> runs = 0;
    Worker worker([&](Worker& self) {
        ++runs;
        SleepUntilStopped(self);
    });
    worker.Start();
    const Fields first = FieldsOf(worker);
    const unsigned long handles = OpenHandles();

    worker.Start();

    EXPECT_EQ(FieldsOf(worker).thread, first.thread);
    EXPECT_EQ(FieldsOf(worker).doneEvent, first.doneEvent);
    EXPECT_EQ(OpenHandles(), handles);
    EXPECT_EQ(Status().size(), 1u);
    worker.Shutdown();
    EXPECT_EQ(runs, 1);
}

TEST(ThreadTest, HasAThreadFromStartToShutdown)
{
    Worker worker;
    EXPECT_FALSE(worker.HasThread());
    worker.Start();
    EXPECT_TRUE(worker.HasThread());
    ASSERT_TRUE(IsSignalled(FieldsOf(worker).thread, 5000));
    EXPECT_TRUE(worker.HasThread()); // also when it is over

    worker.Shutdown();

    EXPECT_FALSE(worker.HasThread());
}

TEST(ThreadTest, StartOfAFinishedThreadDoesNothing)
{
    std::atomic<int> runs = 0;
    Worker worker([&](Worker&) { ++runs; });
    worker.Start();
    const Fields first = FieldsOf(worker);
    ASSERT_TRUE(IsSignalled(first.thread, 5000));

    worker.Start();

    EXPECT_EQ(FieldsOf(worker).thread, first.thread);
    EXPECT_EQ(runs, 1);
}

TEST(ThreadTest, ShutdownOfAThreadNeverStartedDoesNothing)
{
    Gate ran;
    Worker worker([&](Worker&) { ran.Open(); });

    worker.Shutdown();

    EXPECT_FALSE(worker.StopRequested());
    worker.Start();
    EXPECT_TRUE(ran.Wait());
}

TEST(ThreadTest, ShutdownRaisesTheFlagWaitsAndClosesBothHandles)
{
    const unsigned long before = OpenHandles();
    std::atomic<bool> over = false;
    Worker worker([&](Worker& self) {
        SleepUntilStopped(self);
        over = true;
    });
    worker.Start();
    EXPECT_FALSE(over);

    worker.Shutdown();

    EXPECT_TRUE(over);
    EXPECT_TRUE(FieldsOf(worker).stop);
    EXPECT_EQ(FieldsOf(worker).thread, INVALID_HANDLE_VALUE);
    EXPECT_EQ(FieldsOf(worker).doneEvent, INVALID_HANDLE_VALUE);
    worker.Shutdown();
    EXPECT_EQ(OpenHandles(), before);
}

TEST(ThreadTest, DestructorShutsDown)
{
    class Bare : public Thread
    {
    public:
        explicit Bare(std::atomic<bool>& over) : Thread("bare"), m_over(over)
        {
        }

    private:
        void ThreadProc() override
        {
            std::atomic<bool>& over = m_over; // the object itself goes while this runs
            m_begun.Open();
            ControlledSleep(UINT_MAX);
            over = true;
        }
        std::atomic<bool>& m_over;

    public:
        Gate m_begun;
    };
    const unsigned long before = OpenHandles();
    std::atomic<bool> over = false;
    {
        Bare bare(over);
        bare.Start();
        ASSERT_TRUE(bare.m_begun.Wait());
        EXPECT_FALSE(over);
    }

    EXPECT_TRUE(over);
    EXPECT_EQ(OpenHandles(), before);
    EXPECT_TRUE(Status().empty());
}

TEST(ThreadTest, ShutdownWaitsForTheDoneEventOnly)
{
    // What keeps a thread from ending after its work is no business of the owner's: an unloader holds the loader's
    // lock.
    Worker worker;
    worker.Start();
    const Fields fields = FieldsOf(worker);
    ASSERT_TRUE(IsSignalled(fields.thread, 5000));

    EXPECT_TRUE(IsSignalled(fields.doneEvent));
    EXPECT_FALSE(IsSignalled(fields.doneEvent)); // auto-reset
    worker.Shutdown();                           // and the end of the thread is enough, too
}

TEST(ThreadTest, ShutdownOfAThreadThatWasEndedFromOutsideReturns)
{
    const unsigned long before = OpenHandles();
    Worker worker([](Worker&) { ExitThread(0); });
    worker.Start();

    worker.Shutdown();

    EXPECT_EQ(OpenHandles(), before);
    ThreadMonitor::GetInstance().ThreadStopped(static_cast<unsigned int>(worker.GetThreadId()));
}

TEST(ThreadTest, ShutdownOnTheThreadItselfOnlyRaisesTheFlag)
{
    Gate returned;
    Worker worker([&](Worker& self) {
        self.Shutdown();
        returned.Open();
    });
    worker.Start();

    EXPECT_TRUE(returned.Wait());

    EXPECT_TRUE(worker.StopRequested());
    EXPECT_NE(FieldsOf(worker).thread, INVALID_HANDLE_VALUE);
    worker.Shutdown();
    EXPECT_EQ(FieldsOf(worker).thread, INVALID_HANDLE_VALUE);
}

TEST(ThreadTest, ShutdownOnTheThreadItselfMayComeBeforeStartReturns)
{
    Gate returned;
    Worker worker([&](Worker& self) {
        self.Shutdown();
        returned.Open();
    });
    ms_beforeReturn = &returned;
    const ImportPatch late("KERNEL32.dll", "CreateThread", &ThreadWhoseStarterFallsBehind);

    worker.Start();

    EXPECT_TRUE(worker.StopRequested());
    EXPECT_TRUE(worker.HasThread());
}

TEST(ThreadTest, ThreadStartedAfterAShutdownSkipsThreadProc)
{
    std::atomic<int> runs = 0;
    Worker worker([&](Worker&) { ++runs; });
    worker.Start();
    worker.Shutdown();
    ASSERT_EQ(runs, 1);

    worker.Start();

    EXPECT_NE(FieldsOf(worker).thread, INVALID_HANDLE_VALUE);
    EXPECT_TRUE(IsSignalled(FieldsOf(worker).thread, 5000));
    EXPECT_TRUE(Status().empty());
    worker.Shutdown();
    EXPECT_EQ(runs, 1);
}

TEST(ThreadTest, ThreadThatIsShutDownBeforeItRunsSkipsThreadProc)
{
    std::atomic<int> runs = 0;
    Worker worker([&](Worker&) { ++runs; });
    {
        const ImportPatch held("KERNEL32.dll", "CreateThread", &HeldThread);
        worker.Start(); // gives up waiting for the thread's first step
    }
    const auto status = Status();
    ASSERT_EQ(status.size(), 1u);
    EXPECT_EQ(status.begin()->first, worker.GetThreadId());
    EXPECT_EQ(status.begin()->second.description, "worker");
    EXPECT_FALSE(status.begin()->second.started);
    const HANDLE thread = FieldsOf(worker).thread;

    std::thread owner([&] { worker.Shutdown(); });
    EXPECT_TRUE(Eventually([&] { return worker.StopRequested(); }));
    ResumeThread(thread);
    owner.join();

    EXPECT_EQ(runs, 0);
    EXPECT_TRUE(Status().empty());
}

TEST(ThreadTest, ExceptionsOfThreadProcEndItsThreadQuietly)
{
    const std::vector<Worker::Work> failures = {
        [](Worker&) { throw std::runtime_error("lost"); },
        [](Worker&) { throw 1; },
    };
    RunToTheEnd(failures.front()); // opens what the C++ run-time keeps
    for (const Worker::Work& failure : failures)
    {
        const unsigned long before = OpenHandles();
        const StartBlocks blocks;

        RunToTheEnd(failure);

        EXPECT_EQ(OpenHandles(), before);
        EXPECT_EQ(StartBlocks::Made(), 1u);
        EXPECT_EQ(StartBlocks::Alive(), 0u);
    }
}

TEST(ThreadTest, IsInTheMonitorFromStartToItsEnd)
{
    Gate begun;
    Gate end;
    Worker worker(
        [&](Worker&) {
            begun.Open();
            EXPECT_TRUE(end.Wait());
        },
        "the name");
    worker.Start();
    ASSERT_TRUE(begun.Wait());

    const auto status = Status();
    ASSERT_EQ(status.size(), 1u);
    EXPECT_EQ(status.begin()->first, worker.GetThreadId());
    EXPECT_EQ(status.begin()->second.description, "the name");
    EXPECT_TRUE(status.begin()->second.started);
    EXPECT_EQ(status.begin()->second.lastShutdownCheck, 0);
    end.Open();
    EXPECT_TRUE(IsSignalled(FieldsOf(worker).thread, 5000)); // before any Shutdown
    EXPECT_TRUE(Status().empty());
}

TEST(ThreadTest, LeavesTheMonitorBeforeItSignalsItsEnd)
{
    for (int round = 0; round < 100; ++round)
    {
        Worker worker(&SpinUntilStopped);
        worker.Start();
        ASSERT_EQ(Status().size(), 1u);
        worker.Shutdown();
        ASSERT_TRUE(Status().empty());
    }
}

TEST(ThreadTest, IdIsKnownBeforeTheStartingThreadHasStoredIt)
{
    Gate slept;
    unsigned long known = 0;
    std::map<unsigned int, ThreadState> status;
    Worker worker([&](Worker& self) {
        known = self.GetThreadId();
        self.ControlledSleep(1);
        status = Status();
        slept.Open();
        SleepUntilStopped(self);
    });
    ms_beforeReturn = &slept;
    {
        const ImportPatch late("KERNEL32.dll", "CreateThread", &ThreadWhoseStarterFallsBehind);
        worker.Start();
    }

    EXPECT_EQ(known, worker.GetThreadId());
    ASSERT_EQ(status.size(), 1u);
    EXPECT_EQ(status.begin()->first, worker.GetThreadId());
    EXPECT_GT(status.begin()->second.lastShutdownCheck, 0);
    ASSERT_EQ(Status().size(), 1u);
    EXPECT_EQ(Status().begin()->second.description, "worker");
}

TEST(ThreadTest, ThreadThatIsOverBeforeStartReturnsDoesNotComeBackToTheMonitor)
{
    const ImportPatch quick("KERNEL32.dll", "CreateThread", &ThreadThatEndsFirst);
    Worker worker;

    worker.Start();

    EXPECT_TRUE(Status().empty());
    EXPECT_NE(worker.GetThreadId(), 0u);
    worker.Shutdown();
    EXPECT_TRUE(Status().empty());
}

TEST(ThreadTest, SetThreadDescriptionCountsFromTheNextStart)
{
    Worker worker(&SpinUntilStopped, "first");
    worker.SetThreadDescription("second");
    worker.Start();
    const auto id = static_cast<unsigned int>(worker.GetThreadId());
    EXPECT_EQ(Status().at(id).description, "second");

    worker.SetThreadDescription("third");

    EXPECT_EQ(Status().at(id).description, "second");
}

TEST(ThreadTest, ThreadStartedAgainIsDescribedAgain)
{
    Worker worker({}, "first");
    worker.Start();
    worker.Shutdown();
    worker.SetThreadDescription("second");

    const ImportPatch held("KERNEL32.dll", "CreateThread", &HeldThread);
    worker.Start();

    ASSERT_EQ(Status().size(), 1u);
    EXPECT_EQ(Status().begin()->second.description, "second");
    ResumeThread(FieldsOf(worker).thread);
}

TEST(ThreadTest, LastStepSignalsTheEndAndNeverReturnsIntoTheLibrary)
{
    // An owner that sees the event may unload the library before the thread has executed another instruction.
    const StartBlocks blocks;
    const ImportPatch signal("KERNEL32.dll", "SetEvent", &RecordedSetEvent);
    Worker worker;
    worker.Start();
    ASSERT_TRUE(IsSignalled(FieldsOf(worker).thread, 5000));

    ASSERT_NE(ms_signalReturnsTo, nullptr);
    EXPECT_NE(ModuleOf(ms_signalReturnsTo), nullptr);
    EXPECT_NE(ModuleOf(ms_signalReturnsTo), GetModuleHandleA("UtilsLib.dll"));
    EXPECT_NE(ModuleOf(ms_signalReturnsTo), GetModuleHandleA(nullptr));
    EXPECT_EQ(ms_blocksAtSignal, 0u);
    EXPECT_EQ(StartBlocks::Made(), 1u);
}

#if defined(__GNUC__)
TEST(ThreadTest, ThreadProcGetsTheAlignedStackThatCompiledCodeCountsOn)
{
    class Aligned : public Thread
    {
    public:
        Aligned() : Thread("aligned")
        {
        }
        std::uintptr_t m_frame = 0;

    private:
        void ThreadProc() override
        {
            m_frame = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
        }
    };
    const ImportPatch shifted("KERNEL32.dll", "CreateThread", &ThreadWithShiftedStack);
    for (const unsigned int shift : {0u, 4u, 8u, 12u})
    {
        ms_shift = shift;
        Aligned worker;
        worker.Start();
        worker.Shutdown();

        EXPECT_EQ(worker.m_frame % 16, 8u); // below a return address and a saved register
    }
}
#endif

TEST(ThreadTest, FailureToCreateTheThreadLeavesNothingAndAllowsAnotherStart)
{
    const unsigned long before = OpenHandles();
    Gate ran;
    Worker worker([&](Worker&) { ran.Open(); });
    {
        const StartBlocks blocks;
        const ImportPatch none("KERNEL32.dll", "CreateThread", &NoThread);
        worker.Start();
        EXPECT_EQ(StartBlocks::Made(), 1u);
        EXPECT_EQ(StartBlocks::Alive(), 0u);
    }
    EXPECT_EQ(FieldsOf(worker).thread, INVALID_HANDLE_VALUE);
    EXPECT_EQ(FieldsOf(worker).doneEvent, INVALID_HANDLE_VALUE);
    EXPECT_EQ(OpenHandles(), before);
    EXPECT_TRUE(Status().empty());
    worker.Shutdown();

    worker.Start();

    EXPECT_TRUE(ran.Wait());
}

TEST(ThreadTest, FailureToCreateTheEventStartsNoThread)
{
    const unsigned long before = OpenHandles();
    const unsigned long threads = TestSupport::RunningThreads();
    Gate ran;
    Worker worker([&](Worker&) { ran.Open(); });
    {
        const StartBlocks blocks;
        const ImportPatch none("KERNEL32.dll", "CreateEventA", &NoEvent);
        worker.Start();
        EXPECT_EQ(StartBlocks::Alive(), 0u);
    }
    EXPECT_EQ(FieldsOf(worker).thread, INVALID_HANDLE_VALUE);
    EXPECT_EQ(FieldsOf(worker).doneEvent, INVALID_HANDLE_VALUE);
    EXPECT_EQ(OpenHandles(), before);
    EXPECT_LE(TestSupport::RunningThreads(), threads);
    EXPECT_TRUE(Status().empty());
    worker.Shutdown();

    worker.Start();

    EXPECT_TRUE(ran.Wait());
}

TEST(ThreadTest, CopiesReferToTheSameThreadAndEvent)
{
    Gate end;
    Worker worker([&](Worker&) { EXPECT_TRUE(end.Wait()); }, "original");
    worker.Start();

    Worker copy(worker);
    Worker assigned(&SleepUntilStopped, "to be overwritten");
    assigned = worker;

    for (Worker* other : {&copy, &assigned})
    {
        EXPECT_EQ(FieldsOf(*other).thread, FieldsOf(worker).thread);
        EXPECT_EQ(FieldsOf(*other).doneEvent, FieldsOf(worker).doneEvent);
        EXPECT_EQ(other->GetThreadId(), worker.GetThreadId());
        EXPECT_FALSE(other->StopRequested());
    }
    // One of them closes the handles; the others find them closed and do not wait.
    end.Open();
    copy.Shutdown();
    EXPECT_EQ(FieldsOf(copy).thread, INVALID_HANDLE_VALUE);
    EXPECT_FALSE(worker.StopRequested());
    EXPECT_TRUE(Status().empty());
    worker.Shutdown();
    assigned.Shutdown();
    EXPECT_EQ(FieldsOf(worker).thread, INVALID_HANDLE_VALUE);
}

TEST(ThreadTest, CopyThatDiesOnTheThreadItselfDoesNotWaitForIt)
{
    Gate died;
    Worker worker([&](Worker& self) {
        {
            const Worker copy(self);
            Worker assigned;
            assigned = self;
        }
        died.Open();
    });
    worker.Start();

    EXPECT_TRUE(died.Wait());

    EXPECT_FALSE(worker.StopRequested()); // a copy's flag is its own
    worker.Shutdown();
}

TEST(ThreadTest, CopiesKeepTheName)
{
    const Worker worker(&SpinUntilStopped, "original");
    Worker copy(worker);
    Worker assigned({}, "overwritten");
    assigned = worker;

    for (Worker* other : {&copy, &assigned})
    {
        other->Start();
        ASSERT_EQ(Status().size(), 1u);
        EXPECT_EQ(Status().begin()->second.description, "original");
        other->Shutdown();
    }
}

TEST(ThreadTest, CopiesKeepTheStopFlagAndTheLackOfHandles)
{
    Worker worker;
    worker.Start();
    worker.Shutdown();

    const Worker copy(worker);
    Worker assigned;
    assigned = worker;

    for (const Worker* other : {&copy, static_cast<const Worker*>(&assigned)})
    {
        EXPECT_TRUE(other->StopRequested());
        EXPECT_EQ(FieldsOf(*other).thread, INVALID_HANDLE_VALUE);
        EXPECT_EQ(FieldsOf(*other).doneEvent, INVALID_HANDLE_VALUE);
        EXPECT_EQ(other->GetThreadId(), worker.GetThreadId());
    }
}

TEST(ThreadTest, AssigningToItselfChangesNothing)
{
    const std::string name = "a name that does not fit into a short string's own buffer";
    Worker worker(&SpinUntilStopped, name);
    const Worker& same = worker;
    worker = same;
    worker.Start();
    EXPECT_EQ(Status().at(static_cast<unsigned int>(worker.GetThreadId())).description, name);
    const Fields before = FieldsOf(worker);

    worker = same;

    EXPECT_EQ(FieldsOf(worker).thread, before.thread);
    EXPECT_EQ(FieldsOf(worker).doneEvent, before.doneEvent);
    EXPECT_EQ(worker.GetThreadId(), before.threadId);
    EXPECT_FALSE(worker.StopRequested());
}

TEST(ThreadTest, ManyThreadsStartAndStopAtOnce)
{
    constexpr int kThreads = 64;
    RunOwners(kThreads, 1); // what the tests' own threads need is kept by their library
    const unsigned long before = OpenHandles();
    {
        std::vector<std::unique_ptr<Worker>> workers;
        for (int i = 0; i < kThreads; ++i)
        {
            workers.push_back(std::make_unique<Worker>(&SleepUntilStopped, "worker " + std::to_string(i)));
            workers.back()->Start();
        }
        const auto status = Status();
        EXPECT_EQ(status.size(), static_cast<std::size_t>(kThreads));
        for (int i = 0; i < kThreads; ++i)
        {
            const auto found = status.find(static_cast<unsigned int>(workers[i]->GetThreadId()));
            ASSERT_NE(found, status.end());
            EXPECT_EQ(found->second.description, "worker " + std::to_string(i));
        }
        std::vector<std::thread> owners;
        for (const auto& worker : workers)
        {
            owners.emplace_back([&worker] { worker->Shutdown(); });
        }
        for (std::thread& owner : owners)
        {
            owner.join();
        }
    }

    EXPECT_TRUE(Status().empty());
    EXPECT_TRUE(Eventually([&] { return OpenHandles() <= before; })) << OpenHandles() << ", were " << before;
}

TEST(ThreadTest, StartsAndStopsFromManyThreadsLeaveNothing)
{
    // A lock that threads meet at for the first time opens a handle that stays, once. What a start leaves, every round
    // would leave.
    bool grown = true;
    for (int round = 0; round < 4 && grown; ++round)
    {
        const unsigned long before = OpenHandles();

        EXPECT_GE(RunOwners(8, 20), 80);

        EXPECT_TRUE(Status().empty());
        grown = !Eventually([&] { return OpenHandles() <= before; });
    }
    EXPECT_FALSE(grown);
}

TEST(ThreadTest, SleepingThreadIsStoppedAfterAtMostOneStep)
{
    Worker worker([](Worker& self) { self.ControlledSleep(UINT_MAX); });
    worker.Start();
    EXPECT_TRUE(Eventually([&] { return LastCheck(static_cast<unsigned int>(worker.GetThreadId())) > 0; }));
    const unsigned long long start = GetTickCount64();

    worker.Shutdown();

    EXPECT_LT(GetTickCount64() - start, 10'000u); // one step of 100 ms on a machine with much else to do
}

TEST(ThreadTest, ControlledSleepTakesItsStepsInRealTime)
{
    Gate over;
    unsigned long long slept = 0;
    Worker worker([&](Worker& self) {
        const unsigned long long start = GetTickCount64();
        self.ControlledSleep(350);
        slept = GetTickCount64() - start;
        over.Open();
    });
    worker.Start();

    ASSERT_TRUE(over.Wait());
    EXPECT_GE(slept, 200u); // four steps, and not one; a coarse clock may miss some of each
}

TEST_F(ThreadSleepTest, SleepsAreRoundedUpToSteps)
{
    struct
    {
        unsigned int milliseconds;
        std::size_t steps;
    } const cases[] = {{0, 0}, {1, 1}, {99, 1}, {100, 1}, {101, 2}, {150, 2}, {250, 3}, {1000, 10}, {1001, 11}};
    const std::atomic<bool> never = false;
    const std::vector<std::function<void(Worker&, unsigned int)>> sleeps = {
        [](Worker& self, unsigned int milliseconds) { self.ControlledSleep(milliseconds); },
        [](Worker& self, unsigned int milliseconds) { self.ControlledSleepEx(milliseconds, true); },
        [](Worker& self, unsigned int milliseconds) { self.ControlledSleepEx(milliseconds, false); },
        [&](Worker& self, unsigned int milliseconds) { self.InterruptibleSleep(milliseconds, never); },
    };
    for (std::size_t kind = 0; kind < sleeps.size(); ++kind)
    {
        for (const auto& [milliseconds, steps] : cases)
        {
            m_steps.clear();
            Run([&, asked = milliseconds](Worker& self) { sleeps[kind](self, asked); });
            EXPECT_EQ(m_steps, Steps(steps)) << "sleep " << kind << " of " << milliseconds << " ms";
        }
    }
}

TEST_F(ThreadSleepTest, EveryStepFirstRecordsAHeartbeat)
{
    const std::atomic<bool> never = false;
    const std::vector<Worker::Work> sleeps = {
        [](Worker& self) { self.ControlledSleep(300); },
        [](Worker& self) { self.ControlledSleepEx(300, false); },
        [&](Worker& self) { self.InterruptibleSleep(300, never); },
    };
    for (const Worker::Work& sleep : sleeps)
    {
        const auto start = static_cast<long long>(GetTickCount64());
        std::vector<long long> heartbeats;
        m_onStep = [&] {
            const unsigned int id = GetCurrentThreadId();
            heartbeats.push_back(LastCheck(id));
            ThreadMonitor::GetInstance().ThreadCheckedShutdownStatus(id, 0); // so that the next one shows
        };

        Run(sleep);

        ASSERT_EQ(heartbeats.size(), 3u);
        for (const long long heartbeat : heartbeats)
        {
            EXPECT_GE(heartbeat, start);
            EXPECT_LE(heartbeat, static_cast<long long>(GetTickCount64()));
        }
    }
}

TEST_F(ThreadSleepTest, HeartbeatIsThatOfTheStoredIdWhicheverThreadSleeps)
{
    Gate end;
    Worker worker([&](Worker&) { EXPECT_TRUE(end.Wait()); });
    worker.Start();
    const auto id = static_cast<unsigned int>(worker.GetThreadId());
    EXPECT_EQ(LastCheck(id), 0);

    worker.ControlledSleep(100);

    EXPECT_GT(LastCheck(id), 0);
    EXPECT_EQ(Status().size(), 1u); // none of the sleeping thread
    end.Open();
}

TEST_F(ThreadSleepTest, SleepOfZeroRecordsNoHeartbeat)
{
    const std::atomic<bool> never = false;
    long long last = -1;
    Run([&](Worker& self) {
        self.ControlledSleep(0);
        self.ControlledSleepEx(0, true);
        self.InterruptibleSleep(0, never);
        last = LastCheck(static_cast<unsigned int>(self.GetThreadId()));
    });

    EXPECT_EQ(last, 0);
}

TEST_F(ThreadSleepTest, StopIsSeenBetweenStepsAndTakesNoFurtherHeartbeat)
{
    const std::atomic<bool> never = false;
    const std::vector<Worker::Work> sleeps = {
        [](Worker& self) { self.ControlledSleep(1000); },
        [](Worker& self) { self.ControlledSleepEx(1000, true); },
        [&](Worker& self) { self.InterruptibleSleep(1000, never); },
    };
    for (const Worker::Work& sleep : sleeps)
    {
        long long last = -1;
        m_steps.clear();
        Run([&](Worker& self) {
            const auto id = static_cast<unsigned int>(self.GetThreadId());
            m_onStep = [&] {
                if (m_steps.size() == 3)
                {
                    self.Shutdown(); // on its own thread: raises the flag
                    ThreadMonitor::GetInstance().ThreadCheckedShutdownStatus(id, 0);
                }
            };
            sleep(self);
            sleep(self); // and no step of another sleep
            last = LastCheck(id);
        });
        EXPECT_EQ(m_steps, Steps(3));
        EXPECT_EQ(last, 0);
    }
}

TEST_F(ThreadSleepTest, InterruptEndsAnInterruptibleSleepBetweenSteps)
{
    std::atomic<bool> interrupt = false;
    m_onStep = [&] { interrupt = m_steps.size() == 2; };
    Run([&](Worker& self) { self.InterruptibleSleep(1000, interrupt); });

    EXPECT_EQ(m_steps, Steps(2));
}

TEST_F(ThreadSleepTest, InterruptThatIsSetTakesNoStepAndNoHeartbeat)
{
    const std::atomic<bool> interrupt = true;
    long long last = -1;
    Run([&](Worker& self) {
        self.InterruptibleSleep(1000, interrupt);
        last = LastCheck(static_cast<unsigned int>(self.GetThreadId()));
    });

    EXPECT_TRUE(m_steps.empty());
    EXPECT_EQ(last, 0);
}

TEST_F(ThreadSleepTest, OnlyAnAlertableSleepRunsQueuedCalls)
{
    ms_called = false;
    const std::atomic<bool> never = false;
    Run([&](Worker& self) {
        QueueUserAPC(&NoteCall, GetCurrentThread(), 0);
        self.ControlledSleep(100);
        self.InterruptibleSleep(100, never);
        self.ControlledSleepEx(100, false);
        EXPECT_FALSE(ms_called);
        self.ControlledSleepEx(100, true);
        EXPECT_TRUE(ms_called);
    });
}

TEST(ThreadTest, QueuedCallEndsAStepOfARealAlertableSleepOnly)
{
    Gate over;
    bool calledPlain = true;
    bool calledAlertable = false;
    ms_called = false;
    Worker worker([&](Worker& self) {
        QueueUserAPC(&NoteCall, GetCurrentThread(), 0);
        self.ControlledSleepEx(100, false);
        calledPlain = ms_called;
        self.ControlledSleepEx(100, true);
        calledAlertable = ms_called;
        over.Open();
    });
    worker.Start();

    ASSERT_TRUE(over.Wait());
    EXPECT_FALSE(calledPlain);
    EXPECT_TRUE(calledAlertable);
}

TEST_F(ThreadSleepTest, SleepOfTheLongestTimeEnds)
{
    unsigned int steps = 0;
    TimeService::GetMock().SetSleepCallback([&](unsigned long long) { ++steps; });
    Run([](Worker& self) { self.ControlledSleep(UINT_MAX); });

    EXPECT_EQ(steps, 42'949'673u); // 4,294,967,295 ms in steps of 100; a 32-bit sum would wrap round
}
