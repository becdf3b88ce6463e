#include <UtilsLib/registry/LiveRegSettings.h>

#include <UtilsLib/registry/RegUtils.h>
#include <UtilsLib/threading/ScopedLock.h>
#include <UtilsLib/threading/ThreadMonitor.h>

#include <memory>
#include <utility>

namespace UtilsLib
{

namespace
{

const char* const kWakeSemaphore = "hxds_drivetest_sm";
constexpr DWORD kWakeInterval = 500;                 // ms
constexpr unsigned long long kReadInterval = 20'000; // ms

const char* const kWatchedNames[] = {
    "hx41svc_logging",
    "hx41svc_logging_verbose",
    "hx41svc_logging_fileio",
    "hx41svc_logging_trace",
    "hx41svc_logging_category",
    "hx41svc_disable_log_truncation",
    "hx41svc_logging_grpc",
    "hx41svc_drivetest_enabled",
    "hx41svc_drivetest_httpstatuscode",
    "hx41svc_drivetest_httpretryafter",
    "hx41svc_drivetest_rebase",
    "disable_udp",
    "hx41svc_drivetest_force_corrupt_payload_download",
    "stack_logging",
    "ClientLogging",
    "hx41svc_bankcloud_scheduler_interval_secs",
    "hx41svc_local_analytics",
    "hx41svc_rebase_check_interval",
    "hx41svc_running_jobs_limit",
    "hx41svc_drive_dataset_inactivity_check_interval",
    "hx41svc_drive_dataset_inactivity_threshold",
};

} // namespace

LiveRegSettings& LiveRegSettings::GetInstance()
{
    static LiveRegSettings instance;
    return instance;
}

LiveRegSettings::LiveRegSettings() : Thread("LiveRegSettings"), m_wake(CreateSemaphoreA(nullptr, 0, 1, kWakeSemaphore))
{
    for (const char* const name : kWatchedNames)
    {
        m_values.try_emplace(name);
    }
    Read();
}

LiveRegSettings::~LiveRegSettings()
{
    Shutdown(); // the thread uses the members, which are gone when the base's destructor runs
    if (m_wake != nullptr)
    {
        CloseHandle(m_wake);
    }
}

bool LiveRegSettings::GetRegSetting(const std::string& name, unsigned long& value)
{
    const ScopedLock hold(m_lock);
    const auto found = m_values.find(name);
    if (found == m_values.end() || !found->second.present)
    {
        return false;
    }
    value = found->second.number;
    return true;
}

bool LiveRegSettings::SetRegSetting(const std::string& name, unsigned long value)
{
    return RegUtils::WriteHaldenRegDword(name, value);
}

void LiveRegSettings::Read()
{
    const ScopedLock hold(m_lock);
    for (const std::string* const name : ReadValues())
    {
        CallCallbacks(*name);
    }
}

void LiveRegSettings::RegisterRegSettingChanged(const std::string& name,
                                                std::function<void(const std::string&)> callback)
{
    // Shared, so that the copy which is called keeps a callback's state.
    const auto shared = std::make_shared<Callback>(std::move(callback));
    const ScopedLock hold(m_lock);
    m_callbacks[name].push_back([shared](const std::string& changed) { (*shared)(changed); });
}

void LiveRegSettings::ThreadProc()
{
    if (StopRequested())
    {
        return;
    }
    unsigned long long lastRead = 0;
    do
    {
        ThreadMonitor::GetInstance().ThreadCheckedShutdownStatus(GetCurrentThreadId(),
                                                                 static_cast<long long>(GetTickCount64()));
        WaitForSingleObject(m_wake, kWakeInterval);
        if (GetTickCount64() >= lastRead + kReadInterval)
        {
            Read();
            lastRead = GetTickCount64();
        }
    } while (!StopRequested());
}

std::vector<const std::string*> LiveRegSettings::ReadValues()
{
    std::vector<const std::string*> changed;
    for (auto& [name, cached] : m_values)
    {
        unsigned long number = 0;
        cached.present = RegUtils::ReadHaldenRegDword(name, number, 0);
        if (!cached.present)
        {
            continue; // kept: the number stays, so that one which comes back unchanged fires nothing
        }
        if (number != cached.number && m_callbacks.contains(name))
        {
            changed.push_back(&name);
        }
        cached.number = number;
    }
    return changed;
}

void LiveRegSettings::CallCallbacks(const std::string& name)
{
    // A copy, because a callback may register another one.
    const std::vector<Callback> callbacks = m_callbacks[name];
    for (const Callback& callback : callbacks)
    {
        callback(name);
    }
}

} // namespace UtilsLib
