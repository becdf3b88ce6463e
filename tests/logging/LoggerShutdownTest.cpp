#include <tests/logging/LoggerFixture.h>

#include <tests/support/Gate.h>
#include <tests/support/ImportPatch.h>
#include <tests/support/OpenHandles.h>

#include <gmock/gmock.h>

#include <atomic>
#include <map>
#include <thread>

using LoggerTests::CycleControl;
using LoggerTests::LoggerFixture;
using LoggerTests::OwnLogger;
using LoggerTests::RecordingObserver;
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

/// Counts what it has logged; logs on until its end.
class Flooder
{
public:
    Flooder(OwnLogger& logger, int number) : m_thread([this, &logger, number] { Run(logger, number); })
    {
    }
    int Logged() const
    {
        return m_logged;
    }
    void Stop()
    {
        m_stop = true;
    }

private:
    void Run(OwnLogger& logger, int number)
    {
        while (!m_stop)
        {
            logger.LogText(std::to_string(number) + " " + std::to_string(m_logged));
            ++m_logged;
        }
    }

    std::atomic<int> m_logged = 0;
    std::atomic<bool> m_stop = false;
    std::jthread m_thread;
};

/// Takes its time, as the one of the gRPC log does with the registry.
class SlowObserver : public RecordingObserver
{
public:
    void SettingsChanged(bool enabled, unsigned long traceLevel,
                         const std::map<std::string, unsigned long>& settings) override
    {
        RecordingObserver::SettingsChanged(enabled, traceLevel, settings);
        Sleep(5);
    }
};

/// Shuts the logger down out of the logger's own thread.
class StoppingObserver : public RecordingObserver
{
public:
    void SettingsChanged(bool enabled, unsigned long traceLevel,
                         const std::map<std::string, unsigned long>& settings) override
    {
        RecordingObserver::SettingsChanged(enabled, traceLevel, settings);
        if (m_logger != nullptr && GetCurrentThreadId() == m_logger->GetThreadId())
        {
            m_logger->Shutdown();
        }
    }

    OwnLogger* m_logger = nullptr;
};

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

TEST_F(LoggerShutdownTest, ShutdownRightAfterTheStartOfManyLoggersLosesNothing)
{
    // The thread meets the stop request before its loop, in it or in its sleep.
    for (int i = 0; i < 50; ++i)
    {
        const std::string file = std::to_string(i) + ".log";
        OwnLogger logger;
        logger.SetPath(m_folder / file);
        logger.LogText("queued");

        logger.Start();
        logger.Shutdown();

        ASSERT_THAT(Messages(file), ElementsAre("queued")) << i;
    }
}

TEST_F(LoggerShutdownTest, ShutdownSwitchesLoggingOff)
{
    OwnLogger logger;
    logger.SetPath(m_path);
    logger.LogText("1");
    logger.Start();
    logger.Shutdown();

    logger.LogText("refused");
    logger.Shutdown();
    logger.Start();
    logger.Shutdown();

    EXPECT_THAT(Messages(), ElementsAre("1"));
}

TEST_F(LoggerShutdownTest, ThreadOfAFurtherStartWritesNothingButShutdownDoes)
{
    OwnLogger logger;
    logger.SetPath(m_path);
    logger.Start();
    logger.Shutdown();

    logger.SetRegistryKey("hx41svc_logging");
    logger.LogText("late");
    logger.Start();
    logger.Shutdown();

    EXPECT_THAT(Messages(), ElementsAre("late"));
}

TEST_F(LoggerShutdownTest, DestructorShutsDown)
{
    {
        OwnLogger logger;
        logger.SetPath(m_path);
        logger.Start();
        logger.LogText("1");
    }
    EXPECT_THAT(Messages(), ElementsAre("1"));
}

TEST_F(LoggerShutdownTest, DestructorOfALoggerThatWasNeverStartedDropsItsLines)
{
    {
        OwnLogger logger;
        logger.SetPath(m_path);
        logger.LogText("dropped");
    }
    EXPECT_FALSE(m_folder.Exists("app.log"));
}

