#include <UtilsLib/system/Service.h>

#include <UtilsLib/platform/UniqueServiceHandle.h>
#include <UtilsLib/platform/VersionResource.h>

#include <algorithm>
#include <optional>
#include <regex>

namespace UtilsLib
{

namespace
{

using Platform::UniqueServiceHandle;

constexpr DWORD kPollInterval = 1000; // ms
constexpr DWORD kAllTypes = SERVICE_WIN32 | SERVICE_DRIVER;

/// A service with its manager, open for everything.
struct OpenedService
{
    explicit OpenedService(const std::string& name)
        : manager(OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS)),
          service(manager ? OpenServiceA(manager.Get(), name.c_str(), SERVICE_ALL_ACCESS) : nullptr)
    {
    }

    UniqueServiceHandle manager;
    UniqueServiceHandle service;
};

bool IsDataService(const char* displayName)
{
    return displayName != nullptr && std::regex_match(displayName, std::regex("^Corvane Ledgrix Service v[0-9]*$"));
}

void AppendDataService(SC_HANDLE manager, const ENUM_SERVICE_STATUSA& service,
                       std::vector<RequestLib::VersionInfo>& versions)
{
    const std::string path = Service::GetServiceBinaryPath(manager, service.lpServiceName);
    if (path.empty())
    {
        return;
    }
    RequestLib::VersionInfo version = Service::GetDataServiceVersion(path);
    version.name = service.lpDisplayName;
    versions.push_back(version);
}

void AppendDataServices(SC_HANDLE manager, std::vector<RequestLib::VersionInfo>& versions)
{
    ENUM_SERVICE_STATUSA one = {};
    DWORD needed = 0;
    DWORD count = 0;
    DWORD resume = 0;
    if (EnumServicesStatusA(manager, kAllTypes, SERVICE_STATE_ALL, &one, sizeof(one), &needed, &count, &resume) ||
        GetLastError() != ERROR_MORE_DATA)
    {
        return;
    }
    // Entries point into the buffer behind them: it is made of entries for their alignment.
    std::vector<ENUM_SERVICE_STATUSA> services(needed / sizeof(one) + 2);
    const DWORD size = needed + sizeof(one);
    resume = 0; // from the first one again
    if (!EnumServicesStatusA(manager, kAllTypes, SERVICE_STATE_ALL, services.data(), size, &needed, &count, &resume))
    {
        return;
    }
    for (DWORD i = 0; i < count; ++i)
    {
        if (IsDataService(services[i].lpDisplayName))
        {
            AppendDataService(manager, services[i], versions);
        }
    }
}

} // namespace

void Service::StopService(const std::string& serviceName)
{
    const OpenedService opened(serviceName);
    if (opened.service)
    {
        SERVICE_STATUS status = {};
        ControlService(opened.service.Get(), SERVICE_CONTROL_STOP, &status);
    }
}

void Service::Wait(const std::string& serviceName, int state, int seconds)
{
    const OpenedService opened(serviceName);
    if (!opened.service)
    {
        return;
    }
    SERVICE_STATUS status = {};
    for (int i = 0; i < seconds; ++i)
    {
        QueryServiceStatus(opened.service.Get(), &status); // kept: a failed query leaves the state of the one before
        if (status.dwCurrentState == static_cast<DWORD>(state))
        {
            return;
        }
        Sleep(kPollInterval);
    }
}

std::string Service::GetServiceBinaryPath(SC_HANDLE manager, const std::string& serviceName)
{
    const UniqueServiceHandle service(OpenServiceA(manager, serviceName.c_str(), SERVICE_QUERY_CONFIG));
    if (!service)
    {
        return {};
    }
    DWORD needed = 0;
    DWORD size = 0;
    if (!QueryServiceConfigA(service.Get(), nullptr, 0, &needed) && GetLastError() == ERROR_INSUFFICIENT_BUFFER)
    {
        size = needed;
    }
    std::vector<QUERY_SERVICE_CONFIGA> buffer(size / sizeof(QUERY_SERVICE_CONFIGA) + 1);
    if (!QueryServiceConfigA(service.Get(), buffer.data(), size, &needed) || buffer[0].lpBinaryPathName == nullptr)
    {
        return {};
    }
    std::string path = buffer[0].lpBinaryPathName;
    std::erase(path, '"');
    return path;
}

RequestLib::VersionInfo Service::GetDataServiceVersion(const std::string& path)
{
    RequestLib::VersionInfo version;
    if (const std::optional<VS_FIXEDFILEINFO> info = Platform::ReadFixedFileInfo(path))
    {
        version.major = HIWORD(info->dwFileVersionMS);
        version.minor = LOWORD(info->dwFileVersionMS);
        version.build = HIWORD(info->dwFileVersionLS);
    }
    return version;
}

bool Service::GetDataServiceVersions(std::vector<RequestLib::VersionInfo>& versions)
{
    UniqueServiceHandle manager(OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ENUMERATE_SERVICE));
    if (!manager)
    {
        return false;
    }
    AppendDataServices(manager.Get(), versions);
    manager.Reset();
    std::sort(versions.begin(), versions.end(),
              [](const RequestLib::VersionInfo& a, const RequestLib::VersionInfo& b) { return a.major > b.major; });
    return true;
}

} // namespace UtilsLib
