#include <UtilsLib/threading/ThreadPool.h>

#include <UtilsLib/threading/LambdaThreadPoolTask.h>
#include <tests/support/Gate.h>

#include <gtest/gtest.h>

#include <string>

using TestSupport::Gate;
using UtilsLib::LambdaThreadPoolTask;
using UtilsLib::ThreadPool;

TEST(ThreadPoolTest, OneWorkerRunsTasksInTheOrderOfTheirSubmission)
{
    std::string order;
    Gate done;
    ThreadPool pool(1, "pool");

    for (const char task : {'a', 'b', 'c'})
    {
        pool.Submit(new LambdaThreadPoolTask([&order, task] { order += task; }));
    }
    pool.Submit(new LambdaThreadPoolTask([&done] { done.Open(); }));

    ASSERT_TRUE(done.Wait());
    EXPECT_EQ(order, "abc");
}
