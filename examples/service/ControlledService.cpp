#include <ControlledService.h>

#include <UtilsLib/logging/Logger.h>
#include <UtilsLib/threading/ScopedLock.h>

#include <chrono>
#include <exception>
#include <string>
#include <thread>
#include <utility>

namespace
{

constexpr DWORD kWaitHint = 10'000; // ms until the next checkpoint, at most
constexpr std::chrono::seconds kBeat(1);

ControlledService* g_service = nullptr; // the system hands ServiceMain no pointer of ours

void LogLine(UtilsLib::LogTraceLevel level, const std::string& text)
{
    static_cast<UtilsLib::ILogger&>(UtilsLib::Logger::GetInstance())
        .Log(UtilsLib::LogCategory::General, level, "%s", text.c_str());
}

/// Nothing that a step throws may reach the system, which has called us.
bool Succeeds(const std::function<void()>& step)
{
    std::string reason = "unknown error";
    try
    {
        step();
        return true;
    }
    catch (const std::exception& error)
    {
        reason = error.what();
    }
    catch (...)
    {
    }
    LogLine(UtilsLib::LogTraceLevel::Error, "The service cannot start: " + reason);
    return false;
}

bool IsPending(DWORD state)
{
    return state == SERVICE_START_PENDING || state == SERVICE_STOP_PENDING;
}

} // namespace

/// Makes a checkpoint every second until scope end: a step may take longer than the manager waits.
class ControlledService::Heartbeat
{
public:
    explicit Heartbeat(ControlledService& service)
        : m_thread([&service, over = m_over.get_future()] {
              while (over.wait_for(kBeat) == std::future_status::timeout)
              {
                  service.NextCheckpoint();
              }
          })
    {
    }
    ~Heartbeat()
    {
        m_over.set_value();
        m_thread.join();
    }
    Heartbeat(const Heartbeat&) = delete;
    Heartbeat& operator=(const Heartbeat&) = delete;

private:
    std::promise<void> m_over;
    std::thread m_thread;
};

ControlledService::ControlledService(ServiceWork work) : m_work(std::move(work))
{
    m_status.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
}

bool ControlledService::Run()
{
    g_service = this;
    char name[] = ""; // not looked at in a process with one service
    const SERVICE_TABLE_ENTRYA services[] = {{name, &ServiceMain}, {nullptr, nullptr}};
    return StartServiceCtrlDispatcherA(services) != FALSE;
}

void WINAPI ControlledService::ServiceMain(DWORD, char**)
{
    g_service->Serve();
}

DWORD WINAPI ControlledService::OnControl(DWORD control, DWORD, void*, void* service)
{
    switch (control)
    {
    case SERVICE_CONTROL_STOP:
    case SERVICE_CONTROL_SHUTDOWN:
        static_cast<ControlledService*>(service)->RequestStop();
        return NO_ERROR;
    case SERVICE_CONTROL_INTERROGATE:
        return NO_ERROR; // the manager knows the state from the last report
    default:
        return ERROR_CALL_NOT_IMPLEMENTED;
    }
}

void ControlledService::Serve()
{
    m_handle = RegisterServiceCtrlHandlerExA("", &OnControl, this);
    if (m_handle == nullptr)
    {
        return;
    }
    const bool started = Start();
    if (started)
    {
        EnterState(SERVICE_RUNNING);
        LogLine(UtilsLib::LogTraceLevel::Information, "The service runs");
        m_stopRequested.get_future().wait();
    }
    else
    {
        EnterState(SERVICE_STOP_PENDING);
    }
    Stop();
    EndWith(started ? NO_ERROR : kStartFailed);
}

bool ControlledService::Start()
{
    EnterState(SERVICE_START_PENDING);
    const Heartbeat heartbeat(*this);
    for (const std::function<void()>& step : m_work.start)
    {
        if (!Succeeds(step))
        {
            return false;
        }
        NextCheckpoint();
    }
    return true;
}

void ControlledService::Stop()
{
    const Heartbeat heartbeat(*this);
    for (const std::function<void()>& step : m_work.stop)
    {
        step();
        NextCheckpoint();
    }
}

void ControlledService::RequestStop()
{
    {
        const UtilsLib::ScopedLock lock(m_lock);
        if (m_status.dwCurrentState != SERVICE_RUNNING)
        {
            return; // a shutdown of the system can follow a stop
        }
        EnterState(SERVICE_STOP_PENDING);
    }
    LogLine(UtilsLib::LogTraceLevel::Information, "The service is asked to stop");
    m_stopRequested.set_value();
}

void ControlledService::EnterState(DWORD state)
{
    const UtilsLib::ScopedLock lock(m_lock);
    m_status.dwCurrentState = state;
    m_status.dwControlsAccepted = state == SERVICE_RUNNING ? SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_SHUTDOWN : 0;
    m_status.dwCheckPoint = IsPending(state) ? 1 : 0;
    m_status.dwWaitHint = IsPending(state) ? kWaitHint : 0;
    Report();
}

void ControlledService::EndWith(DWORD serviceExitCode)
{
    const UtilsLib::ScopedLock lock(m_lock);
    m_status.dwWin32ExitCode = serviceExitCode == NO_ERROR ? NO_ERROR : ERROR_SERVICE_SPECIFIC_ERROR;
    m_status.dwServiceSpecificExitCode = serviceExitCode;
    EnterState(SERVICE_STOPPED);
}

void ControlledService::NextCheckpoint()
{
    const UtilsLib::ScopedLock lock(m_lock);
    ++m_status.dwCheckPoint;
    Report();
}

void ControlledService::Report()
{
    SetServiceStatus(m_handle, &m_status);
}
