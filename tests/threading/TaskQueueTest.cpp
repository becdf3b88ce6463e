#include <UtilsLib/threading/TaskQueue.h>

#include <UtilsLib/threading/LambdaThreadPoolTask.h>
#include <tests/support/AllocationFault.h>
#include <tests/support/Gate.h>
#include <tests/support/ImportPatch.h>
#include <tests/support/OpenHandles.h>
#include <tests/threading/PoolFields.h>

#include <gtest/gtest.h>

#include <chrono>
#include <climits>
#include <cstring>
#include <memory>
#include <new>
#include <thread>
#include <type_traits>
#include <vector>

using TestSupport::Gate;
using TestSupport::ImportPatch;
using ThreadingTests::FieldsOf;
using ThreadingTests::TakeWakeUps;
using UtilsLib::LambdaThreadPoolTask;
using UtilsLib::TaskBase;
using UtilsLib::TaskQueue;

static_assert(!std::is_copy_constructible_v<TaskQueue> && std::is_copy_assignable_v<TaskQueue>);

namespace
{

constexpr unsigned int kNoLimit = 0xFFFFFFFF;

/// Tasks that are not run here: a queue only carries their addresses.
class TaskQueueTest : public testing::Test
{
protected:
    TaskBase* Task(std::size_t index)
    {
        while (m_tasks.size() <= index)
        {
            m_tasks.push_back(std::make_unique<LambdaThreadPoolTask>(nullptr));
        }
        return m_tasks[index].get();
    }
    /// What `Pop` gives at once; fails the test when it gives nothing.
    static TaskBase* PopNow(TaskQueue& queue)
    {
        TaskBase* task = nullptr;
        EXPECT_TRUE(queue.Pop(&task, 0));
        return task;
    }
    static bool IsEmpty(TaskQueue& queue)
    {
        TaskBase* task = nullptr;
        return !queue.Pop(&task, 0);
    }

    std::vector<std::unique_ptr<TaskBase>> m_tasks;
};

struct SemaphoreCall
{
    LPSECURITY_ATTRIBUTES security;
    LONG initial;
    LONG maximum;
    LPCSTR name;
};
SemaphoreCall ms_semaphoreCall;

HANDLE WINAPI RecordedSemaphore(LPSECURITY_ATTRIBUTES security, LONG initial, LONG maximum, LPCSTR name)
{
    ms_semaphoreCall = {security, initial, maximum, name};
    return CreateSemaphoreA(security, initial, maximum, name);
}

HANDLE WINAPI NoSemaphore(LPSECURITY_ATTRIBUTES, LONG, LONG, LPCSTR)
{
    SetLastError(ERROR_NO_SYSTEM_RESOURCES);
    return nullptr;
}

const TaskQueue* ms_queue = nullptr;
HANDLE ms_ownerAtRelease = nullptr;
std::size_t ms_tasksAtRelease = 0;

BOOL WINAPI ReleaseThatLooks(HANDLE semaphore, LONG count, LPLONG previous)
{
    ms_ownerAtRelease = FieldsOf(*ms_queue).section.OwningThread;
    ms_tasksAtRelease = FieldsOf(*ms_queue).tasks->size();
    return ReleaseSemaphore(semaphore, count, previous);
}

DWORD ms_timeout = 0;

DWORD WINAPI RecordedWait(HANDLE, DWORD timeout)
{
    ms_timeout = timeout;
    return WAIT_TIMEOUT;
}

DWORD WINAPI FailedWait(HANDLE, DWORD)
{
    return WAIT_FAILED;
}

} // namespace

TEST_F(TaskQueueTest, TasksLeaveInTheOrderInWhichTheyWerePushed)
{
    TaskQueue queue;
    for (std::size_t i = 0; i < 500; ++i)
    {
        queue.Push(Task(i));
    }

    for (std::size_t i = 0; i < 500; ++i)
    {
        ASSERT_EQ(PopNow(queue), Task(i)) << i;
    }
    EXPECT_TRUE(IsEmpty(queue));
}

TEST_F(TaskQueueTest, PopOfAnEmptyQueueGivesFalseAndNullAtOnce)
{
    TaskQueue queue;
    TaskBase* task = Task(0);

    EXPECT_FALSE(queue.Pop(&task, 0));

    EXPECT_EQ(task, nullptr);
}

TEST_F(TaskQueueTest, PopWaitsAsLongAsItWasTold)
{
    TaskQueue queue;
    TaskBase* task = Task(0);
    const auto start = std::chrono::steady_clock::now();

    EXPECT_FALSE(queue.Pop(&task, 60));

    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(55));
    EXPECT_EQ(task, nullptr);
}

TEST_F(TaskQueueTest, PopHandsItsLimitToTheSystemAsItStands)
{
    TaskQueue queue;
    TaskBase* task = nullptr;
    const ImportPatch wait("KERNEL32.dll", "WaitForSingleObject", &RecordedWait);

    for (const unsigned int limit : {0u, 1u, 0x80000000u, 0xFFFFFFFEu, kNoLimit})
    {
        EXPECT_FALSE(queue.Pop(&task, limit));
        EXPECT_EQ(ms_timeout, limit);
    }
}

