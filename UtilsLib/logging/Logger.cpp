#include <UtilsLib/logging/Logger.h>

#include <UtilsLib/logging/Stack.h>
#include <UtilsLib/platform/LastErrorKeeper.h>
#include <UtilsLib/platform/LocalTimeStamp.h>
#include <UtilsLib/platform/OwnFileHandle.h>
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
#include <optional>
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

enum class Life
{
    NotMade,
    BeingMade,
    Alive,
    Gone
};
std::atomic<Life> g_life = Life::NotMade; // of the one instance

std::vector<std::shared_ptr<ILoggerSettingsObserver>> FirstObservers()
{
    g_life = Life::BeingMade;
    return {std::make_shared<GRPCLoggerSettingsObserver>()};
}

unsigned int SizeInFile(const std::string& line)
{
    return static_cast<unsigned int>(line.size() + kLineEnd.size());
}

/// What the registry says of the logger.
struct Switches
{
    bool enabled = false;
    unsigned int levels = kDefaultLevels;
    unsigned int categories = kDefaultCategories;
    std::optional<bool> truncationDisabled; // kept: without the value the logger goes on as it was
    bool stackLogging = false;
};

bool IsSet(const char* name)
{
    unsigned long value = 0;
    return LiveRegSettings::GetInstance().GetRegSetting(name, value) && value > 0;
}

Switches ReadSwitches(const std::string& masterSwitch)
{
    LiveRegSettings& settings = LiveRegSettings::GetInstance();
    Switches switches;
    switches.enabled = IsSet(masterSwitch.c_str());
    switches.levels |= IsSet("hx41svc_logging_verbose") ? static_cast<unsigned int>(LogTraceLevel::Debug) : 0;
    switches.categories |= IsSet("hx41svc_logging_fileio") ? static_cast<unsigned int>(LogCategory::FileIO) : 0;
    unsigned long value = 0;
    if (settings.GetRegSetting("hx41svc_logging_trace", value))
    {
        switches.levels = value;
    }
    if (settings.GetRegSetting("hx41svc_logging_category", value))
    {
        switches.categories = value;
    }
    if (settings.GetRegSetting("hx41svc_disable_log_truncation", value))
    {
        switches.truncationDisabled = value > 0;
    }
    switches.stackLogging = IsSet("stack_logging");
    return switches;
}

} // namespace

struct Logger::Instance
{
    Instance()
    {
        new (&logger) Logger(FirstObservers());
        g_life = Life::Alive;
    }
    ~Instance()
    {
        g_life = Life::Gone;
        logger.End();
        if (!logger.m_interrupted)
        {
            logger.~Logger();
        }
        // Else a thread may have been ended inside the heap, which then must not be used: the system frees the rest.
    }

    union // so that its destructor can be left out
    {
        Logger logger;
    };
};

Logger& Logger::GetInstance()
{
    static Instance instance;
    return instance.logger;
}

ILogger* Logger::ReachableInstance()
{
    const Life life = g_life;
    return life == Life::BeingMade || life == Life::Gone ? nullptr : &GetInstance();
}

Logger::Logger(const std::vector<std::shared_ptr<ILoggerSettingsObserver>>& observers)
    : Thread("Logger"), m_registryKey("hx41svc_logging"), m_observers(observers)
{
    LiveRegSettings::GetInstance().Read();
    CheckSettings();
}

Logger::~Logger()
{
    End();
    if (m_interrupted)
    {
        // The threads may have been changing them: given up rather than destroyed.
        std::construct_at(&m_draining);
        std::construct_at(&m_pending);
    }
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
    RefuseLines();
    if (!HasThread())
    {
        return;
    }
    Thread::Shutdown();
    if (HasThread())
    {
        return; // called on the thread itself, whose loop goes on until the queue is empty
    }
    // The thread may have been told to stop before its loop began, or Windows may have ended it at process exit; and
    // its last look at the settings may have accepted lines behind its last look at the queue.
    RefuseLines();
    WriteRest();
    Store(m_refusing, false);
}

void Logger::ThreadProc()
{
    Store(m_inLoop, true);
    for (bool stopping = StopRequested(); !stopping || GetPendingEntriesSize() != 0; stopping = StopRequested())
    {
        try
        {
            Cycle(stopping);
        }
        catch (const std::bad_alloc&)
        {
            // What was not written is still there for the next cycle: short memory must not end the log.
            if (stopping)
            {
                break; // Shutdown tries once more
            }
        }
        ControlledSleep(kDrainInterval);
    }
    Store(m_inLoop, false);
}

