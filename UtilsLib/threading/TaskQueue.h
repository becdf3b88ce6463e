#pragma once

#include <UtilsLib/Export.h>
#include <UtilsLib/WindowsTypes.h>
#include <UtilsLib/threading/TaskBase.h>

#include <deque>

namespace UtilsLib
{

/// A first-in first-out queue of tasks for any number of producers and consumers, without a bound.
///
/// Every `Push` and every `Signal` owes the consumers one wake-up, which a kernel semaphore counts. The queue owns the
/// tasks in it, but does not delete them when it is destroyed: take them out by `Pop` before. Failure to make the
/// semaphore is not reported; every `Pop` then fails at once.
class UTILSLIB_API TaskQueue
{
public:
    TaskQueue();
    TaskQueue(const TaskQueue&) = delete;
    /// Copies the members as they stand, on purpose: both queues then hold the same tasks and the same semaphore, but
    /// guard the tasks by locks of their own, so only one of them may be used from then on. What this queue held
    /// before is forgotten like at its destruction. No other thread may use either queue meanwhile.
    TaskQueue& operator=(const TaskQueue& other);
    /// Frees the queue's storage. Tasks still in it are not deleted, the semaphore is not closed and the critical
    /// section is not deleted: meant so. No thread may be in a member function or come to one.
    ~TaskQueue();

    /// Adds a task and then wakes one consumer. Any thread; takes the queue's lock. Throws `std::bad_alloc` when there
    /// is no memory: the task then stays the caller's.
    void Push(TaskBase* task);
    /// Waits at most `timeoutMs` milliseconds (0xFFFFFFFF: without a limit) for a wake-up, and takes the oldest task
    /// out, which is the caller's then. `*task` is null when the result is false, which means that none came in time;
    /// and also after a `Signal`, or when another consumer took the task: the result is true then. Any thread; takes
    /// the queue's lock, but does not hold it while it waits.
    bool Pop(TaskBase** task, unsigned int timeoutMs);
    /// Wakes one consumer without a task: its `Pop` gives true and null if the queue is empty. Any thread.
    void Signal();

private:
    struct Storage;

    /// Frees the storage with the last of the queues that share it.
    void ReleaseStorage();

    CRITICAL_SECTION m_section;     // guards *m_tasks
    std::deque<TaskBase*>* m_tasks; // a Storage; the newest in front
    HANDLE m_semaphore;             // counts the wake-ups that are owed
};

} // namespace UtilsLib