TEST_F(TaskQueueTest, FailedWaitGivesFalseAndLeavesTheTask)
{
    TaskQueue queue;
    queue.Push(Task(0));
    TaskBase* task = Task(1);
    {
        const ImportPatch wait("KERNEL32.dll", "WaitForSingleObject", &FailedWait);
        EXPECT_FALSE(queue.Pop(&task, 0));
    }

    EXPECT_EQ(task, nullptr);
    EXPECT_EQ(PopNow(queue), Task(0));
}

TEST_F(TaskQueueTest, PushWakesAConsumerThatWaitsWithoutALimit)
{
    TaskQueue queue;
    Gate waits;
    Gate done;
    TaskBase* task = nullptr;
    std::thread consumer([&] {
        waits.Open();
        EXPECT_TRUE(queue.Pop(&task, kNoLimit));
        done.Open();
    });
    EXPECT_TRUE(waits.Wait());
    EXPECT_FALSE(done.Wait(std::chrono::milliseconds(30)));

    queue.Push(Task(0)); // the consumer holds no lock while it waits

    EXPECT_TRUE(done.Wait());
    consumer.join();
    EXPECT_EQ(task, Task(0));
}

TEST_F(TaskQueueTest, SignalGivesOnePopTrueAndNull)
{
    TaskQueue queue;

    queue.Signal();

    EXPECT_EQ(PopNow(queue), nullptr);
    EXPECT_TRUE(IsEmpty(queue));
}

TEST_F(TaskQueueTest, SignalOwesAWakeUpMoreThanThereAreTasks)
{
    TaskQueue queue;
    queue.Signal();
    queue.Push(Task(0));

    EXPECT_EQ(PopNow(queue), Task(0)); // by the wake-up of the signal
    EXPECT_EQ(PopNow(queue), nullptr);
    EXPECT_TRUE(IsEmpty(queue));
}

TEST_F(TaskQueueTest, NullMayBePushedAndComesOutInItsTurn)
{
    TaskQueue queue;
    queue.Push(nullptr);
    queue.Push(Task(0));

    EXPECT_EQ(PopNow(queue), nullptr);
    EXPECT_EQ(PopNow(queue), Task(0));
    EXPECT_TRUE(IsEmpty(queue));
}

TEST_F(TaskQueueTest, ConsumersAreWokenWithTheLockReleasedAndTheTaskInPlace)
{
    TaskQueue queue;
    ms_queue = &queue;
    const ImportPatch release("KERNEL32.dll", "ReleaseSemaphore", &ReleaseThatLooks);
    ms_ownerAtRelease = INVALID_HANDLE_VALUE;

    queue.Push(Task(0));

    EXPECT_EQ(ms_ownerAtRelease, nullptr);
    EXPECT_EQ(ms_tasksAtRelease, 1u);
    EXPECT_EQ(PopNow(queue), Task(0));
}

TEST_F(TaskQueueTest, PopAndPushWaitForTheLock)
{
    TaskQueue queue;
    auto* const section = const_cast<CRITICAL_SECTION*>(&FieldsOf(queue).section);
    queue.Push(Task(0));
    Gate pushed;
    Gate popped;
    TaskBase* task = nullptr;
    EnterCriticalSection(section);
    std::thread producer([&] {
        queue.Push(Task(1));
        pushed.Open();
    });
    std::thread consumer([&] {
        EXPECT_TRUE(queue.Pop(&task, 0));
        popped.Open();
    });

    EXPECT_FALSE(pushed.Wait(std::chrono::milliseconds(30)));
    EXPECT_FALSE(popped.Wait(std::chrono::milliseconds(30)));
    LeaveCriticalSection(section);

    EXPECT_TRUE(pushed.Wait());
    EXPECT_TRUE(popped.Wait());
    producer.join();
    consumer.join();
    EXPECT_EQ(task, Task(0));
}

