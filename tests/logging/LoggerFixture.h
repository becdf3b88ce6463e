#pragma once

#include <UtilsLib/logging/Logger.h>
#include <UtilsLib/registry/LiveRegSettings.h>
#include <UtilsLib/time/TimeService.h>

#include <tests/support/Gate.h>
#include <tests/support/ScopedMachineHive.h>
#include <tests/support/TempFolder.h>

#include <gtest/gtest.h>

#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <vector>

namespace LoggerTests
{

using Observers = std::vector<std::shared_ptr<UtilsLib::ILoggerSettingsObserver>>;

/// A logger of the test's own, as a host may derive one.
class OwnLogger : public UtilsLib::Logger
{
public:
    explicit OwnLogger(const Observers& observers = {}) : Logger(observers)
    {
    }

    /// A message of category 1 and level 4, logged as it is.
    void LogText(const std::string& text)
    {
        LogText(text, 1, 4);
    }
    void LogText(const std::string& text, int category, int level)
    {
        static_cast<UtilsLib::ILogger*>(this)->Log(static_cast<UtilsLib::LogCategory>(category),
                                                   static_cast<UtilsLib::LogTraceLevel>(level), "%s", text.c_str());
    }
    bool IsEnabled(int category, int level)
    {
        return CheckEnabled(static_cast<UtilsLib::LogCategory>(category), static_cast<UtilsLib::LogTraceLevel>(level));
    }
};

/// Makes the logger's thread stop after every cycle until it is told to go on. The logger is started in it, and ends
/// before it or by `Finish`.
class CycleControl
{
public:
    CycleControl()
    {
        UtilsLib::TimeService::GetMock().SetSleepCallback([this](unsigned long long) { OnSleep(); });
        UtilsLib::TimeService::EnableMock(true);
    }
    ~CycleControl()
    {
        UtilsLib::TimeService::EnableMock(false);
        UtilsLib::TimeService::GetMock().SetSleepCallback({});
    }
    CycleControl(const CycleControl&) = delete;
    CycleControl& operator=(const CycleControl&) = delete;

    /// Returns when the first cycle is over.
    void Start(UtilsLib::Logger& logger)
    {
        logger.Start();
        ASSERT_TRUE(WaitForArrivals(1));
    }
    void RunCycle()
    {
        unsigned int arrivals = 0;
        {
            const std::lock_guard<std::mutex> hold(m_lock);
            arrivals = ++m_allowed;
        }
        m_changed.notify_all();
        ASSERT_TRUE(WaitForArrivals(arrivals + 1));
    }
    void Finish(UtilsLib::Logger& logger)
    {
        {
            const std::lock_guard<std::mutex> hold(m_lock);
            m_free = true;
        }
        m_changed.notify_all();
        logger.Shutdown();
    }

private:
    static constexpr unsigned int kSleepsOfACycle = 3; // 300 ms in steps of 100

    void OnSleep()
    {
        std::unique_lock<std::mutex> hold(m_lock);
        if (m_sleeps++ % kSleepsOfACycle == 0)
        {
            const unsigned int arrival = ++m_arrivals;
            m_changed.notify_all();
            m_changed.wait(hold, [this, arrival] { return m_free || m_allowed >= arrival; });
        }
    }
    bool WaitForArrivals(unsigned int count)
    {
        std::unique_lock<std::mutex> hold(m_lock);
        return m_changed.wait_for(hold, std::chrono::seconds(20), [this, count] { return m_arrivals >= count; });
    }

    std::mutex m_lock;
    std::condition_variable m_changed;
    unsigned int m_sleeps = 0;
    unsigned int m_arrivals = 0;
    unsigned int m_allowed = 0;
    bool m_free = false;
};

/// Keeps what it was told.
class RecordingObserver : public UtilsLib::ILoggerSettingsObserver
{
public:
    struct Call
    {
        bool enabled;
        unsigned long traceLevel;
        std::map<std::string, unsigned long> settings;
    };

    explicit RecordingObserver(std::vector<std::string> names = {}) : m_names(std::move(names))
    {
    }
    void SettingsChanged(bool enabled, unsigned long traceLevel,
                         const std::map<std::string, unsigned long>& settings) override
    {
        const std::lock_guard<std::mutex> hold(m_lock);
        m_calls.push_back({enabled, traceLevel, settings});
    }
    std::vector<std::string> AdditionalSettingsToCheck() override
    {
        return m_names;
    }
    std::vector<Call> Calls() const
    {
        const std::lock_guard<std::mutex> hold(m_lock);
        return m_calls;
    }

private:
    const std::vector<std::string> m_names;
    mutable std::mutex m_lock;
    std::vector<Call> m_calls;
};

/// Logging is on, into a file in a folder of the test's own.
class LoggerFixture : public testing::Test
{
protected:
    LoggerFixture()
    {
        SetSwitch("hx41svc_logging", 1);
    }

    /// Sets a value and makes the live settings see it.
    void SetSwitch(const std::string& name, unsigned long value)
    {
        m_machine.SetDword(name, value);
        UtilsLib::LiveRegSettings::GetInstance().Read();
    }
    void DeleteSwitch(const std::string& name)
    {
        m_machine.Delete(name);
        UtilsLib::LiveRegSettings::GetInstance().Read();
    }
    /// A message of category 1 and level 1.
    static void LogText(OwnLogger& logger, const std::string& text)
    {
        logger.LogText(text, 1, 1);
    }
    /// Writes what is queued, as the logger's last work.
    void WriteAll(UtilsLib::Logger& logger) const
    {
        logger.SetPath(m_path);
        logger.Start();
        logger.Shutdown();
    }
    /// The whole log file.
    std::string Text(const std::string& file = "app.log") const
    {
        return m_folder.Read(file);
    }
    /// The messages of the log file, without their prefixes; a line that has none stands as it is.
    std::vector<std::string> Messages(const std::string& file = "app.log") const
    {
        std::vector<std::string> messages;
        std::istringstream text(Text(file));
        for (std::string line; std::getline(text, line);)
        {
            if (!line.empty() && line.back() == '\r')
            {
                line.pop_back();
            }
            const std::size_t prefix = line.find("), ");
            messages.push_back(prefix == std::string::npos ? line : line.substr(prefix + 3));
        }
        return messages;
    }

    TestSupport::ScopedMachineHive m_machine;
    TestSupport::TempFolder m_folder;
    const std::string m_path = m_folder / "app.log";
};

} // namespace LoggerTests
