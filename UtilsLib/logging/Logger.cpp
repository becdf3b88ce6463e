#include <UtilsLib/logging/Logger.h>

#include <UtilsLib/logging/Stack.h>
#include <UtilsLib/platform/LocalTimeStamp.h>
#include <UtilsLib/registry/LiveRegSettings.h>
#include <UtilsLib/threading/ScopedLock.h>
#include <UtilsLib/threading/ThreadMonitor.h>
#include <UtilsLib/time/Time.h>

#include <algorithm>
#include <atomic>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <string_view>
#include <utility>

namespace UtilsLib
{

namespace
{

constexpr unsigned int kDefaultCategories = 95;
constexpr unsigned int kDefaultLevels = 7;
constexpr unsigned int kDrainInterval = 300; // ms
constexpr std::size_t kBufferSize = 4096;
constexpr std::size_t kFormatLimit = 4095; // with the terminator: a line has one character less
constexpr int kMostDigits = 4;             // of a width or precision in a format
constexpr std::size_t kBlockSize = 128 * 1024;
constexpr unsigned int kTruncateAt = 0x40000000; // 1 GiB
constexpr unsigned int kKeptBytes = 52'428'800;  // 50 MiB
constexpr std::string_view kLineEnd = "\r\n";

// Hosts read the switches while the settings check writes them: plain fields, accessed whole.
template <typename T>
T Load(const T& field)
{
    return std::atomic_ref<T>(const_cast<T&>(field)).load(std::memory_order_relaxed);
}

template <typename Flag>
bool Contains(const unsigned int& mask, Flag flag)
{
    return (Load(mask) & static_cast<unsigned int>(flag)) != 0;
}

template <typename T>
void Store(T& field, T value)
{
    std::atomic_ref<T>(field).store(value, std::memory_order_relaxed);
}

/// Appends to a buffer that is known to be large enough.
class LineWriter
{
public:
    explicit LineWriter(char* begin) : m_end(begin)
    {
    }
    LineWriter& operator<<(std::string_view text)
    {
        std::memcpy(m_end, text.data(), text.size());
        m_end += text.size();
        return *this;
    }
    template <typename Number>
    LineWriter& AppendNumber(Number number)
    {
        constexpr std::size_t longest = 12; // "-2147483648"
        m_end = std::to_chars(m_end, m_end + longest, number).ptr;
        return *this;
    }
    char* End() const
    {
        return m_end;
    }

private:
    char* m_end;
};

char* WritePrefix(char* buffer, LogCategory category, LogTraceLevel level)
{
    const Platform::LocalTimeStamp now;
    LineWriter line(buffer);
    line << now.Text() << ", tid: ";
    line.AppendNumber(GetCurrentThreadId()) << ", (";
    line.AppendNumber(static_cast<std::int32_t>(category)) << ":";
    line.AppendNumber(static_cast<std::int32_t>(level)) << "), ";
    return line.End();
}

bool IsDigit(char c)
{
    return c >= '0' && c <= '9';
}

/// What stands between "%" and its conversion, over all run-times' dialects.
bool IsModifier(char c)
{
    constexpr std::string_view others = "-+ #'.*hlLqjztIw";
    return IsDigit(c) || std::any_of(others.begin(), others.end(), [c](char other) { return c == other; });
}

/// Walks over the modifiers of a conversion. False for a number of more than `kMostDigits` digits: the run-time would
/// make that many characters, some of them on the thread's stack.
bool SkipModifiers(const char*& at)
{
    for (int digits = 0; IsModifier(*at); ++at)
    {
        digits = IsDigit(*at) ? digits + 1 : 0;
        if (digits > kMostDigits)
        {
            return false;
        }
    }
    return true;
}

/// Whether formatting stores nothing through the arguments ("%n", which nobody logs on purpose) and makes no text of
/// unheard-of length. Too strict rather than too lax behind a malformed conversion: run-times disagree on where they
/// read on, so a "%" there may be a conversion's first character.
bool IsHarmless(const char* format)
{
    bool percentStandsAlone = true;
    for (const char* at = format; *at != '\0';)
    {
        if (*at++ != '%')
        {
            continue;
        }
        if (percentStandsAlone && *at == '%')
        {
            ++at;
            continue;
        }
        if (!SkipModifiers(at) || *at == 'n')
        {
            return false;
        }
        percentStandsAlone = *at != '%';
    }
    return true;
}

/// Copies as much of `text` as fits with a terminator; the number of characters.
std::size_t CopyText(char* buffer, std::size_t size, const char* text)
{
    const std::size_t length = std::min(std::strlen(text), size - 1);
    std::memcpy(buffer, text, length);
    return length;
}

/// Formats as much as fits with a terminator; the number of characters.
std::size_t FormatMessageText(char* buffer, std::size_t size, const char* format, va_list args)
{
    if (format == nullptr)
    {
        return CopyText(buffer, size, "(null)");
    }
    if (!IsHarmless(format))
    {
        return CopyText(buffer, size, format);
    }
    const int length = std::vsnprintf(buffer, size, format, args);
    if (length < 0)
    {
        return CopyText(buffer, size, format);
    }
    return std::min(static_cast<std::size_t>(length), size - 1);
}

bool IsSet(const char* name)
{
    unsigned long value = 0;
    return LiveRegSettings::GetInstance().GetRegSetting(name, value) && value > 0;
}

} // namespace

Logger& Logger::GetInstance()
{
    static Logger instance({std::make_shared<GRPCLoggerSettingsObserver>()});
    return instance;
}

Logger::Logger(const std::vector<std::shared_ptr<ILoggerSettingsObserver>>& observers)
    : Thread("Logger"), m_registryKey("hx41svc_logging"), m_observers(observers)
{
    LiveRegSettings::GetInstance().Read();
    CheckSettings();
}

Logger::~Logger()
{
    Shutdown();
    if (m_file != INVALID_HANDLE_VALUE)
    {
        CloseHandle(m_file);
    }
}

void Logger::Log(LogCategory category, LogTraceLevel level, const char* format, ...)
{
    // Written out here, because a call would cost as much as the three tests. Most calls end here, at the level.
    if (!Contains(m_levelMask, level) || !Contains(m_categoryMask, category) || !Load(m_enabled))
    {
        return;
    }
    va_list args;
    va_start(args, format);
    Queue(category, level, format, args);
    va_end(args);
}

bool Logger::CheckEnabled(LogCategory category, LogTraceLevel level)
{
    return Contains(m_levelMask, level) && Contains(m_categoryMask, category);
}

void Logger::SetPath(const std::string& path)
{
    const ScopedLock hold(m_namesLock);
    m_path = path;
}

void Logger::SetRegistryKey(const std::string& name)
{
    {
        const ScopedLock hold(m_namesLock);
        m_registryKey = name;
    }
    CheckSettings();
}

void Logger::LogStack()
{
    if (!Load(m_stackLogging))
    {
        return;
    }
    Stack stack("");
    stack.Trace();
    ILogger& log = *this;
    log.Log(LogCategory::General, LogTraceLevel::Information, "Stack trace: %s", stack.AsString().c_str());
}

void Logger::Shutdown()
{
    Store(m_enabled, false);
    if (!HasThread())
    {
        return;
    }
    Thread::Shutdown();
    // The thread may have been told to stop before its loop began, Windows may have ended it at process exit, and
    // another thread may have been between the test of the switch and the queue.
    Store(m_enabled, false);
    DrainOrKeep();
}

void Logger::ThreadProc()
{
    int cyclesAfterStop = 0;
    while (!StopRequested() || GetPendingEntriesSize() != 0)
    {
        ThreadMonitor::GetInstance().ThreadCheckedShutdownStatus(GetCurrentThreadId(),
                                                                 static_cast<long long>(GetTickCount64()));
        CheckSettings();
        // kept: the check may switch logging on again while the queue is emptied. Not more than once: threads that go
        // on logging would keep the queue filled and the shutdown waiting for ever.
        cyclesAfterStop += StopRequested() ? 1 : 0;
        if (cyclesAfterStop > 1)
        {
            Store(m_enabled, false);
        }
        if (!StopRequested() && WaitsForPath())
        {
            Store(m_enabled, false); // as if the file could not be opened, but nothing is lost
            UpdateObservers();
        }
        else
        {
            DrainOrKeep();
        }
        ControlledSleep(kDrainInterval);
    }
}

void Logger::Queue(LogCategory category, LogTraceLevel level, const char* format, va_list args)
{
    char buffer[kBufferSize];
    // kept: hosts know the prefix as part of the format. It holds no "%", so formatting behind it is the same.
    char* const message = WritePrefix(buffer, category, level);
    const std::size_t prefix = static_cast<std::size_t>(message - buffer);
    std::string line(buffer, prefix + FormatMessageText(message, kFormatLimit - prefix, format, args));

    const ScopedLock hold(m_pendingLock);
    m_pending.push_back(std::move(line));
}

unsigned int Logger::GetPendingEntriesSize()
{
    const ScopedLock hold(m_pendingLock);
    return static_cast<unsigned int>(m_pending.size());
}

bool Logger::WaitsForPath()
{
    return m_file == INVALID_HANDLE_VALUE && GetPendingEntriesSize() != 0 && Path().empty();
}

void Logger::CheckSettings()
{
    LiveRegSettings& settings = LiveRegSettings::GetInstance();
    std::string key;
    {
        const ScopedLock hold(m_namesLock);
        key = m_registryKey;
    }
    Store(m_enabled, IsSet(key.c_str()));

    unsigned int levels = kDefaultLevels;
    unsigned int categories = kDefaultCategories;
    levels |= IsSet("hx41svc_logging_verbose") ? static_cast<unsigned int>(LogTraceLevel::Debug) : 0;
    categories |= IsSet("hx41svc_logging_fileio") ? static_cast<unsigned int>(LogCategory::FileIO) : 0;
    unsigned long value = 0;
    if (settings.GetRegSetting("hx41svc_logging_trace", value))
    {
        levels = value;
    }
    if (settings.GetRegSetting("hx41svc_logging_category", value))
    {
        categories = value;
    }
    Store(m_levelMask, levels);
    Store(m_categoryMask, categories);
    if (settings.GetRegSetting("hx41svc_disable_log_truncation", value))
    {
        Store(m_truncationDisabled, value > 0); // kept: stays as it was when the value is removed
    }
    Store(m_stackLogging, IsSet("stack_logging"));
    UpdateObservers();
}

void Logger::UpdateObservers()
{
    for (const std::shared_ptr<ILoggerSettingsObserver>& observer : m_observers)
    {
        if (!observer)
        {
            continue;
        }
        try
        {
            const ScopedLock hold(m_observersLock);
            observer->SettingsChanged(Load(m_enabled), Load(m_levelMask), GetObserversAdditionalSettings(observer));
        }
        catch (...)
        {
            // Dropped: an observer must not end the logger's thread, nor keep the others from being told.
        }
    }
}

std::map<std::string, unsigned long>
Logger::GetObserversAdditionalSettings(const std::shared_ptr<ILoggerSettingsObserver>& observer)
{
    std::map<std::string, unsigned long> settings;
    for (const std::string& name : observer->AdditionalSettingsToCheck())
    {
        unsigned long value = 0;
        LiveRegSettings::GetInstance().GetRegSetting(name, value);
        settings.emplace(name, value);
    }
    return settings;
}

void Logger::DrainOrKeep()
{
    try
    {
        Drain();
    }
    catch (const std::bad_alloc&)
    {
        // What was not written is still there for the next cycle: short memory must not end the log.
    }
}

void Logger::Drain()
{
    FinishInterrupted();
    m_draining.clear();
    {
        const ScopedLock hold(m_pendingLock);
        m_pending.swap(m_draining);
    }
    m_drained = 0;
    m_atWork = true;
    WriteDraining();
    m_draining.clear();
    m_atWork = false;
}

void Logger::FinishInterrupted()
{
    if (!m_atWork)
    {
        return;
    }
    LARGE_INTEGER position = {};
    if (m_file != INVALID_HANDLE_VALUE && SetFilePointerEx(m_file, {}, &position, FILE_CURRENT))
    {
        // The file pointer says whether the block had reached the file when the thread was ended.
        const long long reached = std::clamp<long long>(position.QuadPart - m_filePosition, 0, m_block.size());
        m_block.erase(0, static_cast<std::size_t>(reached));
        m_blockEnds.assign(1, m_block.size());
        m_filePosition = position.QuadPart;
    }
    const bool clearing = m_drained == m_draining.size();
    WriteDraining();
    if (clearing)
    {
        // The lines were being freed, some are already: given up rather than freed twice.
        std::construct_at(&m_draining);
    }
    m_atWork = false;
}

void Logger::WriteDraining()
{
    while (m_drained < m_draining.size())
    {
        Write(m_draining[m_drained]);
        ++m_drained;
    }
    FlushBlock();
}

void Logger::Write(const std::string& line)
{
    if (Load(m_levelMask) == 0 || Load(m_categoryMask) == 0)
    {
        return;
    }
    if (m_file == INVALID_HANDLE_VALUE && !OpenFile())
    {
        return;
    }
    if (!Load(m_truncationDisabled))
    {
        CheckTruncate(line.size() + kLineEnd.size());
    }
    if (m_file != INVALID_HANDLE_VALUE)
    {
        Append(line);
    }
}

bool Logger::OpenFile()
{
    m_file = CreateFileA(Path().c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, nullptr, OPEN_ALWAYS,
                         FILE_ATTRIBUTE_NORMAL, nullptr);
    if (m_file == INVALID_HANDLE_VALUE)
    {
        Store(m_enabled, false); // until the next settings check, which tries again
        UpdateObservers();
        return false;
    }
    SetSize();
    LARGE_INTEGER end = {};
    SetFilePointerEx(m_file, {}, &end, FILE_END);
    m_filePosition = end.QuadPart;
    return true;
}

void Logger::SetSize()
{
    LARGE_INTEGER size = {};
    GetFileSizeEx(m_file, &size);
    m_fileSize = size.LowPart; // kept: 32 bits, also of a file that grew past 4 GiB while it was not to be cut
}

void Logger::Append(const std::string& line)
{
    m_block.reserve(kBlockSize + kBufferSize + kLineEnd.size());
    m_block.append(line).append(kLineEnd);
    m_blockEnds.push_back(m_block.size());
    if (m_block.size() >= kBlockSize)
    {
        FlushBlock();
    }
}

void Logger::FlushBlock()
{
    if (m_block.empty())
    {
        return;
    }
    std::size_t written = WriteBytes(m_block.data(), m_block.size());
    // A disk that has no room for the block may have room for its first lines.
    for (const std::size_t end : m_blockEnds)
    {
        if (end > written)
        {
            WriteBytes(m_block.data() + written, end - written);
            written = end;
        }
    }
    m_block.clear();
    m_blockEnds.clear();
}

std::size_t Logger::WriteBytes(const char* bytes, std::size_t count)
{
    DWORD written = 0;
    WriteFile(m_file, bytes, static_cast<DWORD>(count), &written, nullptr); // errors are ignored
    m_filePosition += written;
    if (!Load(m_truncationDisabled))
    {
        m_fileSize += written;
    }
    return written;
}

void Logger::CheckTruncate(std::size_t length)
{
    if (m_fileSize + static_cast<unsigned int>(m_block.size() + length) < kTruncateAt)
    {
        return;
    }
    FlushBlock();
    if (m_fileSize + static_cast<unsigned int>(length) >= kTruncateAt)
    {
        Truncate();
    }
}

void Logger::Truncate()
{
    const std::unique_ptr<char[]> kept(new (std::nothrow) char[kKeptBytes]);
    if (!kept)
    {
        return; // the file grows on until there is memory: better than losing its end
    }
    LARGE_INTEGER tail = {};
    tail.LowPart = m_fileSize - kKeptBytes;
    SetFilePointerEx(m_file, tail, nullptr, FILE_BEGIN);
    DWORD read = 0;
    ReadFile(m_file, kept.get(), kKeptBytes, &read, nullptr);
    CloseHandle(m_file);
    DeleteFileA(Path().c_str());
    if (!OpenFile())
    {
        return;
    }
    // The file is still there when another program holds it without letting others delete it.
    SetFilePointerEx(m_file, {}, nullptr, FILE_BEGIN);
    SetEndOfFile(m_file);
    m_filePosition = 0;
    const std::string header = "** Log file was truncated at " + Time::GetTimeNowToMilliseconds() + "**\r\n\r\n";
    WriteBytes(header.data(), header.size());
    WriteBytes(kept.get(), read);
    SetSize();
}

std::string Logger::Path()
{
    const ScopedLock hold(m_namesLock);
    return m_path;
}

} // namespace UtilsLib