void Logger::Queue(LogCategory category, LogTraceLevel level, const char* format, va_list args)
{
    const Platform::LastErrorKeeper keep;
    char buffer[kBufferSize];
    // kept: hosts know the prefix as part of the format. It holds no "%", so formatting behind it is the same.
    char* const message = WritePrefix(buffer, category, level);
    const std::size_t prefix = static_cast<std::size_t>(message - buffer);
    const std::size_t length = prefix + FormatMessageText(message, kFormatLimit - prefix, format, args);
    try
    {
        Enqueue(std::string(buffer, length));
    }
    catch (const std::bad_alloc&)
    {
        // Dropped: a program that runs out of memory must not fail at its log.
    }
}

void Logger::Enqueue(std::string line)
{
    const ScopedLock hold(m_pendingLock);
    // Looked at again under the lock: once RefuseLines has returned, no thread that was still making a line adds it.
    if (Load(m_enabled))
    {
        m_pending.push_back(std::move(line));
        ++m_pendingCount;
    }
}

void Logger::RefuseLines()
{
    const ScopedLock hold(m_pendingLock);
    Store(m_enabled, false);
}

void Logger::RefuseLinesForGood()
{
    const ScopedLock hold(m_observersLock);
    Store(m_refusing, true);
    RefuseLines();
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
    std::string key;
    {
        const ScopedLock hold(m_namesLock);
        key = m_registryKey;
    }
    // Read before the lock is taken: callbacks of the live settings run under the settings' lock and may come here.
    const Switches read = ReadSwitches(key);
    {
        const ScopedLock oneCheckAtATime(m_observersLock);
        Store(m_enabled, read.enabled && !Load(m_refusing));
        Store(m_levelMask, read.levels);
        Store(m_categoryMask, read.categories);
        if (read.truncationDisabled)
        {
            Store(m_truncationDisabled, *read.truncationDisabled);
        }
        Store(m_stackLogging, read.stackLogging);
    }
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
            const std::map<std::string, unsigned long> settings = GetObserversAdditionalSettings(observer);
            const ScopedLock hold(m_observersLock);
            observer->SettingsChanged(Load(m_enabled), Load(m_levelMask), settings);
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
    std::vector<std::string> names;
    {
        const ScopedLock hold(m_observersLock);
        names = observer->AdditionalSettingsToCheck();
    }
    std::map<std::string, unsigned long> settings;
    for (const std::string& name : names)
    {
        unsigned long value = 0;
        LiveRegSettings::GetInstance().GetRegSetting(name, value);
        settings.emplace(name, value);
    }
    return settings;
}

void Logger::Cycle(bool stopping)
{
    ThreadMonitor::GetInstance().ThreadCheckedShutdownStatus(GetCurrentThreadId(),
                                                             static_cast<long long>(GetTickCount64()));
    CheckSettings();
    if (stopping)
    {
        // kept: the check may switch logging on again while the queue is emptied. But once only: threads that go on
        // logging would keep the queue filled and the shutdown waiting for ever.
        RefuseLinesForGood();
    }
    else if (WaitsForPath())
    {
        RefuseLines(); // as if the file could not be opened, but nothing is lost
        UpdateObservers();
        return;
    }
    Drain();
}

void Logger::Drain()
{
    WriteDraining(); // what an earlier cycle left for want of memory
    TakePending();
    WriteDraining();
}

void Logger::End()
{
    Shutdown();
    if (Load(m_inLoop))
    {
        WriteRest(); // the thread itself ends the process, out of its loop
    }
}

void Logger::WriteRest()
{
    if (Load(m_inLoop))
    {
        Store(m_inLoop, false);
        m_interrupted = true;
        FinishInterrupted();
    }
    if (m_interrupted)
    {
        return;
    }
    try
    {
        Drain();
    }
    catch (const std::bad_alloc&)
    {
        // What is left cannot be written.
    }
}

void Logger::TakePending()
{
    const ScopedLock hold(m_pendingLock);
    if (m_pending.size() == m_pendingCount)
    {
        m_pendingCount = 0;
        m_pending.swap(m_draining);
        return;
    }
    // The process ends, and Windows has ended a thread in the middle of an append. The lines before that one are whole,
    // but the queue's end is not: given up rather than freed.
    for (std::size_t i = 0; i < m_pendingCount; ++i)
    {
        m_draining.push_back(std::move(m_pending[i]));
    }
    m_pendingCount = 0;
    std::construct_at(&m_pending);
}

// Nothing here uses the heap: Windows may have ended a thread inside it, and it may then loop for ever.
void Logger::FinishInterrupted()
{
    if (Load(m_levelMask) == 0 || Load(m_categoryMask) == 0)
    {
        return;
    }
    const Progress progress = m_progress;
    const unsigned int size = ReopenInterrupted();
    // Nobody else writes to the file, so its size says how much of the block was in it when the thread was ended.
    unsigned int written = progress.isPlaced ? size - progress.offset : 0;
    for (std::size_t i = progress.line; i < m_draining.size(); ++i)
    {
        const unsigned int ofThisLine = std::min(written, SizeInFile(m_draining[i]));
        WriteAlone(m_draining[i], ofThisLine);
        written -= ofThisLine;
    }
    const ScopedLock hold(m_pendingLock);
    for (std::size_t i = 0; i < m_pendingCount; ++i)
    {
        WriteAlone(m_pending[i], 0);
    }
}

