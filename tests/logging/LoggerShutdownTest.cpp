#include <tests/logging/LoggerFixture.h>

#include <tests/support/Gate.h>
#include <tests/support/ImportPatch.h>
#include <tests/support/OpenHandles.h>

#include <gmock/gmock.h>

#include <atomic>
#include <map>
#include <thread>

using LoggerTests::LoggerFixture;
using LoggerTests::OwnLogger;
using testing::ElementsAre;
using TestSupport::Eventually;
using TestSupport::ImportPatch;
using UtilsLib::ILogger;
using UtilsLib::LogCategory;
using UtilsLib::LogTraceLevel;

namespace
{

class LoggerShutdownTest : public LoggerFixture
{
protected:
    static void LogText(OwnLogger& logger, const std::string& text)
    {
        logger.LogText(text, 1, 1);
    }
    /// Writes what is queued.
    void WriteAll(OwnLogger& logger) const
    {
        logger.SetPath(m_path);
        logger.Start();
        logger.Shutdown();
    }
};

int g_allocations = 0;

void* CountAllocation(std::size_t size)
{
    ++g_allocations;
    return ::operator new(size);
}

int g_locks = 0;

void WINAPI CountLock(CRITICAL_SECTION* section)
{
    ++g_locks;
    EnterCriticalSection(section);
}

} // namespace

TEST_F(LoggerShutdownTest, ShutdownWithoutAThreadReturnsAndKeepsTheQueue)
{
    OwnLogger logger;
    logger.SetPath(m_path);
    LogText(logger, "kept");
    logger.Shutdown();
    EXPECT_FALSE(m_folder.Exists("app.log"));
    LogText(logger, "refused");

    logger.Start();
    logger.Shutdown();

    EXPECT_THAT(Messages(), ElementsAre("kept"));
}

// The thread is told to stop before its loop begins, and never runs it again: what is queued is written all the same.
TEST_F(LoggerShutdownTest, ShutdownRightAfterStartLosesNothing)
{
    OwnLogger logger;
    logger.SetPath(m_path);
    for (int i = 0; i < 20; ++i)
    {
        logger.SetRegistryKey("hx41svc_logging"); // on again
        LogText(logger, std::to_string(i));
        logger.Start();
        logger.Shutdown();
    }

    ASSERT_EQ(Messages().size(), 20u);
    EXPECT_EQ(Messages()[19], "19");
}

TEST_F(LoggerShutdownTest, ShutdownWritesALongQueueWhole)
{
    OwnLogger logger;
    logger.SetPath(m_path);
    logger.Start();
    for (int i = 0; i < 50'000; ++i)
    {
        LogText(logger, std::to_string(i));
    }
    logger.Shutdown();

    const std::vector<std::string> messages = Messages();
    ASSERT_EQ(messages.size(), 50'000u);
    for (int i = 0; i < 50'000; ++i)
    {
        ASSERT_EQ(messages[i], std::to_string(i));
    }
}

TEST_F(LoggerShutdownTest, ShutdownEndsWhileOtherThreadsGoOnLogging)
{
    OwnLogger logger;
    logger.SetPath(m_path);
    logger.Start();
    std::atomic<bool> stop = false;
    std::vector<std::thread> callers;
    for (int thread = 0; thread < 4; ++thread)
    {
        callers.emplace_back([&logger, &stop, thread] {
            for (int i = 0; !stop; ++i)
            {
                LogText(logger, std::to_string(thread) + " " + std::to_string(i));
            }
        });
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(200));

    const unsigned long long start = GetTickCount64();
    logger.Shutdown();

    EXPECT_LT(GetTickCount64() - start, 10'000u);
    stop = true;
    for (std::thread& caller : callers)
    {
        caller.join();
    }
    // Lines may have been refused from the shutdown on; those that were not are there, in the order of their thread.
    std::map<int, int> last;
    for (const std::string& message : Messages())
    {
        std::istringstream fields(message);
        int thread = 0;
        int number = 0;
        fields >> thread >> number;
        const auto [place, isFirst] = last.try_emplace(thread, number);
        ASSERT_TRUE(isFirst ? number == 0 : number > place->second) << message;
        place->second = number;
    }
    EXPECT_EQ(last.size(), 4u);
}

TEST_F(LoggerShutdownTest, SetPathAndSetRegistryKeyMayRaceTheThread)
{
    OwnLogger logger;
    logger.SetPath(m_path);
    logger.Start();
    for (int i = 0; i < 2000; ++i)
    {
        logger.SetPath(m_path);
        logger.SetRegistryKey("hx41svc_logging");
        LogText(logger, "x");
    }
    logger.Shutdown();

    EXPECT_EQ(Messages().size(), 2000u);
}

TEST_F(LoggerShutdownTest, AFilteredCallTakesNoLockAndAllocatesNothing)
{
    OwnLogger logger;
    ILogger& log = logger;
    log.Log(LogCategory::General, LogTraceLevel::Error, "%s", "what a first call makes is made");
    const ImportPatch allocations("libstdc++-6.dll", "_Znwj", &CountAllocation);
    const ImportPatch locks("KERNEL32.dll", "EnterCriticalSection", &CountLock);
    g_allocations = 0;
    g_locks = 0;
    log.Log(LogCategory::FileIO, LogTraceLevel::Error, "%s %d", "refused", 1);
    log.Log(LogCategory::General, LogTraceLevel::Debug, "%s %d", "refused", 1);
    EXPECT_EQ(g_allocations, 0);
    EXPECT_EQ(g_locks, 0);

    log.Log(LogCategory::General, LogTraceLevel::Error, "%s %d", "taken", 1);
    EXPECT_LE(g_allocations, 2); // the line, and now and then room in the queue
    EXPECT_EQ(g_locks, 1);
}

TEST_F(LoggerShutdownTest, NoThreadNorHandleIsLeftAfterTheDestructor)
{
    {
        OwnLogger warmUp;
        WriteAll(warmUp);
    }
    const unsigned long handles = TestSupport::OpenHandles();
    const unsigned long threads = TestSupport::RunningThreads();
    for (int i = 0; i < 5; ++i)
    {
        OwnLogger logger;
        LogText(logger, "1");
        logger.SetPath(m_path);
        logger.Start();
    }

    EXPECT_EQ(TestSupport::OpenHandles(), handles);
    EXPECT_TRUE(Eventually([&] { return TestSupport::RunningThreads() <= threads; }));
    EXPECT_EQ(Messages().size(), 5u);
}
