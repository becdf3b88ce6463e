#pragma once

#include <UtilsLib/Export.h>

#include <functional>
#include <future>
#include <memory>

namespace UtilsLib
{

/// Runs one job at a time on a thread of its own, for recurring work that must not overlap and need not be queued.
///
/// Copies, also moved ones, share the job: what runs through one counts for all. No locks: one thread at a time may
/// use an object and its copies. A job that holds a copy of its own object keeps both in memory until the next `Run`.
/// No job may run when the library of a static object is unloaded: its thread cannot end under the loader's lock.
class UTILSLIB_API SingleFutureTask
{
public:
    SingleFutureTask();
    /// Shares the job of `other`.
    SingleFutureTask(const SingleFutureTask& other);
    /// Shares the job of `other`; lets its own go as the destructor does.
    SingleFutureTask& operator=(const SingleFutureTask& other);
    /// The last one to share a job that still runs waits for its end; not so in the job itself, nor in a static of a
    /// library at process exit, when the system has ended the job's thread.
    ~SingleFutureTask();

    /// Waits, without a time limit, until the job before is over, then starts `work` and returns without waiting for
    /// it. An exception that leaves `work`, like an empty `work`, is dropped silently. Throws `std::system_error` when
    /// there is no thread to be had, and in the job itself, which would wait for its own end; the next `Run` is as good
    /// as ever.
    void Run(std::function<void()> work);

private:
    std::shared_ptr<std::future<void>> m_future;
};

} // namespace UtilsLib
