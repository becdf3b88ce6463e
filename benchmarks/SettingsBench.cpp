#include <benchmarks/Job.h>

#include <UtilsLib/WindowsTypes.h>
#include <UtilsLib/platform/UniqueRegKey.h>
#include <UtilsLib/registry/LiveRegSettings.h>

#include <map>
#include <string>

using UtilsLib::LiveRegSettings;
using UtilsLib::Platform::UniqueRegKey;

namespace Bench
{
namespace
{

const std::string kName = "hx41svc_logging"; // main has set it

struct Cached
{
    unsigned long number = 1;
    bool present = true;
};

/// The cache's data and nothing else.
class PlainCache
{
public:
    PlainCache()
    {
        for (const char* const name : {"hx41svc_logging",
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
                                       "hx41svc_drive_dataset_inactivity_threshold"})
        {
            m_values[name];
        }
        InitializeCriticalSection(&m_lock);
    }
    ~PlainCache()
    {
        DeleteCriticalSection(&m_lock);
    }
    PlainCache(const PlainCache&) = delete;
    PlainCache& operator=(const PlainCache&) = delete;

    __attribute__((noinline)) bool Get(const std::string& name, unsigned long& value)
    {
        EnterCriticalSection(&m_lock);
        const auto found = m_values.find(name);
        const bool present = found != m_values.end() && found->second.present;
        if (present)
        {
            value = found->second.number;
        }
        LeaveCriticalSection(&m_lock);
        return present;
    }

private:
    CRITICAL_SECTION m_lock;
    std::map<std::string, Cached> m_values;
};

template <typename Get>
void Measure(benchmark::State& state, Get get)
{
    for (auto _ : state)
    {
        unsigned long value = 0;
        if (!get(value) || value != 1)
        {
            state.SkipWithError("the value was not found");
        }
        benchmark::DoNotOptimize(value);
    }
}

void MeasureOurs(benchmark::State& state)
{
    LiveRegSettings& settings = LiveRegSettings::GetInstance();
    Measure(state, [&settings](unsigned long& value) { return settings.GetRegSetting(kName, value); });
}

void MeasureRegistry(benchmark::State& state)
{
    UniqueRegKey key;
    RegOpenKeyExA(HKEY_LOCAL_MACHINE, "Software\\Corvane\\Halden", 0, KEY_READ, key.Put());
    Measure(state, [&key](unsigned long& value) {
        DWORD size = sizeof(value);
        return RegQueryValueExA(key.Get(), kName.c_str(), nullptr, nullptr, reinterpret_cast<BYTE*>(&value), &size) ==
               ERROR_SUCCESS;
    });
}

void MeasureMap(benchmark::State& state)
{
    PlainCache cache;
    Measure(state, [&cache](unsigned long& value) { return cache.Get(kName, value); });
}

} // namespace

void AddSettingsJobs()
{
    Job::Add("GetRegSetting", {.mostOfFloor = 1.1})
        .Ours(&MeasureOurs)
        .Alternative("RegQueryValueExA, open key", &MeasureRegistry)
        .Floor("map under a critical section", &MeasureMap);
}

} // namespace Bench
