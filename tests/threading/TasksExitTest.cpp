#include <tests/support/ChildProcess.h>
#include <tests/support/ExpectExit.h>

#include <gtest/gtest.h>

#include <chrono>
#include <string>

using TestSupport::ChildProcess;

namespace
{

void ExpectExit(const std::string& way, unsigned long code)
{
    TestSupport::ExpectExit("child_tasks_exit", way, code);
}

/// The same when what works has to say so before the end.
void ExpectExitAfterTheWork(const std::string& way, unsigned long code)
{
    ChildProcess child("child_tasks_exit", way);

    ASSERT_TRUE(child.WaitForExit()) << way;
    EXPECT_EQ(child.ExitCode(), code) << way;
    EXPECT_TRUE(child.WaitUntilReady(std::chrono::milliseconds(0))) << way;
}

} // namespace

TEST(TasksExitTest, HostThatReturnsFromMainWithARunningStaticPoolTellsTheTaskAndKeepsItsExitCode)
{
    ExpectExitAfterTheWork("pool", 7);
}

TEST(TasksExitTest, HostThatReturnsFromMainWithARunningStaticFutureWaitsForItAndKeepsItsExitCode)
{
    ExpectExitAfterTheWork("future", 8);
}

TEST(TasksExitTest, HostThatReturnsFromMainWhileAPoolOfALibraryRunsKeepsItsExitCode)
{
    ExpectExit("pool-library", 9);
}

TEST(TasksExitTest, HostThatReturnsFromMainWhileAFutureOfALibraryRunsKeepsItsExitCode)
{
    ExpectExit("future-library", 9);
}

TEST(TasksExitTest, TaskMayEndTheProcessThatDestroysItsPool)
{
    ExpectExit("pool-exits", 10);
    ExpectExit("pool-library-exits", 12);
}

TEST(TasksExitTest, WorkMayEndTheProcessThatDestroysItsFuture)
{
    ExpectExit("future-exits", 11);
    ExpectExit("future-library-exits", 12);
}

TEST(TasksExitTest, ExceptionThatLeavesATaskOfAPoolEndsTheProcess)
{
    ExpectExit("pool-throws", 3); // what abort ends with
}
