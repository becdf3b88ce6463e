#include <tests/logging/LoggerFixture.h>

#include <gmock/gmock.h>

#include <atomic>
#include <stdexcept>
#include <thread>

using LoggerTests::CycleControl;
using LoggerTests::LoggerFixture;
using LoggerTests::OwnLogger;
using LoggerTests::RecordingObserver;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

namespace
{

using Switches = std::map<std::string, unsigned long>;

class LoggerSettingsTest : public LoggerFixture
{
protected:
    /// The logger's mask, as `CheckEnabled` shows it.
    static unsigned int CategoryMask(OwnLogger& logger)
    {
        unsigned int mask = 0;
        for (int bit = 0; bit < 32; ++bit)
        {
            mask |= logger.IsEnabled(static_cast<int>(1u << bit), -1) ? 1u << bit : 0;
        }
        return mask;
    }
    static unsigned int LevelMask(OwnLogger& logger)
    {
        unsigned int mask = 0;
        for (int bit = 0; bit < 32; ++bit)
        {
            mask |= logger.IsEnabled(-1, static_cast<int>(1u << bit)) ? 1u << bit : 0;
        }
        return mask;
    }
};

/// Throws after it was told.
class ThrowingObserver : public RecordingObserver
{
public:
    explicit ThrowingObserver(bool throwsInt) : m_throwsInt(throwsInt)
    {
    }
    void SettingsChanged(bool enabled, unsigned long traceLevel,
                         const std::map<std::string, unsigned long>& settings) override
    {
        RecordingObserver::SettingsChanged(enabled, traceLevel, settings);
        if (m_throwsInt)
        {
            throw 1;
        }
        throw std::runtime_error("observer");
    }

private:
    bool m_throwsInt;
};

/// Notes its name in a list that several share.
class NamedObserver : public UtilsLib::ILoggerSettingsObserver
{
public:
    NamedObserver(const char* name, std::vector<std::string>& calls) : m_name(name), m_calls(calls)
    {
    }
    void SettingsChanged(bool, unsigned long, const std::map<std::string, unsigned long>&) override
    {
        m_calls.push_back(m_name + " changed");
    }
    std::vector<std::string> AdditionalSettingsToCheck() override
    {
        m_calls.push_back(m_name + " asked");
        return {};
    }

private:
    const std::string m_name;
    std::vector<std::string>& m_calls;
};

/// Sees whether two threads call it at once.
class ExclusiveObserver : public RecordingObserver
{
public:
    void SettingsChanged(bool, unsigned long, const std::map<std::string, unsigned long>&) override
    {
        m_overlapped = m_overlapped || ++m_inside > 1;
        SwitchToThread();
        --m_inside;
    }
    std::atomic<bool> m_overlapped = false;

private:
    std::atomic<int> m_inside = 0;
};

} // namespace

TEST_F(LoggerSettingsTest, ValuesMakeTheMasks)
{
    struct Case
    {
        Switches switches;
        unsigned int levels;
        unsigned int categories;
    };
    const std::vector<Case> cases = {
        {{}, 7, 95},
        {{{"hx41svc_logging_verbose", 1}}, 15, 95},
        {{{"hx41svc_logging_verbose", 0x80000000}}, 15, 95},
        {{{"hx41svc_logging_verbose", 0}}, 7, 95},
        {{{"hx41svc_logging_fileio", 2}}, 7, 127},
        {{{"hx41svc_logging_fileio", 0}}, 7, 95},
        {{{"hx41svc_logging_trace", 3}}, 3, 95},
        {{{"hx41svc_logging_trace", 3}, {"hx41svc_logging_verbose", 1}}, 3, 95},
        {{{"hx41svc_logging_trace", 0}, {"hx41svc_logging_verbose", 1}}, 0, 95},
        {{{"hx41svc_logging_trace", 0xFFFFFFFF}}, 0xFFFFFFFF, 95},
        {{{"hx41svc_logging_category", 4}}, 7, 4},
        {{{"hx41svc_logging_category", 4}, {"hx41svc_logging_fileio", 1}}, 7, 4},
        {{{"hx41svc_logging_category", 0}}, 7, 0},
        {{{"hx41svc_logging_category", 0xFFFFFFFF}, {"hx41svc_logging_trace", 8}}, 8, 0xFFFFFFFF},
    };
    for (const Case& row : cases)
    {
        for (const auto& [name, value] : row.switches)
        {
            SetSwitch(name, value);
        }
        const auto observer = std::make_shared<RecordingObserver>();
        OwnLogger logger({observer});

        const std::string which = testing::PrintToString(row.switches);
        if (row.categories != 0)
        {
            EXPECT_EQ(LevelMask(logger), row.levels) << which;
        }
        if (row.levels != 0)
        {
            EXPECT_EQ(CategoryMask(logger), row.categories) << which;
        }
        EXPECT_EQ(observer->Calls().back().traceLevel, row.levels) << which;
        for (const auto& [name, value] : row.switches)
        {
            DeleteSwitch(name);
        }
    }
}

