#include <benchmarks/Job.h>

#include <UtilsLib/WindowsTypes.h>
#include <UtilsLib/logging/Logger.h>
#include <UtilsLib/platform/UniqueFileHandle.h>
#include <tests/support/TempFolder.h>

#include <spdlog/async.h>
#include <spdlog/async_logger.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>

#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

using TestSupport::TempFolder;
using UtilsLib::ILogger;
using UtilsLib::LogCategory;
using UtilsLib::LogTraceLevel;
using UtilsLib::Platform::UniqueFileHandle;

namespace Bench
{
namespace
{

constexpr const char* kFormat = "ScopedFiles::OpenWrite(%s) Failed %d";
constexpr const char* kSpdlogFormat = "ScopedFiles::OpenWrite({}) Failed {}";
constexpr const char* kSpdlogPattern = "%d/%m/%Y %H:%M:%S.%e, tid: %t, (1:4), %v";
constexpr std::string_view kPrefix = "15/11/2026 04:38:29.123, tid: 4312, (1:4), ";
constexpr const char* kPath = "C:\\ProgramData\\Corvane\\Accounts\\data\\nominal.dat";

// A burst, far below what makes spdlog's caller wait for its writer.
constexpr int kBurst = 20'000;
constexpr int kBatch = 1000; // keeps the framework's loop out of a call that costs a nanosecond
constexpr std::size_t kSpdlogQueue = 131'072;
constexpr int kLinesToWrite = 200'000;

class OurLogger : public UtilsLib::Logger
{
public:
    explicit OurLogger(const std::string& path)
        : Logger(std::vector<std::shared_ptr<UtilsLib::ILoggerSettingsObserver>>())
    {
        SetPath(path);
    }
};

/// The least behind the same interface: a test of the switch, one bounded print of a line with the same bytes, and a
/// push under a critical section. It asks for the time and the thread, as every line needs them, but prints a prefix
/// that is ready: turning them into text is left out.
class LeastLogger
{
public:
    LeastLogger()
    {
        InitializeCriticalSection(&m_lock);
    }
    virtual ~LeastLogger()
    {
        DeleteCriticalSection(&m_lock);
    }
    LeastLogger(const LeastLogger&) = delete;
    LeastLogger& operator=(const LeastLogger&) = delete;

    virtual void Log(LogCategory, LogTraceLevel level, const char* format, ...)
    {
        if ((m_levels & static_cast<unsigned int>(level)) == 0)
        {
            return;
        }
        va_list arguments;
        va_start(arguments, format);
        Add(format, arguments);
        va_end(arguments);
    }

private:
    // Apart, so that a call that is filtered out does not make room for the buffer.
    __attribute__((noinline)) void Add(const char* format, va_list arguments)
    {
        FILETIME now;
        GetSystemTimeAsFileTime(&now);
        benchmark::DoNotOptimize(now);
        benchmark::DoNotOptimize(GetCurrentThreadId());
        char whole[200];
        std::memcpy(whole, kPrefix.data(), kPrefix.size());
        std::strcpy(whole + kPrefix.size(), format);
        char text[4096];
        const int size = std::vsnprintf(text, sizeof(text), whole, arguments);
        std::string line(text, static_cast<std::size_t>(size));
        EnterCriticalSection(&m_lock);
        m_lines.push_back(std::move(line));
        LeaveCriticalSection(&m_lock);
    }

