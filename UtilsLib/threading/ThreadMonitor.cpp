#include <UtilsLib/threading/ThreadMonitor.h>

#include <UtilsLib/threading/ScopedLock.h>

namespace UtilsLib
{

ThreadMonitor& ThreadMonitor::GetInstance()
{
    static ThreadMonitor instance;
    return instance;
}

ThreadMonitor::ThreadMonitor() = default;
ThreadMonitor::~ThreadMonitor() = default;

void ThreadMonitor::ThreadStarted(const unsigned int& threadId)
{
    const ScopedLock hold(m_lock);
    CheckThread(threadId);
    m_threads[threadId].started = true;
}

void ThreadMonitor::ThreadStopped(const unsigned int& threadId)
{
    const ScopedLock hold(m_lock);
    CheckThread(threadId);
    m_threads.erase(threadId);
}

void ThreadMonitor::SetThreadDescription(const unsigned int& threadId, const std::string& description)
{
    const ScopedLock hold(m_lock);
    CheckThread(threadId);
    m_threads[threadId].description = description;
}

void ThreadMonitor::ThreadCheckedShutdownStatus(const unsigned int& threadId, const long long& tick)
{
    const ScopedLock hold(m_lock);
    CheckThread(threadId);
    m_threads[threadId].lastShutdownCheck = tick;
}

std::map<unsigned int, ThreadState> ThreadMonitor::GetThreadStatus()
{
    const ScopedLock hold(m_lock);
    return m_threads;
}

void ThreadMonitor::CheckThread(const unsigned int& threadId)
{
    const ScopedLock hold(m_lock);
    m_threads.try_emplace(threadId);
}

} // namespace UtilsLib
