#include <UtilsLib/threading/LambdaThreadPoolTask.h>

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <stdexcept>
#include <type_traits>
#include <utility>

using UtilsLib::LambdaThreadPoolTask;
using UtilsLib::TaskBase;

static_assert(std::is_base_of_v<TaskBase, LambdaThreadPoolTask>);
static_assert(std::is_abstract_v<TaskBase> && std::has_virtual_destructor_v<TaskBase>);

namespace
{

std::function<void()> Counting(int& calls)
{
    return [&calls] { ++calls; };
}

} // namespace

TEST(LambdaThreadPoolTaskTest, RunCallsTheWorkEachTime)
{
    int calls = 0;
    LambdaThreadPoolTask task(Counting(calls));
    EXPECT_EQ(calls, 0);

    task.Run();
    static_cast<TaskBase&>(task).Run();

    EXPECT_EQ(calls, 2);
}

TEST(LambdaThreadPoolTaskTest, RunWithoutWorkDoesNothing)
{
    LambdaThreadPoolTask task(nullptr);

    EXPECT_NO_THROW(task.Run());
}

TEST(LambdaThreadPoolTaskTest, RunLetsTheExceptionOfTheWorkOut)
{
    LambdaThreadPoolTask task([] { throw std::runtime_error("lost"); });

    EXPECT_THROW(task.Run(), std::runtime_error);
}

TEST(LambdaThreadPoolTaskTest, CopiesHaveTheWorkOfTheOriginal)
{
    int calls = 0;
    LambdaThreadPoolTask original(Counting(calls));
    LambdaThreadPoolTask copy(original);
    LambdaThreadPoolTask assigned(nullptr);
    assigned = original;

    original.Run();
    copy.Run();
    assigned.Run();

    EXPECT_EQ(calls, 3);
}

TEST(LambdaThreadPoolTaskTest, MovingTakesTheWorkAway)
{
    int calls = 0;
    LambdaThreadPoolTask original(Counting(calls));
    LambdaThreadPoolTask moved(std::move(original));
    original.Run(); // has none left
    EXPECT_EQ(calls, 0);
    LambdaThreadPoolTask assigned(nullptr);
    assigned = std::move(moved);
    moved.Run();
    EXPECT_EQ(calls, 0);

    assigned.Run();

    EXPECT_EQ(calls, 1);
}

TEST(LambdaThreadPoolTaskTest, AssigningATaskToItselfKeepsItsWork)
{
    int calls = 0;
    LambdaThreadPoolTask task(Counting(calls));
    LambdaThreadPoolTask& same = task;
    task = same;
    task = std::move(same);

    task.Run();

    EXPECT_EQ(calls, 1);
}

TEST(LambdaThreadPoolTaskTest, AssignmentAndDestructionEndTheWorkThatWasHeld)
{
    const auto first = std::make_shared<int>();
    const auto second = std::make_shared<int>();
    {
        LambdaThreadPoolTask task([first] {});
        task = LambdaThreadPoolTask([second] {});
        EXPECT_EQ(first.use_count(), 1);
        EXPECT_EQ(second.use_count(), 2);
    }

    EXPECT_EQ(second.use_count(), 1);
}
