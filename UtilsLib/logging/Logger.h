#pragma once

#include <UtilsLib/Export.h>
#include <UtilsLib/WindowsTypes.h>
#include <UtilsLib/logging/GRPCLoggerSettingsObserver.h>
#include <UtilsLib/logging/ILogger.h>
#include <UtilsLib/logging/ILoggerSettingsObserver.h>
#include <UtilsLib/threading/Lock.h>
#include <UtilsLib/threading/Thread.h>

#include <atomic>
#include <cstdarg>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <vector>

struct gpr_log_func_args;

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
    ///
    /// Nothing throws: a line for which there is no memory is dropped. The thread's last error stays.
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
    /// that other threads log meanwhile is either refused or written. Without a thread the queue is kept. On the
    /// logger's own thread it does not wait.
    void Shutdown();
    void ThreadProc() override;

protected:
    /// Reads the live settings anew and tells the observers. Masks, switches and observers are the instance's own.
    explicit Logger(const std::vector<std::shared_ptr<ILoggerSettingsObserver>>& observers);

private:
    struct Instance;
    friend void LogGrpcRecord(gpr_log_func_args* record);

    /// How far the writing of `m_draining` has come. One word, so that it is whole when Windows ends the thread.
    struct Progress
    {
        unsigned int line : 31;    // those before it are in the file, or dropped
        unsigned int isPlaced : 1; // `offset` is known
        unsigned int offset;       // where this line goes in the file, modulo 2^32
    };

    /// The instance, made if need be. Null while it is being made and once it is destroyed: gRPC may log then, too.
    static ILogger* ReachableInstance();

    void Queue(LogCategory category, LogTraceLevel level, const char* format, va_list args);
    void Enqueue(std::string line);
    /// No line is queued any more until a settings check switches logging on.
    void RefuseLines();
    /// The same, and no settings check does until the end of `Shutdown`.
    void RefuseLinesForGood();
    unsigned int GetPendingEntriesSize();

    void CheckSettings();
    void UpdateObservers();
    std::map<std::string, unsigned long>
    GetObserversAdditionalSettings(const std::shared_ptr<ILoggerSettingsObserver>& observer);

    // The rest belongs to the logger's thread; to `Shutdown` and the destructor once that has ended.

    void Cycle(bool stopping);
    /// Lines that are logged before a path is set stay in the queue.
    bool WaitsForPath();
    /// Writes what is queued.
    void Drain();
    /// The same when the thread is over, wherever it has ended.
    void WriteRest();
    /// As `Shutdown`, and also when this thread is the logger's own and comes out of its loop no more.
    void End();
    /// Writes what was queued and what the thread had taken from the queue when Windows ended it, each line once.
    void FinishInterrupted();
    /// The file's size, modulo 2^32.
    unsigned int ReopenInterrupted();
    /// Writes a line from that character on, by a write of its own.
    void WriteAlone(const std::string& line, std::size_t from);
    void TakePending();
    void WriteDraining();
    void WriteLines();
    /// False when the line is not to be written, or cannot be.
    bool Write(const std::string& line);
    void DropLine();
    void SetProgress();
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

    Lock m_namesLock;                    // held only to copy or replace the two names
    Lock m_observersLock;                // one settings check, and one call of an observer, at a time
    std::size_t m_pendingCount = 0;      // lines whose append to the queue is complete; under m_pendingLock
    bool m_refusing = false;             // by RefuseLinesForGood
    bool m_inLoop = false;               // the thread is in ThreadProc, or was when Windows ended it
    bool m_interrupted = false;          // Windows has ended the thread in its loop, and the rest was written
    std::atomic<bool> m_opening = false; // in CreateFile
    // Members rather than locals of the thread, because Windows may end it in the middle of its work.
    std::deque<std::string> m_draining; // lines taken from the queue
    unsigned int m_drained = 0;         // those before this one are in the block, in the file, or dropped
    std::atomic<Progress> m_progress = Progress{};
    std::string m_block;        // text of the lines from the progress to before m_drained
    unsigned int m_fileEnd = 0; // where the block goes, modulo 2^32
    bool m_isPlaced = false;    // m_fileEnd is known
};

} // namespace UtilsLib