    volatile unsigned int m_levels = 7;
    CRITICAL_SECTION m_lock;
    std::deque<std::string> m_lines;
};

std::unique_ptr<spdlog::logger> SyncLogger(const std::string& path)
{
    auto logger = std::make_unique<spdlog::logger>("sync", std::make_shared<spdlog::sinks::basic_file_sink_mt>(path));
    logger->set_pattern(kSpdlogPattern);
    return logger;
}

/// spdlog's asynchronous logger with its writer's pool; the writer has caught up when this is destroyed.
class AsyncLogger
{
public:
    explicit AsyncLogger(const std::string& path)
        : m_pool(std::make_shared<spdlog::details::thread_pool>(kSpdlogQueue, 1)),
          m_logger(std::make_shared<spdlog::async_logger>(
              "async", std::make_shared<spdlog::sinks::basic_file_sink_mt>(path), m_pool))
    {
        m_logger->set_pattern(kSpdlogPattern);
    }
    spdlog::logger* operator->()
    {
        return m_logger.get();
    }

private:
    std::shared_ptr<spdlog::details::thread_pool> m_pool;
    std::shared_ptr<spdlog::async_logger> m_logger;
};

/// A logger that all threads of one measurement share; made anew for each, in a folder of its own.
template <typename Logger>
struct Shared
{
    TempFolder folder;
    std::unique_ptr<Logger> logger;
};

/// `call` logs one line with the number that it is given.
template <typename Logger, typename Make, typename Call>
Job::Body Sharing(Make make, Call call)
{
    const auto shared = std::make_shared<std::unique_ptr<Shared<Logger>>>();
    return [shared, make, call](benchmark::State& state) {
        // The framework's loop starts and ends with a barrier of all threads.
        if (state.thread_index() == 0)
        {
            *shared = std::make_unique<Shared<Logger>>();
            (*shared)->logger = make((*shared)->folder / "bench.log");
        }
        int number = 0;
        while (state.KeepRunningBatch(kBatch))
        {
            Logger& logger = *(*shared)->logger;
            for (int i = 0; i < kBatch; ++i)
            {
                call(logger, ++number);
            }
        }
        if (state.thread_index() == 0)
        {
            shared->reset();
        }
    };
}

std::unique_ptr<OurLogger> MakeOurs(const std::string& path)
{
    return std::make_unique<OurLogger>(path);
}

std::unique_ptr<AsyncLogger> MakeAsync(const std::string& path)
{
    return std::make_unique<AsyncLogger>(path);
}

std::unique_ptr<LeastLogger> MakeLeast(const std::string&)
{
    return std::make_unique<LeastLogger>();
}

void AddCalls(const std::string& name, int threads, bool filtered, Target target)
{
    const LogTraceLevel level = filtered ? LogTraceLevel::Debug : LogTraceLevel::Error;
    const auto theirLevel = filtered ? spdlog::level::debug : spdlog::level::err;
    Job::Add(name, target)
        .Threads(threads)
        .Operations(filtered ? 0 : kBurst)
        .Ours(Sharing<OurLogger>(
            &MakeOurs,
            [level](ILogger& logger, int number) { logger.Log(LogCategory::General, level, kFormat, kPath, number); }))
        .Alternative("spdlog, synchronous", Sharing<spdlog::logger>(&SyncLogger,
                                                                    [theirLevel](spdlog::logger& logger, int number) {
                                                                        logger.log(theirLevel, kSpdlogFormat, kPath,
                                                                                   number);
                                                                    }))
        .Alternative("spdlog, asynchronous", Sharing<AsyncLogger>(&MakeAsync,
                                                                  [theirLevel](AsyncLogger& logger, int number) {
                                                                      logger->log(theirLevel, kSpdlogFormat, kPath,
                                                                                  number);
                                                                  }))
        .Floor(filtered ? "variadic virtual call, one test" : "time, vsnprintf, push under a lock",
               Sharing<LeastLogger>(&MakeLeast, [level](LeastLogger& logger, int number) {
                   logger.Log(LogCategory::General, level, kFormat, kPath, number);
               }));
}

// Lines to the file: one operation is one line.

constexpr const char* kMessage = "ScopedFiles::OpenWrite(C:\\ProgramData\\nominal.dat) Failed %06d";

std::string LineOf(int number)
{
    char text[200];
    std::snprintf(text, sizeof(text), kMessage, number);
    return "15/11/2026 04:38:29.123, tid: " + std::to_string(GetCurrentThreadId()) + ", (1:4), " + text + "\r\n";
}

void WaitForSize(const std::string& path, long long bytes)
{
    LARGE_INTEGER size{};
    const ULONGLONG end = GetTickCount64() + 60'000;
    while (size.QuadPart < bytes && GetTickCount64() < end)
    {
        Sleep(1);
        const UniqueFileHandle file(CreateFileA(path.c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                                OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
        GetFileSizeEx(file.Get(), &size);
    }
}

double Timed(const std::function<void()>& work)
{
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

double WriteByOurs(const std::string& path)
{
    OurLogger logger(path);
    for (int i = 0; i < kLinesToWrite; ++i)
    {
        static_cast<ILogger&>(logger).Log(LogCategory::General, LogTraceLevel::Error, kMessage, i);
    }
    const long long bytes = static_cast<long long>(LineOf(0).size()) * kLinesToWrite;
    const double seconds = Timed([&logger, &path, bytes] {
        logger.Start();
        WaitForSize(path, bytes);
    });
    logger.Shutdown();
    return seconds;
}

double WriteBySpdlog(const std::string& path)
{
    const auto logger = SyncLogger(path);
    return Timed([&logger] {
        for (int i = 0; i < kLinesToWrite; ++i)
        {
            logger->error("ScopedFiles::OpenWrite(C:\\ProgramData\\nominal.dat) Failed {:06}", i);
        }
        logger->flush();
    });
}

/// `blockSize` 0: every line by itself.
double WriteByWriteFile(const std::string& path, std::size_t blockSize)
{
    std::vector<std::string> lines;
    for (int i = 0; i < kLinesToWrite; ++i)
    {
        lines.push_back(LineOf(i));
    }
    return Timed([&lines, &path, blockSize] {
        const UniqueFileHandle file(
            CreateFileA(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_NEW, 0, nullptr));
        DWORD written = 0;
        std::string block;
        block.reserve(blockSize + 4096);
        for (const std::string& line : lines)
        {
            block += line;
            if (block.size() >= blockSize)
            {
                WriteFile(file.Get(), block.data(), static_cast<DWORD>(block.size()), &written, nullptr);
                block.clear();
            }
        }
        WriteFile(file.Get(), block.data(), static_cast<DWORD>(block.size()), &written, nullptr);
    });
}

Job::Body Writing(std::function<double(const std::string&)> write)
{
    return [write](benchmark::State& state) {
        while (state.KeepRunningBatch(kLinesToWrite))
        {
            const TempFolder folder;
            state.SetIterationTime(write(folder / "bench.log"));
            if (folder.Read("bench.log").size() < LineOf(0).size() * kLinesToWrite * 9 / 10)
            {
                state.SkipWithError("lines are missing");
            }
        }
    };
}

void AddWriting()
{
    Job::Add("Logger: a line to the file", {.leastOfBestOther = 1.3})
        .OwnClock()
        .Operations(kLinesToWrite)
        .BytesAnOperation(static_cast<double>(LineOf(0).size()))
        .Ours(Writing(&WriteByOurs))
        .Alternative("spdlog, synchronous", Writing(&WriteBySpdlog))
        .Floor("WriteFile, 256 KiB blocks",
               Writing([](const std::string& path) { return WriteByWriteFile(path, 256 << 10); }))
        .Floor("WriteFile, every line", Writing([](const std::string& path) { return WriteByWriteFile(path, 0); }));
}

} // namespace

void AddLoggerJobs()
{
    AddCalls("Log: filtered out, 1 thread", 1, true, {.leastOfBestOther = 2.5});
    AddCalls("Log: filtered out, 4 threads", 4, true, {.leastOfBestOther = 2.5});
    AddCalls("Log: enabled, 1 thread", 1, false, {.mostOfFloor = 1.1, .leastOfBestOther = 1.0});
    AddCalls("Log: enabled, 4 threads", 4, false, {.leastOfBestOther = 1.0});
    AddWriting();
}

} // namespace Bench
