#include <UtilsLib/threading/ThreadPool.h>

#include <tests/threading/PoolFields.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <random>
#include <thread>
#include <vector>

using ThreadingTests::FieldsOf;
using UtilsLib::TaskBase;
using UtilsLib::TaskQueue;
using UtilsLib::ThreadPool;

namespace
{

/// What became of one task.
struct Fate
{
    std::atomic<int> runs = 0;
    std::atomic<int> deletions = 0;
    std::atomic<int> taken = 0; // out of the queue by the test
};

/// What the tasks of a round write to.
struct Round
{
    explicit Round(std::size_t tasks) : fates(tasks)
    {
    }

    std::vector<Fate> fates;
    std::atomic<unsigned int> lateRuns = 0; // began when the pool was shutting down
};

class CountedTask : public TaskBase
{
public:
    CountedTask(Round& round, std::size_t index) : m_round(round), m_index(index)
    {
    }
    ~CountedTask() override
    {
        ++m_round.fates[m_index].deletions;
    }
    void Run() override
    {
        m_round.lateRuns += ShouldShutDown() ? 1u : 0u;
        ++m_round.fates[m_index].runs;
    }
    std::size_t Index() const
    {
        return m_index;
    }

private:
    Round& m_round;
    const std::size_t m_index;
};

constexpr unsigned int kProducers = 4;
constexpr unsigned int kTasksOfAProducer = 150;

/// Producers of a round, all at once.
std::vector<std::thread> StartProducers(ThreadPool& pool, Round& round)
{
    std::vector<std::thread> producers;
    for (unsigned int producer = 0; producer < kProducers; ++producer)
    {
        producers.emplace_back([&pool, &round, producer] {
            for (unsigned int i = 0; i < kTasksOfAProducer; ++i)
            {
                pool.Submit(new CountedTask(round, producer * kTasksOfAProducer + i));
            }
        });
    }
    return producers;
}

/// Marks the tasks that the pool left; they must come out in the order of their producers.
void TakeLeftTasks(TaskQueue& queue, Round& round)
{
    std::vector<std::size_t> next(kProducers, 0);
    for (TaskBase* task = nullptr; queue.Pop(&task, 0);)
    {
        const std::unique_ptr<TaskBase> owned(task);
        if (task != nullptr)
        {
            const std::size_t index = static_cast<CountedTask*>(task)->Index();
            std::size_t& expected = next[index / kTasksOfAProducer];
            EXPECT_GE(index, expected);
            expected = index + 1;
            ++round.fates[index].taken;
        }
    }
}

void ExpectEveryTaskRunOrQueuedOnce(const Round& round)
{
    for (const Fate& fate : round.fates)
    {
        ASSERT_EQ(fate.deletions, 1);
        ASSERT_EQ(fate.runs + fate.taken, 1);
    }
}

void Join(std::vector<std::thread>& threads)
{
    for (std::thread& thread : threads)
    {
        thread.join();
    }
}

/// Runs `round` with other numbers again and again, for a second and a half.
template <typename Function>
void Repeat(Function round)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(1500);
    std::mt19937 random(20'26);
    do
    {
        round(random);
    } while (std::chrono::steady_clock::now() < end && !testing::Test::HasFatalFailure());
}

void SpinFor(std::chrono::microseconds time)
{
    const auto end = std::chrono::steady_clock::now() + time;
    while (std::chrono::steady_clock::now() < end)
    {
        SwitchToThread();
    }
}

} // namespace

TEST(ThreadPoolStressTest, EveryTaskIsRunAndDeletedOnceWhenNobodyShutsDown)
{
    Repeat([](std::mt19937& random) {
        Round round(kProducers * kTasksOfAProducer);
        ThreadPool pool(1 + random() % 4, "pool");
        std::vector<std::thread> producers = StartProducers(pool, round);
        Join(producers);
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        for (const Fate& fate : round.fates)
        {
            while (fate.deletions == 0 && std::chrono::steady_clock::now() < end)
            {
                SwitchToThread();
            }
        }
        pool.Shutdown();

        ExpectEveryTaskRunOrQueuedOnce(round);
        EXPECT_TRUE(FieldsOf(*FieldsOf(pool).queue).tasks->empty());
        CloseHandle(FieldsOf(*FieldsOf(pool).queue).semaphore);
    });
}

