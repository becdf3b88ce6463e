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
    Thread* owner = nullptr;
    HANDLE doneEvent = INVALID_HANDLE_VALUE;
};

/// Base of the library's long-running worker threads. A derived class supplies `ThreadProc`; while it runs, the thread
/// is registered with the `ThreadMonitor`.
///
/// A class derived from Thread calls `Shutdown` in its own destructor: when this one runs, the derived members are
/// gone. `Start`, `Shutdown` and the destructor belong to the owning thread. Copies are member-wise, on purpose: they
/// refer to the same thread and event, and the first to shut down closes them.
class UTILSLIB_API Thread
{
public:
    /// Creates no thread. `name` is the description that the monitor gets at `Start`.
    explicit Thread(const std::string& name);
    Thread(const Thread& other);
    Thread& operator=(const Thread& other);
    /// As `Shutdown`. Not virtual.
    ~Thread();

    /// Starts the thread; does nothing if it was started and not shut down. Failure to create it is not reported. After
    /// a shutdown the new thread skips `ThreadProc` and ends at once, since nothing clears the stop flag: meant so.
    void Start();
    /// Sets the stop flag and waits, without a time limit, until `ThreadProc` has returned or Windows has ended the
    /// thread (at process exit); then closes the handles. Does nothing when no thread exists.
    void Shutdown();
    /// The id of the thread last started; set by `Start`, meaningless before.
    unsigned long GetThreadId() const;
    /// Replaces the stored name. Tells neither the system nor the monitor; only a later `Start` passes it on.
    void SetThreadDescription(const std::string& description);

protected:
    /// The thread's work; looks at the stop flag through the sleeps or `StopRequested`. An exception that leaves it is
    /// dropped: the thread then ends as usual.
    virtual void ThreadProc() = 0;

    bool StopRequested() const;

    // Sleeps of `ThreadProc`, in steps of 100 ms through the time service: `milliseconds` is rounded up to the next
    // multiple of 100, on purpose. Each step stores a heartbeat in the monitor. They return early when a stop is
    // requested, which is looked at before each step. 0 returns at once without a heartbeat.
    void ControlledSleep(unsigned int milliseconds);
    /// With the time service's alertable sleep, so that queued asynchronous calls may run.
    void ControlledSleepEx(unsigned int milliseconds, bool alertable);
    /// Also returns before a step when `interrupt` is true.
    void InterruptibleSleep(unsigned int milliseconds, const std::atomic<bool>& interrupt);

    /// What the new thread runs; owns `start`.
    static DWORD WINAPI ThreadStub(ThreadStruct* start);

private:
    HANDLE m_thread;          // INVALID_HANDLE_VALUE when no thread exists
    bool m_stop;              // set by the owner, read by the thread; never cleared again
    HANDLE m_doneEvent;       // auto-reset, signalled when ThreadProc is over; INVALID_HANDLE_VALUE when none
    unsigned long m_threadId; // not initialised before Start
    std::string m_name;
};

} // namespace UtilsLib
