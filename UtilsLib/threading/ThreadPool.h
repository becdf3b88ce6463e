#pragma once

#include <UtilsLib/Export.h>
#include <UtilsLib/WindowsTypes.h>
#include <UtilsLib/threading/Lock.h>
#include <UtilsLib/threading/TaskBase.h>
#include <UtilsLib/threading/TaskQueue.h>

#include <string>
#include <vector>

namespace UtilsLib
{

/// A fixed number of worker threads that run tasks in the order in which they were submitted.
///
/// `Shutdown` is no drain: a worker that is busy ends after its task, an idle one runs one task more if one is queued.
/// Tasks that are left are neither run nor deleted. Shut a pool in a library down before that is unloaded: the workers
/// cannot end under the loader's lock. At process exit, when the system has ended the workers, the destructor does not
/// wait.
class UTILSLIB_API ThreadPool
{
public:
    /// Starts `threadCount` workers; with 0 tasks are accepted and never run. Workers that the system does not give
    /// are not reported. `name` is kept and used for nothing. Throws `std::bad_alloc` or `std::length_error` when
    /// there is no memory, with no thread started.
    ThreadPool(unsigned int threadCount, const std::string& name);
    /// As `Shutdown`; a task of this pool may destroy it too, as the last thing that uses it.
    ~ThreadPool();
    ThreadPool(const ThreadPool&) = delete;
    ThreadPool& operator=(const ThreadPool&) = delete;

    /// Takes ownership of `task`, made by `new`, and queues it; a worker deletes it right after `Run`. Null does
    /// nothing. A task that is submitted after `Shutdown` is queued and never run. Any thread. Throws `std::bad_alloc`
    /// when there is no memory: the task then stays the caller's.
    void Submit(TaskBase* task);
    /// Ends the workers and waits for them without a time limit, so for the tasks that they run. Any thread; takes the
    /// pool's lock. A second call does nothing; one that comes meanwhile blocks until the first is done. In a task of
    /// this pool it does not wait: the next call from elsewhere, or the destructor, does.
    void Shutdown();

    /// What each worker runs, `pool` being its `ThreadPool`; always 0. A host may lend a thread of its own: it works
    /// until a shutdown, which neither wakes it nor waits for it.
    static DWORD WINAPI ThreadRun(void* pool);

private:
    friend class TaskBase;

    bool IsShuttingDown() const;
    /// Sets the flag and, the first time, wakes every worker.
    void RequestShutdown();
    /// Waits for the workers, except for the calling thread, and closes their handles.
    void JoinWorkers() UTILSLIB_REQUIRES(m_lock);

    std::vector<HANDLE> m_workers; // null for one that could not be made
    std::string m_name;
    TaskQueue* m_queue;         // owned
    Lock m_lock;                // serialises shutdowns
    bool m_shuttingDown;        // read by workers and tasks without the lock; never cleared again
    unsigned int m_threadCount; // how many wake-ups a shutdown owes
};

} // namespace UtilsLib
