// A host that logs and ends without shutting the logger down: child_logger_exit WAY [MILLISECONDS] FOLDER. The lines
// are "thread number"; the file "accepted" gets the number of lines of each thread that the logger has taken.
#include <UtilsLib/logging/GRPCLoggerSettingsObserver.h>
#include <UtilsLib/logging/Logger.h>

#include <tests/support/ImportPatch.h>
#include <tests/support/ScopedMachineHive.h>

#include <atomic>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

namespace
{

using UtilsLib::ILogger;
using UtilsLib::ILoggerSettingsObserver;
using UtilsLib::LogCategory;
using UtilsLib::Logger;
using UtilsLib::LogTraceLevel;

constexpr int kThreads = 4;

/// Ends the process on the logger's thread, in a settings check that comes with lines in the queue.
class EndingObserver : public ILoggerSettingsObserver
{
public:
    void SettingsChanged(bool, unsigned long, const std::map<std::string, unsigned long>&) override
    {
        if (m_ends)
        {
            std::exit(10);
        }
    }
    std::vector<std::string> AdditionalSettingsToCheck() override
    {
        return {};
    }
    std::atomic<bool> m_ends = false;
};

class OwnLogger : public Logger
{
public:
    explicit OwnLogger(const std::vector<std::shared_ptr<ILoggerSettingsObserver>>& observers) : Logger(observers)
    {
    }
};

void LogLine(ILogger& logger, int thread, int number)
{
    logger.Log(LogCategory::General, LogTraceLevel::Error, "%d %d", thread, number);
}

void LogLines(ILogger& logger, int count)
{
    for (int i = 0; i < count; ++i)
    {
        LogLine(logger, 0, i);
    }
}

void WriteAccepted(const std::string& folder, const std::vector<int>& counts)
{
    std::ofstream file(folder + "\\accepted", std::ios::trunc);
    for (const int count : counts)
    {
        file << count << '\n';
    }
}

std::atomic<bool> g_opened = false;

/// Ends never: the file is open, but the logger's thread does not come to know its handle.
HANDLE WINAPI OpenAndStay(const char* path, DWORD access, DWORD share, SECURITY_ATTRIBUTES* security, DWORD disposition,
                          DWORD flags, HANDLE pattern)
{
    const HANDLE file = CreateFileA(path, access, share, security, disposition, flags, pattern);
    if (access != 0 && !g_opened.exchange(true))
    {
        Sleep(INFINITE);
    }
    return file;
}

struct Flood
{
    std::atomic<int> logged[kThreads] = {};

    void Start(ILogger& logger)
    {
        for (int thread = 0; thread < kThreads; ++thread)
        {
            std::thread([this, &logger, thread] {
                for (;; ++logged[thread])
                {
                    LogLine(logger, thread, logged[thread]);
                }
            }).detach();
        }
    }
};
Flood g_flood;

int EndOnTheLoggersThread(const std::string& folder)
{
    const TestSupport::ScopedMachineHive machine;
    machine.SetDword("hx41svc_logging", 1);
    const auto observer = std::make_shared<EndingObserver>();
    static OwnLogger logger({observer});
    logger.SetPath(folder + "\\app.log");
    LogLines(logger, 1000);
    WriteAccepted(folder, {1000});
    observer->m_ends = true;
    logger.Start();
    Sleep(INFINITE);
    return 2;
}

int EndInAFlood(Logger& logger, unsigned long milliseconds, const std::string& folder)
{
    logger.Start();
    g_flood.Start(logger);
    Sleep(milliseconds);
    std::vector<int> counts;
    for (const std::atomic<int>& logged : g_flood.logged)
    {
        counts.push_back(logged);
    }
    WriteAccepted(folder, counts);
    return 7;
}

int EndInTheOpening(Logger& logger, const std::string& folder)
{
    static const TestSupport::ImportPatch stay("KERNEL32.dll", "CreateFileA", &OpenAndStay);
    LogLines(logger, 1000);
    WriteAccepted(folder, {1000});
    logger.Start();
    while (!g_opened)
    {
        Sleep(1);
    }
    return 7;
}

int Run(const std::string& way, unsigned long milliseconds, const std::string& folder)
{
    {
        const TestSupport::ScopedMachineHive machine; // the live settings read it once, when they are made
        machine.SetDword("hx41svc_logging", 1);
        Logger::GetInstance();
    }
    Logger& logger = Logger::GetInstance();
    logger.SetPath(folder + "\\app.log");
    if (way == "on-thread")
    {
        return EndOnTheLoggersThread(folder);
    }
    if (way == "flood")
    {
        return EndInAFlood(logger, milliseconds, folder);
    }
    if (way == "in-open")
    {
        return EndInTheOpening(logger, folder);
    }
    const int lines = way == "drain" ? 100'000 : 1000;
    LogLines(logger, lines);
    WriteAccepted(folder, {lines});
    if (way == "never-started")
    {
        return 7;
    }
    logger.Start();
    if (way == "at-once")
    {
        return 7;
    }
    if (way == "drain")
    {
        Sleep(milliseconds);
        return 7;
    }
    // Some lines are in the file when the end comes, the last ones are not.
    Sleep(350);
    LogLine(logger, 0, lines);
    WriteAccepted(folder, {lines + 1});
    if (way == "exit")
    {
        std::exit(8);
    }
    if (way == "exit-process")
    {
        ExitProcess(9);
    }
    return way == "return" ? 7 : 2;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3 && argc != 4)
    {
        return 2;
    }
    return Run(argv[1], argc == 4 ? std::strtoul(argv[2], nullptr, 10) : 0, argv[argc - 1]);
}
