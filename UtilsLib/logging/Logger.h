#pragma once

#include <UtilsLib/Export.h>
#include <UtilsLib/WindowsTypes.h>
#include <UtilsLib/logging/GRPCLoggerSettingsObserver.h>
#include <UtilsLib/logging/ILogger.h>
#include <UtilsLib/logging/ILoggerSettingsObserver.h>
#include <UtilsLib/threading/Lock.h>
#include <UtilsLib/threading/Thread.h>

#include <cstdarg>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace UtilsLib
{

/// The process-wide log. `Log` queues a line and returns; the logger's own thread, which the host starts after setting
/// a path, re-reads the switches from `LiveRegSettings` and appends the queue to the file every 300 ms. Lines that are
/// accepted before the thread runs and a path is set wait in the queue, which has no bound.
///
/// A file that would pass 1 GiB is cut to its last 50 MiB. A line that is accepted while the file can be opened is not
/// lost: `Shutdown`, and at the latest the destructor at process exit, writes what is queued.
class UTILSLIB_API Logger : public Thread, public ILogger
{
public:
    /// The one instance, made by the first call with a `GRPCLoggerSettingsObserver`; makes the live settings too.
    static Logger& GetInstance();
    /// As `Shutdown`, then closes the file.
    ~Logger() override;
    Logger(const Logger&) = delete;
    Logger& operator=(const Logger&) = delete;

    /// Queues "local time, tid: thread, (category:level), message". A line ends after 4,094 characters, silently. Does
    /// nothing while the master switch is off or the masks lack the category or level. Any thread.
    ///
    /// Formatted as by the run-time's `vsnprintf`. A format that stores through its arguments ("%n"), one with a width
    /// or precision of more than four digits, and one that the run-time refuses is logged as it stands, a null one as
    /// "(null)". A null text prints as "(null)". Numbers for "*" are not looked at.
    void Log(LogCategory category, LogTraceLevel level, const char* format, ...) override;
    /// Whether the masks take the category and level, for skipping the preparation of a message. Ignores the master
    /// switch, unlike `Log`: meant so. Any thread.
    bool CheckEnabled(LogCategory category, LogTraceLevel level);
    /// Sets the log file's full path. A file that is open already stays in use: the new path counts at the next opening
    /// only, which after the first is made by the cut at 1 GiB. Meant so. Any thread.
    void SetPath(const std::string& path);
    /// Names the registry value that is the master switch, and checks the settings at once. Any thread.
    void SetRegistryKey(const std::string& name);
    /// Logs the calling thread's stack, when stack logging is switched on. Slow.
    void LogStack();
    /// Switches logging off, ends the thread if there is one, and returns when it has written what was queued. A line
    /// that other threads log meanwhile is either refused or written. Without a thread the queue is kept.
    void Shutdown();
    void ThreadProc() override;

protected:
    /// Reads the live settings anew and tells the observers. Masks, switches and observers are the instance's own.
    explicit Logger(const std::vector<std::shared_ptr<ILoggerSettingsObserver>>& observers);

private:
    void Queue(LogCategory category, LogTraceLevel level, const char* format, va_list args);
    unsigned int GetPendingEntriesSize();

    void CheckSettings();
    void UpdateObservers();
    std::map<std::string, unsigned long>
    GetObserversAdditionalSettings(const std::shared_ptr<ILoggerSettingsObserver>& observer);

    /// Lines that are logged before a path is set stay in the queue.
    bool WaitsForPath();

    // The rest belongs to the logger's thread; to `Shutdown` and the destructor once that has ended.

    void DrainOrKeep();
    /// Writes what is queued.
    void Drain();
    /// Writes what an earlier call left, because its thread was ended by Windows or ran out of memory.
    void FinishInterrupted();
    void WriteDraining();
    void Write(const std::string& line);
    bool OpenFile();
    void SetSize();
    void Append(const std::string& line);
    void FlushBlock();
    /// The number of bytes that reached the file.
    std::size_t WriteBytes(const char* bytes, std::size_t count);
    /// Cuts the file if `length` more bytes would take it to the limit.
    void CheckTruncate(std::size_t length);
    void Truncate();

    std::string Path();

    bool m_enabled = false; // plain words, read by all threads without a lock
    unsigned int m_categoryMask = 0;
    unsigned int m_levelMask = 0;
    bool m_stackLogging = false;
    HANDLE m_file = INVALID_HANDLE_VALUE;
    std::deque<std::string> m_pending UTILSLIB_GUARDED_BY(m_pendingLock); // finished lines
    Lock m_pendingLock;
    std::string m_registryKey UTILSLIB_GUARDED_BY(m_namesLock);
    std::string m_path UTILSLIB_GUARDED_BY(m_namesLock);
    unsigned int m_fileSize = 0; // bytes in the file, as far as known
    bool m_truncationDisabled = false;
    std::vector<std::shared_ptr<ILoggerSettingsObserver>> m_observers;

    Lock m_namesLock;     // held only to copy or replace the two names
    Lock m_observersLock; // one observer is called at a time
    // Members rather than locals of the thread, because Windows may end it in the middle of its work.
    bool m_atWork = false;                // the lines below are being written
    std::deque<std::string> m_draining;   // lines taken from the queue
    std::size_t m_drained = 0;            // how many of them are in the block, in the file, or dropped
    std::string m_block;                  // gathered bytes, each line with its end, not yet written
    std::vector<std::size_t> m_blockEnds; // where its lines end
    long long m_filePosition = 0;         // where the block goes
};

} // namespace UtilsLib
