#pragma once

#include <UtilsLib/Export.h>

namespace UtilsLib
{

class ThreadPool;

/// A piece of work for a `ThreadPool`: derive, put the work into `Run`, and hand a task made by `new` to
/// `ThreadPool::Submit`, which takes ownership. A task is run once at most, on one worker, and then deleted there.
class UTILSLIB_API TaskBase
{
public:
    TaskBase();
    /// A copy refers to the same pool, without being submitted to it.
    TaskBase(const TaskBase& other);
    /// Refers to the pool of `other` from now on.
    TaskBase& operator=(const TaskBase& other);
    virtual ~TaskBase();

    /// The work. An exception that leaves it ends the process by `std::terminate`.
    virtual void Run() = 0;

protected:
    /// Whether the pool of this task is shutting down; a long `Run` asks now and then and returns early. The result
    /// refers to the pool's flag, which another thread sets: call this anew each time. It is valid while the pool
    /// lives. False, for ever, in a task that was never submitted. Any thread.
    const bool& ShouldShutDown() const;

private:
    friend class ThreadPool;

    ThreadPool* m_pool; // null before `Submit`; not owned
};

} // namespace UtilsLib