TEST_F(LoggerShutdownTest, LastSettingsCheckMayAcceptLinesAndTheyAreWritten)
{
    OwnLogger* loggerOfObserver = nullptr;
    class LoggingObserver : public RecordingObserver
    {
    public:
        explicit LoggingObserver(OwnLogger*& logger) : m_logger(logger)
        {
        }
        void SettingsChanged(bool enabled, unsigned long, const std::map<std::string, unsigned long>&) override
        {
            if (m_logger != nullptr)
            {
                m_logger->LogText(enabled ? "while on" : "while off");
            }
        }
        OwnLogger*& m_logger;
    };
    OwnLogger logger({std::make_shared<LoggingObserver>(loggerOfObserver)});
    logger.SetPath(m_path);
    CycleControl cycles;
    cycles.Start(logger);
    logger.LogText("queued");
    loggerOfObserver = &logger;

    cycles.Finish(logger);

    const std::vector<std::string> messages = Messages();
    ASSERT_GE(messages.size(), 2u);
    EXPECT_EQ(messages[0], "queued");
    EXPECT_EQ(messages[1], "while on");
}

TEST_F(LoggerShutdownTest, ShutdownIsHeldUpByOneSettingsCheckOnlyWhileOthersGoOnLogging)
{
    const auto observer = std::make_shared<SlowObserver>();
    OwnLogger logger({observer});
    logger.SetPath(m_path);
    logger.Start();
    std::vector<std::unique_ptr<Flooder>> flooders;
    for (int i = 0; i < 4; ++i)
    {
        flooders.push_back(std::make_unique<Flooder>(logger, i));
    }
    EXPECT_TRUE(TestSupport::Eventually([&] {
        return flooders[0]->Logged() > 100 && flooders[1]->Logged() > 100 && flooders[2]->Logged() > 100 &&
               flooders[3]->Logged() > 100;
    }));
    std::vector<int> before;
    for (const auto& flooder : flooders)
    {
        before.push_back(flooder->Logged());
    }
    const std::size_t checksBefore = observer->Calls().size();

    TestSupport::Gate ended;
    std::jthread shutdown([&] {
        logger.Shutdown();
        ended.Open();
    });
    const bool inTime = ended.Wait(std::chrono::seconds(10));
    const std::size_t checks = observer->Calls().size() - checksBefore;
    for (const auto& flooder : flooders)
    {
        flooder->Stop();
    }
    flooders.clear();
    shutdown.join();

    EXPECT_TRUE(inTime);
    EXPECT_LE(checks, 4u) << "settings checks that may have accepted lines";
    std::map<int, int> last;
    for (const std::string& message : Messages())
    {
        int thread = -1;
        int number = -1;
        ASSERT_EQ(std::sscanf(message.c_str(), "%d %d", &thread, &number), 2) << message;
        if (last.contains(thread))
        {
            ASSERT_LT(last[thread], number) << "of thread " << thread;
        }
        if (number < before[static_cast<std::size_t>(thread)])
        {
            ASSERT_EQ(number, last.contains(thread) ? last[thread] + 1 : 0) << "of thread " << thread;
        }
        last[thread] = number;
    }
    for (int thread = 0; thread < 4; ++thread)
    {
        EXPECT_GE(last[thread], before[static_cast<std::size_t>(thread)] - 1) << "of thread " << thread;
    }
}

TEST_F(LoggerShutdownTest, ObserverMayShutTheLoggerDownOnItsThread)
{
    // Told by a settings check, and by a file that cannot be opened.
    for (const char* const file : {"app.log", "missing\\app.log"})
    {
        const auto observer = std::make_shared<StoppingObserver>();
        OwnLogger logger({observer});
        logger.SetPath(m_folder / file);
        logger.LogText("1");
        logger.LogText("2");
        observer->m_logger = &logger;

        logger.Start();
        EXPECT_TRUE(TestSupport::Eventually([&] { return observer->Calls().size() > 1; }));
        logger.Shutdown();
    }
    EXPECT_THAT(Messages(), ElementsAre("1", "2"));
}