TEST_F(LoggerSettingsTest, MasterSwitchIsOnWhenGreaterThanZero)
{
    const auto observer = std::make_shared<RecordingObserver>();
    for (const unsigned long value : {0ul, 1ul, 2ul, 0x80000000ul, 0xFFFFFFFFul})
    {
        SetSwitch("hx41svc_logging", value);
        OwnLogger logger({observer});
        EXPECT_EQ(observer->Calls().back().enabled, value > 0) << value;
    }
    DeleteSwitch("hx41svc_logging");
    OwnLogger logger({observer});
    EXPECT_FALSE(observer->Calls().back().enabled);
}

TEST_F(LoggerSettingsTest, RegistryKeyNamesTheMasterSwitchAndIsLookedAtAtOnce)
{
    SetSwitch("ClientLogging", 0);
    SetSwitch("not_watched", 1);
    OwnLogger logger;
    logger.SetPath(m_path);

    logger.SetRegistryKey("ClientLogging");
    logger.LogText("off");
    SetSwitch("ClientLogging", 1);
    logger.SetRegistryKey("ClientLogging");
    logger.LogText("on");
    logger.SetRegistryKey("not_watched");
    logger.LogText("not watched");
    logger.SetRegistryKey("");
    logger.LogText("no name");
    logger.Start();
    logger.Shutdown();

    EXPECT_THAT(Messages(), ElementsAre("on"));
}

TEST_F(LoggerSettingsTest, NewLoggerReadsTheRegistryAnew)
{
    OwnLogger first;
    m_machine.SetDword("hx41svc_logging_verbose", 1);
    EXPECT_EQ(LevelMask(first), 7u);

    OwnLogger second;
    EXPECT_EQ(LevelMask(second), 15u);
}

TEST_F(LoggerSettingsTest, RunningLoggerFollowsTheValues)
{
    OwnLogger logger;
    logger.SetPath(m_path);
    CycleControl cycles;
    cycles.Start(logger);

    SetSwitch("hx41svc_logging_verbose", 1);
    SetSwitch("hx41svc_logging_fileio", 1);
    EXPECT_FALSE(logger.IsEnabled(32, 8));
    cycles.RunCycle();
    EXPECT_TRUE(logger.IsEnabled(32, 8));
    DeleteSwitch("hx41svc_logging_verbose");
    DeleteSwitch("hx41svc_logging_fileio");
    cycles.RunCycle();
    EXPECT_EQ(LevelMask(logger), 7u);
    EXPECT_EQ(CategoryMask(logger), 95u);
    SetSwitch("hx41svc_logging", 0);
    cycles.RunCycle();
    logger.LogText("off");
    SetSwitch("hx41svc_logging", 1);
    cycles.RunCycle();
    logger.LogText("on");
    cycles.Finish(logger);

    EXPECT_THAT(Messages(), ElementsAre("on"));
}

