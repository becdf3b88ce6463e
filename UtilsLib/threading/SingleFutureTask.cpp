#include <UtilsLib/threading/SingleFutureTask.h>

#include <UtilsLib/platform/ScopedValue.h>

#include <new>
#include <system_error>
#include <utility>

namespace UtilsLib
{

namespace
{

/// The future of the run that the calling thread is; null on other threads. Never followed.
thread_local const std::future<void>* ms_ownRun = nullptr;

} // namespace

SingleFutureTask::SingleFutureTask() : m_future(std::make_shared<std::future<void>>())
{
}

SingleFutureTask::SingleFutureTask(const SingleFutureTask& other) = default;

SingleFutureTask& SingleFutureTask::operator=(const SingleFutureTask& other)
{
    SingleFutureTask copy(other);
    m_future.swap(copy.m_future); // what was held ends as by the destructor
    return *this;
}

SingleFutureTask::~SingleFutureTask()
{
    if (ms_ownRun == m_future.get() && m_future.use_count() == 1)
    {
        // The job itself ends the last share, for one by ending the process: it cannot wait for its own end.
        static_cast<void>(new (std::nothrow) std::future<void>(std::move(*m_future)));
    }
}

void SingleFutureTask::Run(std::function<void()> work)
{
    if (ms_ownRun == m_future.get())
    {
        throw std::system_error(std::make_error_code(std::errc::resource_deadlock_would_occur));
    }
    if (m_future->valid())
    {
        m_future->wait();
    }
    // kept: nobody fetches the outcome of the run before, so its exception ends with its future
    *m_future = std::async(std::launch::async, [run = m_future.get(), work = std::move(work)] {
        const Platform::ScopedValue<const std::future<void>*> scope(ms_ownRun, run);
        work();
    });
}

} // namespace UtilsLib
