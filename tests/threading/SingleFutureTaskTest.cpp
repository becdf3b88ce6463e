#include <UtilsLib/threading/SingleFutureTask.h>

#include <UtilsLib/WindowsTypes.h>
#include <tests/support/FieldsOf.h>
#include <tests/support/Gate.h>
#include <tests/support/ImportPatch.h>
#include <tests/support/OpenHandles.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <future>
#include <memory>
#include <optional>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <utility>

using TestSupport::Eventually;
using TestSupport::Gate;
using TestSupport::ImportPatch;
using UtilsLib::SingleFutureTask;

namespace
{

constexpr std::chrono::milliseconds kMoment(50);

struct FutureFields
{
    std::shared_ptr<std::future<void>> future;
};
static_assert(sizeof(FutureFields) == sizeof(SingleFutureTask));

const std::shared_ptr<std::future<void>>& FutureOf(const SingleFutureTask& task)
{
    return TestSupport::FieldsOf<FutureFields>(task).future;
}

void RunToTheEnd(SingleFutureTask& task)
{
    const auto done = std::make_shared<Gate>(); // the run may still be in it when the wait is over
    task.Run([done] { done->Open(); });
    EXPECT_TRUE(done->Wait());
}

/// A run that goes on until it is told.
class HeldRun
{
public:
    explicit HeldRun(SingleFutureTask& task)
    {
        task.Run([this] {
            m_running.Open();
            m_over = m_finish.Wait();
        });
        EXPECT_TRUE(m_running.Wait());
    }
    void Finish()
    {
        m_finish.Open();
    }
    /// Whether the work has come to its end.
    bool IsOver() const
    {
        return m_over;
    }

private:
    Gate m_running;
    Gate m_finish;
    std::atomic<bool> m_over = false;
};

/// Does something that blocks on a thread of its own.
class Blocked
{
public:
    template <typename Function>
    explicit Blocked(Function function)
        : m_thread([this, function] {
              function();
              m_done.Open();
          })
    {
    }
    ~Blocked()
    {
        m_thread.join();
    }
    bool IsDoneWithin(std::chrono::milliseconds limit)
    {
        return m_done.Wait(limit);
    }

private:
    Gate m_done;
    std::thread m_thread;
};

int NoThread(void*, const void*, void* (*)(void*), void*)
{
    return EAGAIN;
}

} // namespace

TEST(SingleFutureTaskTest, NewTaskHasAnEmptyFuture)
{
    const SingleFutureTask task;

    ASSERT_NE(FutureOf(task), nullptr);
    EXPECT_FALSE(FutureOf(task)->valid());
}

TEST(SingleFutureTaskTest, RunReturnsWhileTheWorkGoesOnOnAnotherThread)
{
    Gate finish;
    Gate done;
    unsigned long thread = 0;
    SingleFutureTask task;

    task.Run([&] {
        EXPECT_TRUE(finish.Wait());
        thread = GetCurrentThreadId();
        done.Open();
    });

    finish.Open(); // the run would wait for this for ever, had the caller not come here
    EXPECT_TRUE(done.Wait());
    EXPECT_NE(thread, 0u);
    EXPECT_NE(thread, GetCurrentThreadId());
}

TEST(SingleFutureTaskTest, SecondRunReturnsOnlyWhenTheFirstWorkIsOver)
{
    bool firstWasOver = false;
    Gate secondDone;
    SingleFutureTask task;
    HeldRun first(task);
    Blocked second([&] {
        task.Run([&] {
            firstWasOver = first.IsOver();
            secondDone.Open();
        });
    });

    EXPECT_FALSE(second.IsDoneWithin(kMoment));
    first.Finish();

    EXPECT_TRUE(second.IsDoneWithin(std::chrono::seconds(5)));
    EXPECT_TRUE(secondDone.Wait());
    EXPECT_TRUE(firstWasOver);
}

TEST(SingleFutureTaskTest, NoTwoRunsEverOverlap)
{
    std::atomic<int> inside = 0;
    std::atomic<int> runs = 0;
    SingleFutureTask task;
    for (int i = 0; i < 200; ++i)
    {
        task.Run([&] {
            EXPECT_EQ(++inside, 1);
            SwitchToThread();
            ++runs;
            --inside;
        });
    }
    RunToTheEnd(task);

    EXPECT_EQ(runs, 200);
}

TEST(SingleFutureTaskTest, FinishedRunIsNotWaitedFor)
{
    SingleFutureTask task;
    RunToTheEnd(task);

    RunToTheEnd(task);
}

TEST(SingleFutureTaskTest, CopiesShareTheRun)
{
    Gate done;
    SingleFutureTask task;
    SingleFutureTask copy(task);
    SingleFutureTask assigned;
    assigned = task;
    EXPECT_EQ(FutureOf(copy), FutureOf(task));
    EXPECT_EQ(FutureOf(assigned), FutureOf(task));
    HeldRun run(task);
    Blocked second([&] { copy.Run([&done] { done.Open(); }); });

    EXPECT_FALSE(second.IsDoneWithin(kMoment));
    run.Finish();

    EXPECT_TRUE(done.Wait());
}

TEST(SingleFutureTaskTest, MovedTasksShareTheRunAndTheSourceStaysUsable)
{
    SingleFutureTask task;
    SingleFutureTask moved(std::move(task));
    SingleFutureTask assigned;
    assigned = std::move(moved);

    EXPECT_EQ(FutureOf(task), FutureOf(assigned));
    EXPECT_EQ(FutureOf(moved), FutureOf(assigned));
    RunToTheEnd(task);
    RunToTheEnd(moved);
    RunToTheEnd(assigned);
}