TEST_F(LoggerSettingsTest, MasksNeverFallBackToTheDefaultsDuringACheck)
{
    SetSwitch("hx41svc_logging_trace", 8);
    SetSwitch("hx41svc_logging_category", 256);
    OwnLogger logger;
    logger.SetPath(m_path);
    std::atomic<bool> stop = false;
    std::jthread checker([&] {
        while (!stop)
        {
            logger.SetRegistryKey("hx41svc_logging");
        }
    });

    bool always = true;
    for (int i = 0; i < 300'000; ++i)
    {
        always = always && logger.IsEnabled(256, 8) && !logger.IsEnabled(1, -1) && !logger.IsEnabled(-1, 1);
    }
    stop = true;

    EXPECT_TRUE(always);
}

TEST_F(LoggerSettingsTest, ObserversAreToldInTheOrderOfTheirRegistration)
{
    std::vector<std::string> calls;
    OwnLogger logger({std::make_shared<NamedObserver>("b", calls), std::make_shared<NamedObserver>("a", calls)});

    EXPECT_THAT(calls, ElementsAre("b asked", "b changed", "a asked", "a changed"));
    calls.clear();
    logger.SetRegistryKey("hx41svc_logging");
    EXPECT_THAT(calls, ElementsAre("b asked", "b changed", "a asked", "a changed"));
}

TEST_F(LoggerSettingsTest, ObserversAreToldEveryCycleWithoutAnyChange)
{
    const auto observer = std::make_shared<RecordingObserver>();
    OwnLogger logger({observer});
    EXPECT_EQ(observer->Calls().size(), 1u);
    CycleControl cycles;

    cycles.Start(logger);
    EXPECT_EQ(observer->Calls().size(), 2u);
    cycles.RunCycle();
    EXPECT_EQ(observer->Calls().size(), 3u);

    cycles.Finish(logger);
}

TEST_F(LoggerSettingsTest, ObserverGetsTheSettingsThatItAskedFor)
{
    SetSwitch("hx41svc_local_analytics", 5);
    SetSwitch("hx41svc_logging_grpc", 0xFFFFFFFF);
    SetSwitch("not_watched", 9);
    const auto observer = std::make_shared<RecordingObserver>(
        std::vector<std::string>{"hx41svc_logging_grpc", "hx41svc_local_analytics", "disable_udp", "not_watched",
                                 "hx41svc_local_analytics", ""});
    OwnLogger logger({observer});

    EXPECT_THAT(observer->Calls().back().settings,
                ElementsAre(Pair("", 0u), Pair("disable_udp", 0u), Pair("hx41svc_local_analytics", 5u),
                            Pair("hx41svc_logging_grpc", 0xFFFFFFFFu), Pair("not_watched", 0u)));
    DeleteSwitch("hx41svc_local_analytics");
    logger.SetRegistryKey("hx41svc_logging");
    EXPECT_EQ(observer->Calls().back().settings.at("hx41svc_local_analytics"), 0u);
}

TEST_F(LoggerSettingsTest, ThrowingObserverStopsNeitherTheOthersNorTheLogger)
{
    const auto first = std::make_shared<ThrowingObserver>(false);
    const auto second = std::make_shared<ThrowingObserver>(true);
    const auto third = std::make_shared<RecordingObserver>();
    OwnLogger logger({first, nullptr, second, third});
    logger.SetPath(m_path);
    EXPECT_EQ(third->Calls().size(), 1u);
    logger.SetRegistryKey("hx41svc_logging");
    EXPECT_EQ(third->Calls().size(), 2u);
    CycleControl cycles;
    cycles.Start(logger);
    logger.LogText("1");
    cycles.RunCycle();

    EXPECT_THAT(Messages(), ElementsAre("1"));
    EXPECT_EQ(first->Calls().size(), 4u);
    EXPECT_EQ(second->Calls().size(), 4u);
    EXPECT_EQ(third->Calls().size(), 4u);
    cycles.Finish(logger);
}

TEST_F(LoggerSettingsTest, ObserversAreReleasedWithTheLogger)
{
    const auto observer = std::make_shared<RecordingObserver>();
    {
        OwnLogger logger({observer});
        EXPECT_EQ(observer.use_count(), 2);
    }
    EXPECT_EQ(observer.use_count(), 1);
}

TEST_F(LoggerSettingsTest, SettersMayBeCalledFromManyThreadsWhileTheLoggerRuns)
{
    const auto observer = std::make_shared<ExclusiveObserver>();
    OwnLogger logger({observer});
    logger.SetPath(m_path);
    logger.Start();
    {
        std::vector<std::jthread> threads;
        for (int i = 0; i < 3; ++i)
        {
            threads.emplace_back([&logger, this] {
                for (int k = 0; k < 300; ++k)
                {
                    logger.SetRegistryKey(k % 2 == 0 ? "hx41svc_logging"
                                                     : "hx41svc_logging_but_longer_than_any_buffer");
                    logger.SetPath(m_path);
                }
            });
        }
    }
    logger.SetRegistryKey("hx41svc_logging");
    logger.LogText("logged");
    logger.Shutdown();

    EXPECT_FALSE(observer->m_overlapped);
    EXPECT_THAT(Messages(), ElementsAre("logged"));
}

// A callback of the live settings runs under their lock; the logger must not hold its own while it waits for that one.
TEST_F(LoggerSettingsTest, CallbackOfTheLiveSettingsMayCallTheLoggerDuringACheck)
{
    OwnLogger logger({std::make_shared<RecordingObserver>(std::vector<std::string>{"hx41svc_logging_grpc"})});
    TestSupport::Gate inCallback;
    TestSupport::Gate checking;
    bool called = false;
    UtilsLib::LiveRegSettings::GetInstance().RegisterRegSettingChanged("ClientLogging", [&](const std::string&) {
        inCallback.Open();
        EXPECT_TRUE(checking.Wait());
        Sleep(100); // until the other thread waits for the lock of the settings
        logger.SetRegistryKey("hx41svc_logging");
        called = true;
    });
    std::thread other([&] {
        EXPECT_TRUE(inCallback.Wait());
        checking.Open();
        logger.SetRegistryKey("hx41svc_logging");
    });

    SetSwitch("ClientLogging", 4711);
    other.join();

    EXPECT_TRUE(called);
}