TEST(ThreadPoolStressTest, EveryTaskIsRunOnceOrStillQueuedAfterShutdownsAtAnyMoment)
{
    Repeat([](std::mt19937& random) {
        Round round(kProducers * kTasksOfAProducer);
        const unsigned int workers = random() % 5;
        const std::chrono::microseconds moments[] = {std::chrono::microseconds(random() % 20'000),
                                                     std::chrono::microseconds(random() % 20'000)};
        ThreadPool pool(workers, "pool");
        std::vector<std::thread> threads = StartProducers(pool, round);
        for (const std::chrono::microseconds moment : moments)
        {
            threads.emplace_back([&pool, moment] {
                SpinFor(moment);
                pool.Shutdown();
                EXPECT_TRUE(FieldsOf(pool).workers.empty());
            });
        }
        Join(threads);
        TakeLeftTasks(*FieldsOf(pool).queue, round);

        ExpectEveryTaskRunOrQueuedOnce(round);
        EXPECT_LE(round.lateRuns, workers);
        EXPECT_TRUE(FieldsOf(*FieldsOf(pool).queue).tasks->empty());
        CloseHandle(FieldsOf(*FieldsOf(pool).queue).semaphore);
    });
}

TEST(ThreadPoolStressTest, TasksOfAProducerRunInTheirOrderOnOneWorker)
{
    std::vector<unsigned int> next(kProducers, 0);
    class OrderedTask : public TaskBase
    {
    public:
        OrderedTask(std::vector<unsigned int>& next, unsigned int producer, unsigned int index)
            : m_next(next), m_producer(producer), m_index(index)
        {
        }
        void Run() override
        {
            EXPECT_EQ(m_next[m_producer]++, m_index);
        }

    private:
        std::vector<unsigned int>& m_next;
        const unsigned int m_producer;
        const unsigned int m_index;
    };
    ThreadPool pool(1, "pool");
    std::vector<std::thread> producers;
    for (unsigned int producer = 0; producer < kProducers; ++producer)
    {
        producers.emplace_back([&pool, &next, producer] {
            for (unsigned int i = 0; i < kTasksOfAProducer; ++i)
            {
                pool.Submit(new OrderedTask(next, producer, i));
            }
        });
    }
    Join(producers);
    while (!FieldsOf(*FieldsOf(pool).queue).tasks->empty())
    {
        Sleep(1);
    }
    pool.Shutdown();

    EXPECT_EQ(next, std::vector<unsigned int>(kProducers, kTasksOfAProducer));
}

TEST(ThreadPoolStressTest, ManyConsumersOfAQueueShareTheTasksBetweenThem)
{
    Repeat([](std::mt19937& random) {
        constexpr unsigned int kTasks = 400;
        Round round(kTasks);
        TaskQueue queue;
        const unsigned int consumers = 1 + random() % 4;
        std::vector<std::thread> threads;
        for (unsigned int i = 0; i < consumers; ++i)
        {
            threads.emplace_back([&queue, &round] {
                // Null is the end: whoever meets it passes it on.
                for (TaskBase* task = nullptr; queue.Pop(&task, 10'000) && task != nullptr;)
                {
                    const std::unique_ptr<TaskBase> owned(task);
                    ++round.fates[static_cast<CountedTask*>(task)->Index()].taken;
                }
                queue.Signal();
            });
        }
        for (unsigned int i = 0; i < kTasks; ++i)
        {
            queue.Push(new CountedTask(round, i));
        }
        queue.Signal();
        Join(threads);

        ExpectEveryTaskRunOrQueuedOnce(round);
        CloseHandle(FieldsOf(queue).semaphore);
    });
}
