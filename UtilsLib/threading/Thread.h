#pragma once

#include <UtilsLib/Export.h>
#include <UtilsLib/WindowsTypes.h>

#include <atomic>
#include <string>

namespace UtilsLib
{

class Thread;

/// The start block of a new thread: made by `Thread::Start`, freed by the thread itself.
struct ThreadStruct
{
    Thread* owner = nullptr;                 ///< whose `ThreadProc` is to run
    HANDLE doneEvent = INVALID_HANDLE_VALUE; ///< signalled when it has; not owned
};

/// Base of the library's long-running worker threads. A derived class supplies `ThreadProc`; while it runs, the thread
/// is registered with the `ThreadMonitor`.
///
/// A class derived from Thread calls `Shutdown` in its own destructor: when this one runs, the derived members are
/// gone. `Start`, `Shutdown` and the destructor belong to the owning thread. Copies are member-wise, on purpose: they
/// refer to the same thread and event, but have a stop flag of their own, which the thread does not read. A copy's
/// `Shutdown` and destructor therefore wait for a thread that they cannot stop, and then close the handles of all.
class UTILSLIB_API Thread
{
public:
    /// Creates no thread. `name` is the description that the monitor gets at `Start`.
    explicit Thread(const std::string& name);
    /// Member-wise; see the class.
    Thread(const Thread& other);
    /// Member-wise; see the class.
    Thread& operator=(const Thread& other);
    /// As `Shutdown`. Not virtual.
    ~Thread();

    /// Starts the thread and returns when it has begun (after a second at the latest); does nothing if it was started
    /// and not shut down. Failure to create it is not reported: there is then no thread, and `Start` may be called
    /// again. After a shutdown the new thread skips `ThreadProc` and ends at once, since nothing clears the stop flag:
    /// meant so.
    void Start();
    /// Sets the stop flag and waits, without a time limit, until `ThreadProc` has returned or the system has ended the
    /// thread (at process exit); then closes the handles. Does nothing when no thread exists. On the thread itself it
    /// only sets the flag.
    void Shutdown();
    /// The id of the thread last started, 0 before; also valid after its end. Any thread.
    unsigned long GetThreadId() const;
    /// Replaces the stored name. Tells neither the system nor the monitor; only a later `Start` passes it on.
    void SetThreadDescription(const std::string& description);

protected:
    /// The thread's work; looks at the stop flag through the sleeps or `StopRequested`. An exception that leaves it is
    /// dropped: the thread then ends as usual.
    virtual void ThreadProc() = 0;

    /// Whether `Shutdown` was called, ever. Any thread.
    bool StopRequested() const;
    /// Whether a thread was started and not shut down since. By the owning thread.
    bool HasThread() const;

    // Sleeps of `ThreadProc`, in steps of 100 ms through the time service: `milliseconds` is rounded up to the next
    // multiple of 100, on purpose. Each step first stores a heartbeat in the monitor, under its lock. They return early
    // when a stop is requested, which is looked at before each step only. 0 returns at once without a heartbeat.

    /// Sleeps in the time service's plain sleeps.
    void ControlledSleep(unsigned int milliseconds);
    /// With the time service's alertable sleep, so that queued asynchronous calls may run. Such a call ends its step
    /// early, which still counts as 100 ms.
    void ControlledSleepEx(unsigned int milliseconds, bool alertable);
    /// Also returns before a step when `interrupt` is true.
    void InterruptibleSleep(unsigned int milliseconds, const std::atomic<bool>& interrupt);

    /// What the new thread runs; owns `start`. Its last act is to signal the done event.
    static DWORD WINAPI ThreadStub(ThreadStruct* start);

private:
    enum class Phase : long
    {
        Created, // or never started
        Begun,   // the thread runs code of its own
        Over     // the thread has left the monitor
    };

    /// Whether this is called by the thread itself, before it is over.
    bool IsCurrentThread() const;
    /// Gives the monitor the thread's name.
    void Describe() const;
    void WaitUntilBegun() const;
    void RecordHeartbeat() const;
    /// All of the stub but its last step: frees `start` and gives the event to signal. Never throws.
    static HANDLE Run(ThreadStruct* start);

    HANDLE m_thread;              // INVALID_HANDLE_VALUE when no thread exists
    bool m_stop;                  // set by the owner, read by the thread; never cleared again
    HANDLE m_doneEvent;           // auto-reset, signalled when ThreadProc is over; INVALID_HANDLE_VALUE when none
    unsigned long m_threadId = 0; // set by the owner and, before it does anything else, by the thread
    std::string m_name;
    Phase m_phase = Phase::Created; // set by the thread; Over only under the monitor's lock
};

} // namespace UtilsLib