unsigned int Logger::ReopenInterrupted()
{
    const ScopedLock hold(m_namesLock);
    if (m_opening)
    {
        m_file = Platform::FindOwnFileHandle(m_path); // else it would keep us from opening the file
    }
    LARGE_INTEGER size = {};
    if (m_file == INVALID_HANDLE_VALUE || !GetFileSizeEx(m_file, &size)) // closed, maybe by the cut
    {
        m_file = CreateFileA(m_path.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, nullptr, OPEN_ALWAYS,
                             FILE_ATTRIBUTE_NORMAL, nullptr);
    }
    SetFilePointerEx(m_file, {}, nullptr, FILE_END);
    return size.LowPart;
}

void Logger::WriteAlone(const std::string& line, std::size_t from)
{
    if (from == SizeInFile(line))
    {
        return;
    }
    char text[kBufferSize];
    LineWriter writer(text);
    writer << line << kLineEnd;
    WriteBytes(text + from, SizeInFile(line) - from);
}

void Logger::WriteDraining()
{
    WriteLines();
    m_draining.clear();
    m_drained = 0;
    SetProgress();
}

void Logger::WriteLines()
{
    for (; m_drained < m_draining.size(); ++m_drained)
    {
        if (!Write(m_draining[m_drained]))
        {
            DropLine();
        }
    }
    FlushBlock();
}

void Logger::DropLine()
{
    FlushBlock();
    m_progress = Progress{m_drained + 1, m_isPlaced, m_fileEnd};
}

void Logger::SetProgress()
{
    m_progress = Progress{m_drained, m_isPlaced, m_fileEnd};
}

bool Logger::Write(const std::string& line)
{
    if (Load(m_levelMask) == 0 || Load(m_categoryMask) == 0)
    {
        return false;
    }
    if (m_file == INVALID_HANDLE_VALUE && !OpenFile())
    {
        return false;
    }
    if (!Load(m_truncationDisabled))
    {
        CheckTruncate(SizeInFile(line));
    }
    if (m_file == INVALID_HANDLE_VALUE)
    {
        return false;
    }
    Append(line);
    return true;
}

bool Logger::OpenFile()
{
    m_opening = true;
    m_file = CreateFileA(Path().c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, nullptr, OPEN_ALWAYS,
                         FILE_ATTRIBUTE_NORMAL, nullptr);
    m_opening = false;
    if (m_file == INVALID_HANDLE_VALUE)
    {
        RefuseLines(); // until the next settings check, which tries again
        UpdateObservers();
        return false;
    }
    SetSize();
    SetFilePointerEx(m_file, {}, nullptr, FILE_END);
    return true;
}

void Logger::SetSize()
{
    LARGE_INTEGER size = {};
    GetFileSizeEx(m_file, &size);
    m_fileSize = size.LowPart; // kept: 32 bits, also of a file that grew past 4 GiB while it was not to be cut
    m_fileEnd = size.LowPart;
    m_isPlaced = true;
    SetProgress();
}

void Logger::Append(const std::string& line)
{
    if (m_block.size() + SizeInFile(line) > kBlockSize)
    {
        FlushBlock();
    }
    m_block.reserve(kBlockSize);
    m_block.append(line).append(kLineEnd);
}

void Logger::FlushBlock()
{
    if (m_block.empty())
    {
        return;
    }
    std::size_t written = WriteBytes(m_block.data(), m_block.size());
    // A disk that has no room for the block may have room for its first lines.
    std::size_t end = 0;
    for (unsigned int line = m_progress.load().line; end < m_block.size(); ++line)
    {
        end += SizeInFile(m_draining[line]);
        if (end > written)
        {
            WriteBytes(m_block.data() + written, end - written);
            written = end;
        }
    }
    m_block.clear();
    SetProgress();
}

std::size_t Logger::WriteBytes(const char* bytes, std::size_t count)
{
    DWORD written = 0;
    WriteFile(m_file, bytes, static_cast<DWORD>(count), &written, nullptr); // errors are ignored
    m_fileEnd += written;
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
    m_isPlaced = false;
    SetProgress();
    CloseHandle(m_file);
    DeleteFileA(Path().c_str());
    if (!OpenFile())
    {
        return;
    }
    // The file is still there when another program holds it without letting others delete it.
    SetFilePointerEx(m_file, {}, nullptr, FILE_BEGIN);
    SetEndOfFile(m_file);
    m_isPlaced = false; // the header and the old file's end are not lines of ours
    SetProgress();
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