TEST_F(TaskQueueTest, SemaphoreIsUnnamedAndCountsFromZeroToTheMost)
{
    const ImportPatch create("KERNEL32.dll", "CreateSemaphoreA", &RecordedSemaphore);
    ms_semaphoreCall = {reinterpret_cast<LPSECURITY_ATTRIBUTES>(1), 1, 1, "name"};

    const TaskQueue queue;

    EXPECT_EQ(ms_semaphoreCall.security, nullptr);
    EXPECT_EQ(ms_semaphoreCall.initial, 0);
    EXPECT_EQ(ms_semaphoreCall.maximum, 2'147'483'647);
    EXPECT_EQ(ms_semaphoreCall.name, nullptr);
}

TEST_F(TaskQueueTest, WithoutASemaphoreTasksAreKeptAndEveryPopFailsAtOnce)
{
    const ImportPatch create("KERNEL32.dll", "CreateSemaphoreA", &NoSemaphore);
    TaskQueue queue;
    TaskBase* task = nullptr;

    queue.Push(Task(0));
    queue.Signal();

    EXPECT_FALSE(queue.Pop(&task, kNoLimit));
    EXPECT_EQ(FieldsOf(queue).tasks->size(), 1u);
}

TEST_F(TaskQueueTest, FieldsAreTheLockTheTasksAndTheSemaphore)
{
    TaskQueue queue;
    queue.Push(Task(0));
    queue.Push(Task(1));

    EXPECT_EQ(FieldsOf(queue).section.OwningThread, nullptr);
    EXPECT_EQ(*FieldsOf(queue).tasks, (std::deque<TaskBase*>{Task(1), Task(0)})); // the newest in front
    EXPECT_EQ(TakeWakeUps(queue), 2);
}

TEST_F(TaskQueueTest, FullSemaphoreTakesTheTaskAndOwesNothingMore)
{
    TaskQueue queue;
    ASSERT_TRUE(ReleaseSemaphore(FieldsOf(queue).semaphore, LONG_MAX, nullptr));

    queue.Push(Task(0));

    EXPECT_EQ(PopNow(queue), Task(0));
    LONG before = 0;
    ASSERT_TRUE(ReleaseSemaphore(FieldsOf(queue).semaphore, 1, &before));
    EXPECT_EQ(before, LONG_MAX - 1);
}

TEST_F(TaskQueueTest, DestructorLeavesTheTasksAlive)
{
    const auto witness = std::make_shared<int>();
    const std::unique_ptr<TaskBase> task(new LambdaThreadPoolTask([witness] {}));
    {
        TaskQueue queue;
        queue.Push(task.get());
    }

    EXPECT_EQ(witness.use_count(), 2);
}

TEST_F(TaskQueueTest, DestructorClosesNoSemaphoreAndDeletesNoCriticalSection)
{
    alignas(TaskQueue) unsigned char place[sizeof(TaskQueue)];
    auto* const queue = new (place) TaskQueue;
    const auto* const fields = reinterpret_cast<const ThreadingTests::QueueFields*>(place);
    const HANDLE semaphore = fields->semaphore;
    CRITICAL_SECTION before;
    std::memcpy(&before, &fields->section, sizeof(before));
    const unsigned long handles = TestSupport::OpenHandles();

    queue->~TaskQueue();

    EXPECT_EQ(TestSupport::OpenHandles(), handles);
    EXPECT_TRUE(ReleaseSemaphore(semaphore, 1, nullptr));
    EXPECT_EQ(std::memcmp(&before, place, sizeof(before)), 0);
    CloseHandle(semaphore);
    DeleteCriticalSection(&before);
}

TEST_F(TaskQueueTest, AssignmentSharesTheTasksAndTheSemaphoreAndFreesTheStorageOnce)
{
    TaskQueue first;
    first.Push(Task(0));
    first.Push(Task(1));
    const TestSupport::AllocationFault allocations;
    int live = 0;
    {
        TaskQueue second;
        second = first;

        EXPECT_EQ(FieldsOf(second).semaphore, FieldsOf(first).semaphore);
        EXPECT_EQ(FieldsOf(second).tasks, FieldsOf(first).tasks);
        EXPECT_EQ(PopNow(second), Task(0));
        live = allocations.Live();
    }

    EXPECT_EQ(allocations.Live(), live); // the first queue still uses it
    EXPECT_EQ(PopNow(first), Task(1));
    EXPECT_TRUE(IsEmpty(first));
}

TEST_F(TaskQueueTest, StorageThatAnAssignmentReplacesIsFreedAndThatOfItselfKept)
{
    const TestSupport::AllocationFault allocations;
    {
        TaskQueue first;
        TaskQueue second;
        second = first;
        second = first; // which it shares already
        TaskQueue& same = second;
        second = same;
    }

    EXPECT_EQ(allocations.Live(), 0);
}

TEST_F(TaskQueueTest, TaskThatNoMemoryIsLeftForStaysTheCallersAndTheQueueInOrder)
{
    constexpr std::size_t kTasks = 300; // more than fit into the storage's first block
    TaskQueue queue;
    std::vector<TaskBase*> accepted;
    accepted.reserve(kTasks);
    Task(kTasks - 1);
    {
        const TestSupport::AllocationFault fault(1);
        for (std::size_t i = 0; i < kTasks; ++i)
        {
            try
            {
                queue.Push(Task(i));
                accepted.push_back(Task(i));
            }
            catch (const std::bad_alloc&)
            {
            }
        }
    }

    ASSERT_EQ(accepted.size(), kTasks - 1);
    EXPECT_EQ(FieldsOf(queue).section.OwningThread, nullptr);
    for (TaskBase* const task : accepted)
    {
        ASSERT_EQ(PopNow(queue), task);
    }
    EXPECT_TRUE(IsEmpty(queue)); // nothing is owed for the refused one
}
