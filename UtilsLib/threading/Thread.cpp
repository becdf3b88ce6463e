#include <UtilsLib/threading/Thread.h>

#include <UtilsLib/platform/StackAlignment.h>
#include <UtilsLib/platform/UniqueHandle.h>
#include <UtilsLib/threading/ScopedLock.h>
#include <UtilsLib/threading/ThreadMonitor.h>
#include <UtilsLib/time/TimeService.h>

#include <memory>

namespace UtilsLib
{

namespace
{

constexpr unsigned int kSleepStep = 100;         // ms
constexpr DWORD kRunAtOnce = 1;                  // not CREATE_SUSPENDED
constexpr unsigned long long kBeginLimit = 1000; // ms

template <typename T>
T Load(const T& field)
{
    return std::atomic_ref<T>(const_cast<T&>(field)).load();
}

template <typename T>
void Store(T& field, T value)
{
    std::atomic_ref<T>(field).store(value);
}

template <typename Ended, typename Step>
void InSteps(unsigned int milliseconds, Ended ended, Step step)
{
    // Counted in 64 bits: near the end of 32 the sum of the steps would wrap round, and the sleep would never end.
    for (unsigned long long slept = 0; slept < milliseconds && !ended(); slept += kSleepStep)
    {
        step();
    }
}

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

Thread::Thread(const Thread& other)
    : m_thread(other.m_thread),
      m_stop(Load(other.m_stop)),
      m_doneEvent(other.m_doneEvent),
      m_threadId(Load(other.m_threadId)),
      m_name(other.m_name),
      m_phase(Load(other.m_phase))
{
}

Thread& Thread::operator=(const Thread& other)
{
    m_thread = other.m_thread;
    Store(m_stop, Load(other.m_stop));
    m_doneEvent = other.m_doneEvent;
    Store(m_threadId, Load(other.m_threadId));
    Store(m_phase, Load(other.m_phase));
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
    Platform::UniqueHandle done(CreateEventA(nullptr, FALSE, FALSE, nullptr));
    if (!done)
    {
        return;
    }
    auto start = std::make_unique<ThreadStruct>(ThreadStruct{this, done.Get()});
    Store(m_phase, Phase::Created);
    const HANDLE thread = CreateThread(nullptr, 0, reinterpret_cast<LPTHREAD_START_ROUTINE>(&ThreadStub), start.get(),
                                       kRunAtOnce, nullptr);
    if (thread == nullptr)
    {
        return;
    }
    static_cast<void>(start.release()); // the thread frees it
    m_thread = thread;
    m_doneEvent = done.Release();
    Store(m_threadId, ::GetThreadId(thread));
    Describe();
    WaitUntilBegun();
}

void Thread::Shutdown()
{
    if (IsCurrentThread())
    {
        // It may end the process and so destroy its own static object: waiting for itself would never end. The handles
        // are the owner's, who may not even have stored them yet.
        Store(m_stop, true);
        return;
    }
    if (m_thread == INVALID_HANDLE_VALUE)
    {
        return;
    }
    Store(m_stop, true);
    // At process exit Windows ends all threads before a DLL's statics are destroyed: the done event never comes, but
    // the thread's own handle is signalled.
    const HANDLE ends[] = {m_doneEvent, m_thread};
    WaitForMultipleObjects(2, ends, FALSE, INFINITE);
    CloseAndInvalidate(m_thread);
    CloseAndInvalidate(m_doneEvent);
}

unsigned long Thread::GetThreadId() const
{
    return Load(m_threadId);
}

void Thread::SetThreadDescription(const std::string& description)
{
    m_name = description;
}

bool Thread::StopRequested() const
{
    return Load(m_stop);
}

bool Thread::HasThread() const
{
    return m_thread != INVALID_HANDLE_VALUE;
}

void Thread::ControlledSleep(unsigned int milliseconds)
{
    const std::atomic<bool> never = false;
    InterruptibleSleep(milliseconds, never);
}

void Thread::ControlledSleepEx(unsigned int milliseconds, bool alertable)
{
    const auto ended = [this] { return StopRequested(); };
    const auto step = [this, alertable] {
        RecordHeartbeat();
        TimeService::Get().SleepEx(kSleepStep, alertable);
    };
    InSteps(milliseconds, ended, step);
}

void Thread::InterruptibleSleep(unsigned int milliseconds, const std::atomic<bool>& interrupt)
{
    const auto ended = [this, &interrupt] { return StopRequested() || interrupt; };
    const auto step = [this] {
        RecordHeartbeat();
        TimeService::Get().Sleep(kSleepStep);
    };
    InSteps(milliseconds, ended, step);
}

bool Thread::IsCurrentThread() const
{
    return Load(m_phase) == Phase::Begun && GetThreadId() == GetCurrentThreadId();
}

void Thread::Describe() const
{
    ThreadMonitor& monitor = ThreadMonitor::GetInstance();
    const ScopedLock hold(monitor.m_lock);
    // A thread that is over already has removed its entry: it must not come back.
    if (Load(m_phase) != Phase::Over)
    {
        monitor.SetThreadDescription(GetThreadId(), m_name);
    }
}

void Thread::WaitUntilBegun() const
{
    // Until it begins, a new thread needs the loader's lock. If the caller unloaded this library or its own in that
    // moment, the destructor would wait for the thread under that very lock, for ever. Limited, because a caller that
    // starts a thread while a library is being loaded holds the lock already.
    const unsigned long long end = GetTickCount64() + kBeginLimit;
    while (Load(m_phase) == Phase::Created && GetTickCount64() < end &&
           WaitForSingleObject(m_thread, 1) == WAIT_TIMEOUT)
    {
    }
}

void Thread::RecordHeartbeat() const
{
    const auto tick = static_cast<long long>(GetTickCount64());
    ThreadMonitor::GetInstance().ThreadCheckedShutdownStatus(GetThreadId(), tick);
}

UTILSLIB_ALIGNS_STACK HANDLE Thread::Run(ThreadStruct* start)
{
    const std::unique_ptr<ThreadStruct> owned(start);
    Thread& owner = *start->owner;
    ThreadMonitor& monitor = ThreadMonitor::GetInstance();
    const unsigned int id = GetCurrentThreadId();
    // The code below may sleep before the starting thread has come to store the id.
    Store<unsigned long>(owner.m_threadId, id);
    Store(owner.m_phase, Phase::Begun);
    try
    {
        monitor.ThreadStarted(id);
        if (!owner.StopRequested())
        {
            owner.ThreadProc();
        }
    }
    catch (...)
    {
        // Dropped on purpose: a failing worker must not take the process with it.
    }
    const ScopedLock hold(monitor.m_lock);
    monitor.ThreadStopped(id);
    Store(owner.m_phase, Phase::Over);
    return start->doneEvent;
}

} // namespace UtilsLib
