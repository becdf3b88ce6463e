#include <LoggingStage.h>

#include <UtilsLib/logging/Logger.h>
#include <UtilsLib/registry/LiveRegSettings.h>
#include <UtilsLib/threading/ThreadMonitor.h>

#include <chrono>
#include <deque>
#include <fstream>
#include <thread>

using UtilsLib::ILogger;
using UtilsLib::LiveRegSettings;
using UtilsLib::LogCategory;
using UtilsLib::Logger;
using UtilsLib::LogTraceLevel;
using UtilsLib::ProgressHandler;
using UtilsLib::ThreadMonitor;

namespace
{

constexpr const char* kVerbose = "hx41svc_logging_verbose";
constexpr const char* kFileTracing = "hx41svc_logging_fileio";
constexpr double kRereadSeconds = 21; // the settings are read again every 20 s

bool DetailIsOn()
{
    Logger& logger = Logger::GetInstance();
    return logger.CheckEnabled(LogCategory::General, LogTraceLevel::Debug) &&
           logger.CheckEnabled(LogCategory::FileIO, LogTraceLevel::Information);
}

double SecondsSince(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

unsigned long long MillisecondsSince(std::chrono::steady_clock::time_point start)
{
    return static_cast<unsigned long long>(SecondsSince(start) * 1000);
}

} // namespace

void LogCompany(Console& console, const std::vector<CompanyFile>& files)
{
    ILogger& log = Logger::GetInstance();
    unsigned long long bytes = 0;
    for (const CompanyFile& file : files)
    {
        log.Log(LogCategory::General, LogTraceLevel::Information, "Found %s", file.path.c_str());
        log.Log(LogCategory::General, LogTraceLevel::Debug, "%s has %I64u bytes", file.path.c_str(), file.size);
        log.Log(LogCategory::FileIO, LogTraceLevel::Information, "Listed %s", file.path.c_str());
        bytes += file.size;
    }
    console.Line(std::to_string(files.size()) + " files, " + BytesText(bytes) +
                 (DetailIsOn() ? ": each logged with its detail and file tracing" : ": each logged in one line"));
}

void SwitchDetailOn(Console& console, Job& job, ProductSwitches& switches)
{
    LiveRegSettings::GetInstance().RegisterRegSettingChanged(kVerbose, [](const std::string& name) {
        static_cast<ILogger&>(Logger::GetInstance())
            .Log(LogCategory::General, LogTraceLevel::Information, "%s has changed", name.c_str());
    });
    if (!switches.Set(kVerbose, 1) || !switches.Set(kFileTracing, 1))
    {
        console.Line("The product key cannot be written: run the host with administrator rights to see this stage.");
        return;
    }
    console.Line(std::string(kVerbose) + " and " + kFileTracing + " are now 1 in the registry.");
    console.Line("The settings thread reads them again within 20 s; nothing is restarted.");

    const auto start = std::chrono::steady_clock::now();
    job.RunStage(WaitingForSettings, [&start](ProgressHandler& progress) {
        progress.Begin(static_cast<unsigned long long>(kRereadSeconds * 1000), 0);
        progress.UpdateSubMessage("ms");
        while (!DetailIsOn() && SecondsSince(start) < kRereadSeconds)
        {
            progress.UpdateProgressCurrent(MillisecondsSince(start), ProgressHandler::Absolute);
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        const unsigned long long waited = MillisecondsSince(start);
        progress.Begin(waited, waited); // it was not to take longer
    });
    console.Line(DetailIsOn() ? "In effect after " + SecondsText(SecondsSince(start)) + "."
                              : "Not in effect after " + SecondsText(kRereadSeconds) + ".");
}

void ShowThreads(Console& console)
{
    const long long now = static_cast<long long>(GetTickCount64());
    for (const auto& [id, state] : ThreadMonitor::GetInstance().GetThreadStatus())
    {
        const std::string seen = state.lastShutdownCheck == 0
                                     ? "has not slept yet"
                                     : "seen alive " + std::to_string(now - state.lastShutdownCheck) + " ms ago";
        console.Value(state.description, "thread " + std::to_string(id) + ", " + seen);
    }
}

void ShowLastLines(Console& console, const std::string& logPath, std::size_t count)
{
    std::ifstream file(logPath);
    std::deque<std::string> lines;
    for (std::string line; std::getline(file, line);)
    {
        lines.push_back(line);
        if (lines.size() > count)
        {
            lines.pop_front();
        }
    }
    for (const std::string& line : lines)
    {
        console.Line(line);
    }
}
