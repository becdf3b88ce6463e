#include <UtilsLib/system/ScopedServiceControl.h>

#include <UtilsLib/platform/LastErrorKeeper.h>

namespace UtilsLib
{

namespace
{

constexpr unsigned int kPollInterval = 500; // ms
constexpr unsigned int kLongestWait = 30'000;

/// The pauses between the queries of one wait.
class Polling
{
public:
    bool TimedOut() const
    {
        return m_timedOut;
    }
    void Pause()
    {
        m_elapsed += kPollInterval;
        Sleep(kPollInterval);
        m_timedOut = m_elapsed > kLongestWait;
    }

private:
    unsigned int m_elapsed = 0; // counted, not measured
    bool m_timedOut = false;
};

void CloseIfOpen(SC_HANDLE handle)
{
    if (handle != nullptr)
    {
        CloseServiceHandle(handle);
    }
}

} // namespace

ScopedServiceControl::ScopedServiceControl(const std::string& serviceName)
    : m_scManager(OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS)), m_service(nullptr)
{
    if (m_scManager != nullptr)
    {
        m_service = OpenServiceA(m_scManager, serviceName.c_str(), SERVICE_START | SERVICE_STOP | SERVICE_QUERY_STATUS);
    }
}

// kept: the handles are copied, not duplicated, and an assignment does not close those that it overwrites.
ScopedServiceControl::ScopedServiceControl(const ScopedServiceControl& other) = default;
ScopedServiceControl& ScopedServiceControl::operator=(const ScopedServiceControl& other) = default;

ScopedServiceControl::~ScopedServiceControl()
{
    const Platform::LastErrorKeeper keep;
    CloseIfOpen(m_scManager);
    CloseIfOpen(m_service);
}

bool ScopedServiceControl::StartSvc()
{
    return StartServiceA(m_service, 0, nullptr) != FALSE;
}

bool ScopedServiceControl::StopSvc()
{
    SERVICE_STATUS status = {};
    return ControlService(m_service, SERVICE_CONTROL_STOP, &status) != FALSE;
}

bool ScopedServiceControl::GetStatus(unsigned long& state)
{
    SERVICE_STATUS status = {};
    if (!QueryServiceStatus(m_service, &status))
    {
        return false;
    }
    state = status.dwCurrentState;
    return true;
}

bool ScopedServiceControl::RestartSvc()
{
    unsigned long state = 0;
    if (!GetStatus(state))
    {
        return false;
    }
    if (state != SERVICE_STOPPED && state != SERVICE_STOP_PENDING && !StopSvc())
    {
        return false;
    }
    return WaitForStopped() && StartSvc() && WaitForRunning();
}

bool ScopedServiceControl::WaitForStopped()
{
    Polling polling;
    unsigned long state = 0;
    // kept: a failed query is taken for "stopped".
    while (GetStatus(state) && state != SERVICE_STOPPED)
    {
        if (polling.TimedOut())
        {
            return false;
        }
        polling.Pause();
    }
    return !polling.TimedOut(); // kept: having stopped by the very last query is too late
}

bool ScopedServiceControl::WaitForRunning()
{
    Polling polling;
    unsigned long state = 0;
    // kept: a failed query is taken for "running".
    while (GetStatus(state) && state != SERVICE_RUNNING && !polling.TimedOut())
    {
        polling.Pause();
    }
    return !polling.TimedOut();
}

} // namespace UtilsLib
