#pragma once

#include <UtilsLib/Export.h>
#include <UtilsLib/threading/Lock.h>

#include <map>
#include <string>

namespace UtilsLib
{

/// What the monitor knows of one thread.
struct ThreadState
{
    std::string description;         ///< the thread's name; empty until set
    bool started = false;            ///< the thread's own code has begun
    long long lastShutdownCheck = 0; ///< GetTickCount64 (ms) at the latest look at its stop flag; 0 before the first
};

/// The process-wide register of the library's worker threads, for a host's health check: which threads exist and when
/// each last looked at its stop flag. It judges nothing. Any thread; every operation takes the monitor's lock.
class UTILSLIB_API ThreadMonitor
{
public:
    /// The one monitor of the process; made by the first call.
    static ThreadMonitor& GetInstance();
    ~ThreadMonitor();
    ThreadMonitor(const ThreadMonitor&) = delete;
    ThreadMonitor& operator=(const ThreadMonitor&) = delete;

    /// Notes that the thread's own code has begun. This and the next two enter an id that is not registered yet.
    void ThreadStarted(const unsigned int& threadId);
    /// Removes the entry.
    void ThreadStopped(const unsigned int& threadId);
    /// Stores the thread's name.
    void SetThreadDescription(const unsigned int& threadId, const std::string& description);
    /// Stores `tick` (ms, as of GetTickCount64) as the latest look at the stop flag.
    void ThreadCheckedShutdownStatus(const unsigned int& threadId, const long long& tick);
    /// A copy of the register, ascending by thread id.
    std::map<unsigned int, ThreadState> GetThreadStatus();

private:
    friend class Thread; // does some steps together, under one hold of the lock

    ThreadMonitor();
    /// Makes sure of an entry; one that exists is left as it is.
    void CheckThread(const unsigned int& threadId);

    std::map<unsigned int, ThreadState> m_threads UTILSLIB_GUARDED_BY(m_lock);
    Lock m_lock;
};

} // namespace UtilsLib
