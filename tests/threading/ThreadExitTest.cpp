#include <tests/child/StaticThread.h>
#include <tests/support/ExpectExit.h>

#include <gtest/gtest.h>

#include <chrono>
#include <string>

namespace
{

constexpr std::chrono::seconds kLimit(30);

void ExpectExit(const std::string& way, unsigned long code)
{
    TestSupport::ExpectExit("child_thread_exit", way, code, kLimit);
}

void ExpectUnloads(StaticThreadWork work, int rounds, bool atOnce)
{
    const std::string arguments =
        std::to_string(work) + " " + std::to_string(rounds) + " " + std::to_string(atOnce ? 1 : 0);
    TestSupport::ExpectExit("child_thread_unload", arguments, 0, std::chrono::seconds(55));
}

} // namespace

TEST(ThreadExitTest, HostThatReturnsFromMainWithRunningStaticThreadsKeepsItsExitCode)
{
    ExpectExit("host", 7);
}

TEST(ThreadExitTest, HostThatReturnsFromMainWhileAThreadOfALibraryRunsKeepsItsExitCode)
{
    ExpectExit("library", 8);
    ExpectExit("library-at-once", 8);
}

TEST(ThreadExitTest, ThreadMayEndTheProcessThatDestroysIt)
{
    ExpectExit("thread-exits", 9);
    ExpectExit("library-thread-exits", 10);
}

TEST(ThreadExitTest, LibraryIsUnloadedWhileItsThreadSleeps)
{
    ExpectUnloads(SleepUntilStopped, 10, false);
}

TEST(ThreadExitTest, LibraryIsUnloadedWhileItsThreadRunsOverAndOver)
{
    ExpectUnloads(SpinUntilStopped, 100, false);
}

TEST(ThreadExitTest, LibraryIsUnloadedRightAfterStartOverAndOver)
{
    ExpectUnloads(SpinUntilStopped, 100, true);
}

TEST(ThreadExitTest, LibraryIsUnloadedWhileItsThreadEndsOverAndOver)
{
    ExpectUnloads(EndAtOnce, 100, true);
}

TEST(ThreadExitTest, LibraryIsUnloadedAfterItsThreadFailed)
{
    ExpectUnloads(Throw, 20, true);
}

#if defined(__GNUC__)
TEST(ThreadExitTest, LibraryIsUnloadedWhileTheThreadsOfItsSingletonsRun)
{
    for (const char* arguments : {"3 0", "10 1"})
    {
        TestSupport::ExpectExit("child_library_unload", arguments, 0, kLimit);
    }
}
#endif
