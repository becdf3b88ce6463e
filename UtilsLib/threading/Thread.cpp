#include <UtilsLib/threading/Thread.h>

#include <UtilsLib/threading/ThreadMonitor.h>
#include <UtilsLib/time/TimeService.h>

namespace UtilsLib
{

namespace
{

constexpr unsigned int kSleepStep = 100; // ms
constexpr DWORD kRunAtOnce = 1;          // not CREATE_SUSPENDED

void CloseAndInvalidate(HANDLE& handle)
{
    CloseHandle(handle);
    handle = INVALID_HANDLE_VALUE;
}

} // namespace

Thread::Thread(const std::string& name)
    : m_thread(INVALID_HANDLE_VALUE), m_stop(false), m_doneEvent(INVALID_HANDLE_VALUE), m_name(name)
{
    // A static Thread must be destroyed before the monitor, which its thread still reports to.
    ThreadMonitor::GetInstance();
}


Thread::Thread(const Thread& other) = default;

Thread& Thread::operator=(const Thread& other)
{
    m_thread = other.m_thread;
    m_stop = other.StopRequested();
    m_doneEvent = other.m_doneEvent;
    m_threadId = other.m_threadId;
    if (this != &other)
    {
        m_name = other.m_name;
    }
    return *this;
}

Thread::~Thread()
{
    Shutdown();
}

void Thread::Start()
{
    if (m_thread != INVALID_HANDLE_VALUE || m_doneEvent != INVALID_HANDLE_VALUE)
    {
        return;
    }
    m_doneEvent = CreateEventA(nullptr, FALSE, FALSE, nullptr);
    auto* const start = new ThreadStruct{this, m_doneEvent};
    m_thread = CreateThread(nullptr, 0, reinterpret_cast<LPTHREAD_START_ROUTINE>(&ThreadStub), start, kRunAtOnce, nullptr);
    m_threadId = ::GetThreadId(m_thread);
    ThreadMonitor::GetInstance().SetThreadDescription(m_threadId, m_name);
}

void Thread::Shutdown()
{
    if (m_thread == INVALID_HANDLE_VALUE)
    {
        return;
    }
    std::atomic_ref<bool>(m_stop).store(true);
    // At process exit Windows ends all threads before a DLL's statics are destroyed: the done event never comes, but
    // the thread's own handle is signalled.
    const HANDLE ends[] = {m_doneEvent, m_thread};
    WaitForMultipleObjects(2, ends, FALSE, INFINITE);
    CloseAndInvalidate(m_thread);
    CloseAndInvalidate(m_doneEvent);
}

unsigned long Thread::GetThreadId() const
{
    return m_threadId;
}

void Thread::SetThreadDescription(const std::string& description)
{
    m_name = description;
}

bool Thread::StopRequested() const
{
    return std::atomic_ref<bool>(const_cast<bool&>(m_stop)).load();
}

void Thread::ControlledSleep(unsigned int milliseconds)
{
    const std::atomic<bool> never = false;
    InterruptibleSleep(milliseconds, never);
}

void Thread::ControlledSleepEx(unsigned int milliseconds, bool alertable)
{
    for (unsigned long long slept = 0; slept < milliseconds && !StopRequested(); slept += kSleepStep)
    {
        ThreadMonitor::GetInstance().ThreadCheckedShutdownStatus(m_threadId, static_cast<long long>(GetTickCount64()));
        TimeService::Get().SleepEx(kSleepStep, alertable);
    }
}

void Thread::InterruptibleSleep(unsigned int milliseconds, const std::atomic<bool>& interrupt)
{
    for (unsigned long long slept = 0; slept < milliseconds && !StopRequested() && !interrupt; slept += kSleepStep)
    {
        ThreadMonitor::GetInstance().ThreadCheckedShutdownStatus(m_threadId, static_cast<long long>(GetTickCount64()));
        TimeService::Get().Sleep(kSleepStep);
    }
}

DWORD WINAPI Thread::ThreadStub(ThreadStruct* start)
{
    const unsigned int id = GetCurrentThreadId();
    ThreadMonitor::GetInstance().ThreadStarted(id);
    if (!start->owner->StopRequested())
    {
        try
        {
            start->owner->ThreadProc();
        }
        catch (...)
        {
            // Dropped on purpose: a failing worker must not take the process with it.
        }
    }
    ThreadMonitor::GetInstance().ThreadStopped(id);
    SetEvent(start->doneEvent);
    delete start;
    return 0;
}

} // namespace UtilsLib
