#include <tests/support/ChildProcess.h>
#include <tests/support/TempFolder.h>

#include <gtest/gtest.h>

#include <map>
#include <sstream>
#include <string>
#include <vector>

using TestSupport::ChildResult;
using TestSupport::RunChild;
using TestSupport::TempFolder;

namespace
{

constexpr std::chrono::seconds kLimit(30);

/// Runs a host that logs numbered lines and ends; what it leaves must be the first `atLeast` lines of every thread, or
/// more, each once and in order. The child writes the numbers of the lines that it knows to be accepted.
class LoggerExitTest : public testing::Test
{
protected:
    void ExpectAllLines(const std::string& program, const std::string& arguments, unsigned long exitCode)
    {
        const ChildResult result = RunChild(program, arguments + " \"" + m_folder.Path() + "\"", kLimit);
        ASSERT_TRUE(result.ended) << "hangs: " << arguments;
        ASSERT_EQ(result.exitCode, exitCode) << arguments;
        ExpectAllLines(arguments);
    }
    void ExpectAllLines(const std::string& which)
    {
        std::map<int, int> next;
        std::istringstream lines(m_folder.Read("app.log"));
        for (std::string line; std::getline(lines, line);)
        {
            ASSERT_FALSE(line.empty()) << which;
            ASSERT_EQ(line.back(), '\r') << which << ": " << line;
            int thread = -1;
            int number = -1;
            const std::size_t message = line.find("), ");
            ASSERT_NE(message, std::string::npos) << which << ": " << line;
            ASSERT_EQ(std::sscanf(line.c_str() + message + 3, "%d %d", &thread, &number), 2) << which << ": " << line;
            ASSERT_EQ(next[thread]++, number) << which << ", thread " << thread;
        }
        std::istringstream accepted(m_folder.Read("accepted"));
        int threads = 0;
        for (int count = 0; accepted >> count; ++threads)
        {
            EXPECT_GE(next[threads], count) << which << ", thread " << threads;
        }
        EXPECT_GT(threads, 0) << which;
    }

    TempFolder m_folder;
};

} // namespace

TEST_F(LoggerExitTest, HostThatReturnsFromMainWithoutShutdownEndsWithAllLinesWritten)
{
    ExpectAllLines("child_logger_exit", "return", 7);
}

TEST_F(LoggerExitTest, HostThatCallsExitEndsWithAllLinesWritten)
{
    ExpectAllLines("child_logger_exit", "exit", 8);
}

TEST_F(LoggerExitTest, HostThatCallsExitProcessEndsWithAllLinesWritten)
{
    ExpectAllLines("child_logger_exit", "exit-process", 9);
}

TEST_F(LoggerExitTest, HostThatEndsRightAfterTheStartLosesNothing)
{
    ExpectAllLines("child_logger_exit", "at-once", 7);
}

TEST_F(LoggerExitTest, HostThatEndsWhileTheFileIsBeingOpenedLosesNothing)
{
    ExpectAllLines("child_logger_exit", "in-open", 7);
}

TEST_F(LoggerExitTest, HostThatEndsOnTheLoggersThreadLosesNothing)
{
    ExpectAllLines("child_logger_exit", "on-thread", 10);
}

TEST_F(LoggerExitTest, HostWhoseThreadsLogAtItsEndLosesAndDoublesNothing)
{
    // Wine, unlike Windows, ends threads inside the heap too. One process in some fifty then loops for ever where some
    // library frees memory at its end, with this one or without, maybe before this library has its turn. The log of
    // such a process proves nothing.
    int hung = 0;
    for (int i = 0; i < 12; ++i)
    {
        const std::string arguments = "flood " + std::to_string(20 + i * 35);
        const ChildResult result =
            RunChild("child_logger_exit", arguments + " \"" + m_folder.Path() + "\"", std::chrono::seconds(8));
        if (result.ended)
        {
            EXPECT_EQ(result.exitCode, 7u) << arguments;
            ExpectAllLines(arguments);
        }
        hung += result.ended ? 0 : 1;
        DeleteFileA((m_folder / "app.log").c_str());
        DeleteFileA((m_folder / "accepted").c_str());
    }
    EXPECT_LE(hung, 4);
}

TEST_F(LoggerExitTest, HostThatEndsInTheMiddleOfADrainLosesAndDoublesNothing)
{
    for (int i = 0; i < 25; ++i)
    {
        ExpectAllLines("child_logger_exit", "drain " + std::to_string(i * 4), 7);
        ASSERT_TRUE(DeleteFileA((m_folder / "app.log").c_str()));
    }
}

TEST_F(LoggerExitTest, HostThatNeverStartedTheThreadLeavesNoFile)
{
    const ChildResult result = RunChild("child_logger_exit", "never-started \"" + m_folder.Path() + "\"", kLimit);

    EXPECT_EQ(result.exitCode, 7u);
    EXPECT_FALSE(m_folder.Exists("app.log"));
}

TEST_F(LoggerExitTest, LibraryIsUnloadedWithAllLinesWritten)
{
    ExpectAllLines("child_logger_unload", "unload", 0);
}

TEST_F(LoggerExitTest, RecordOfTheDataServicesAfterTheLoggerIsGoneDoesNoHarm)
{
    ExpectAllLines("child_logger_unload", "late-record", 7);
}
