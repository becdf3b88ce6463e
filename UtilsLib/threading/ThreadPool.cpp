#include <UtilsLib/threading/ThreadPool.h>

#include <UtilsLib/platform/ScopedValue.h>
#include <UtilsLib/threading/ScopedLock.h>

#include <atomic>
#include <memory>

namespace UtilsLib
{

namespace
{

/// The pool that the calling thread works for; null on other threads, and once its task has destroyed the pool.
thread_local const ThreadPool* ms_poolOfThread = nullptr;

/// Nothing may throw any more once there are threads.
std::vector<HANDLE> RoomFor(unsigned int threadCount)
{
    std::vector<HANDLE> workers;
    workers.reserve(threadCount);
    return workers;
}

} // namespace

ThreadPool::ThreadPool(unsigned int threadCount, const std::string& name)
    : m_workers(RoomFor(threadCount)),
      m_name(name),
      m_queue(new TaskQueue),
      m_shuttingDown(false),
      m_threadCount(threadCount)
{
    while (m_workers.size() != threadCount)
    {
        m_workers.push_back(CreateThread(nullptr, 0, &ThreadRun, this, 0, nullptr));
    }
}

ThreadPool::~ThreadPool()
{
    {
        const ScopedLock hold(m_lock);
        RequestShutdown();
        JoinWorkers();
    }
    if (ms_poolOfThread == this)
    {
        ms_poolOfThread = nullptr;
    }
    delete m_queue;
}

void ThreadPool::Submit(TaskBase* task)
{
    if (task != nullptr)
    {
        task->m_pool = this;
        m_queue->Push(task);
    }
}

void ThreadPool::Shutdown()
{
    if (ms_poolOfThread == this)
    {
        // A worker would wait for itself, or for the lock of one who waits for it.
        RequestShutdown();
        return;
    }
    const ScopedLock hold(m_lock);
    RequestShutdown();
    JoinWorkers();
}

DWORD WINAPI ThreadPool::ThreadRun(void* pool)
{
    auto* const self = static_cast<ThreadPool*>(pool);
    const Platform::ScopedValue<const ThreadPool*> scope(ms_poolOfThread, self);
    TaskBase* next = nullptr;
    while (ms_poolOfThread == self && !self->IsShuttingDown() && self->m_queue->Pop(&next, INFINITE))
    {
        const std::unique_ptr<TaskBase> task(next);
        if (task)
        {
            task->Run();
        }
    }
    return 0;
}

bool ThreadPool::IsShuttingDown() const
{
    return std::atomic_ref<bool>(const_cast<bool&>(m_shuttingDown)).load();
}

void ThreadPool::RequestShutdown()
{
    if (std::atomic_ref<bool>(m_shuttingDown).exchange(true))
    {
        return;
    }
    // kept: not a drain. Who wakes takes one task, if there is one, and sees the flag only then.
    for (unsigned int i = 0; i < m_threadCount; ++i)
    {
        m_queue->Signal();
    }
}

void ThreadPool::JoinWorkers()
{
    // The workers' own handles, because at process exit Windows ends them before a library's statics are destroyed.
    while (!m_workers.empty())
    {
        const HANDLE worker = m_workers.back();
        if (GetThreadId(worker) != GetCurrentThreadId())
        {
            WaitForSingleObject(worker, INFINITE);
        }
        CloseHandle(worker);
        m_workers.pop_back();
    }
}

} // namespace UtilsLib