TEST(SingleFutureTaskTest, ExceptionsOfTheWorkAreDropped)
{
    SingleFutureTask task;

    task.Run([] { throw std::runtime_error("lost"); });
    EXPECT_NO_THROW(RunToTheEnd(task));
    task.Run([] { throw 1; });
    EXPECT_NO_THROW(RunToTheEnd(task));
    task.Run([] { throw std::runtime_error("lost by the destructor"); });
}

TEST(SingleFutureTaskTest, EmptyWorkIsDroppedLikeOneThatThrows)
{
    SingleFutureTask task;

    EXPECT_NO_THROW(task.Run(nullptr));

    EXPECT_NO_THROW(RunToTheEnd(task));
}

TEST(SingleFutureTaskTest, DestructorOfTheLastShareWaitsForTheRun)
{
    std::optional<SingleFutureTask> task(std::in_place);
    HeldRun run(*task);
    std::optional<SingleFutureTask> copy(*task);
    task.reset(); // not the last one
    EXPECT_FALSE(run.IsOver());
    Blocked last([&] { copy.reset(); });

    EXPECT_FALSE(last.IsDoneWithin(kMoment));
    run.Finish();

    EXPECT_TRUE(last.IsDoneWithin(std::chrono::seconds(5)));
    EXPECT_TRUE(run.IsOver());
}

TEST(SingleFutureTaskTest, AssigningOverTheLastShareWaitsForTheRun)
{
    SingleFutureTask task;
    HeldRun run(task);
    Blocked assignment([&] { task = SingleFutureTask(); });

    EXPECT_FALSE(assignment.IsDoneWithin(kMoment));
    run.Finish();

    EXPECT_TRUE(assignment.IsDoneWithin(std::chrono::seconds(5)));
}

TEST(SingleFutureTaskTest, AssignmentToItselfKeepsTheRun)
{
    SingleFutureTask task;
    HeldRun run(task);
    SingleFutureTask& same = task;

    task = same;

    EXPECT_TRUE(FutureOf(task)->valid());
    run.Finish();
    RunToTheEnd(task);
}

TEST(SingleFutureTaskTest, WithoutAThreadTheStandardErrorComesOutAndTheNextRunIsAsGoodAsEver)
{
    SingleFutureTask task;
    RunToTheEnd(task);
    {
        const ImportPatch create("libwinpthread-1.dll", "pthread_create", &NoThread, "libstdc++-6.dll");
        EXPECT_THROW(task.Run([] {}), std::system_error);
    }

    RunToTheEnd(task);
}

TEST(SingleFutureTaskTest, RunInTheWorkItselfFailsInsteadOfWaitingForItsOwnEnd)
{
    std::error_code error;
    Gate done;
    SingleFutureTask task;
    task.Run([&] {
        try
        {
            task.Run([] {});
        }
        catch (const std::system_error& failure)
        {
            error = failure.code();
        }
        done.Open();
    });

    EXPECT_TRUE(done.Wait());
    EXPECT_EQ(error, std::errc::resource_deadlock_would_occur);
    RunToTheEnd(task);
}

TEST(SingleFutureTaskTest, WorkMayRunAnotherTask)
{
    Gate done;
    SingleFutureTask other;
    SingleFutureTask task;

    task.Run([&] { other.Run([&done] { done.Open(); }); });

    EXPECT_TRUE(done.Wait());
}

TEST(SingleFutureTaskTest, WorkMayDestroyItsTask)
{
    const unsigned long threads = TestSupport::RunningThreads();
    auto task = std::make_unique<SingleFutureTask>();
    SingleFutureTask& alive = *task;
    Gate destroyed;
    Gate told;

    alive.Run([&] {
        EXPECT_TRUE(told.Wait());
        task.reset();
        destroyed.Open();
    });
    told.Open();

    EXPECT_TRUE(destroyed.Wait());
    EXPECT_TRUE(Eventually([threads] { return TestSupport::RunningThreads() == threads; }));
}

TEST(SingleFutureTaskTest, WorkMayAssignOverItsTask)
{
    const unsigned long threads = TestSupport::RunningThreads();
    SingleFutureTask task;
    Gate told;
    Gate assigned;

    task.Run([&] {
        EXPECT_TRUE(told.Wait());
        task = SingleFutureTask();
        assigned.Open();
    });
    told.Open();

    EXPECT_TRUE(assigned.Wait());
    EXPECT_FALSE(FutureOf(task)->valid());
    RunToTheEnd(task);
    EXPECT_TRUE(Eventually([threads] { return TestSupport::RunningThreads() == threads; }));
}

TEST(SingleFutureTaskTest, NoThreadAndNoHandleIsLeft)
{
    const auto rounds = [](int count) {
        for (int i = 0; i < count; ++i)
        {
            SingleFutureTask task;
            task.Run([] {});
            task.Run([] { throw 1; });
        }
    };
    rounds(3); // the run-time keeps something from the first threads
    const unsigned long threads = TestSupport::RunningThreads();
    const unsigned long handles = TestSupport::OpenHandles();

    rounds(20);

    EXPECT_TRUE(Eventually([threads] { return TestSupport::RunningThreads() == threads; }));
    EXPECT_TRUE(Eventually([handles] { return TestSupport::OpenHandles() <= handles + 4; }));
}
