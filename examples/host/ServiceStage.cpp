#include <ServiceStage.h>

#include <AnsiText.h>

#include <UtilsLib/WindowsTypes.h>
#include <UtilsLib/system/HelperUtils.h>
#include <UtilsLib/system/ScopedServiceControl.h>
#include <UtilsLib/system/Service.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

using UtilsLib::ScopedServiceControl;
using UtilsLib::Service;

const char* const kHostServiceName = "UtilsLibExampleHost";

namespace
{

constexpr const char* kDisplayName = "UtilsLib example host";
constexpr int kLongestWait = 30;    // s
constexpr DWORD kLongestEnd = 5000; // ms
constexpr DWORD kPause = 50;

struct ServiceHandleCloser
{
    void operator()(SC_HANDLE handle) const
    {
        const DWORD error = GetLastError(); // of the call that failed: it is asked for after the handles are closed
        CloseServiceHandle(handle);
        SetLastError(error);
    }
};
using ServiceHandle = std::unique_ptr<std::remove_pointer_t<SC_HANDLE>, ServiceHandleCloser>;

ServiceHandle OpenManager(DWORD access)
{
    return ServiceHandle(OpenSCManagerA(nullptr, nullptr, access));
}

ServiceHandle OpenHostService(DWORD access)
{
    const ServiceHandle manager = OpenManager(SC_MANAGER_CONNECT);
    return ServiceHandle(manager ? OpenServiceA(manager.get(), kHostServiceName, access) : nullptr);
}

std::string ProgramPath()
{
    const std::filesystem::path host = UtilsLib::HelperUtils::GetBinaryPath();
    return AnsiText(host.parent_path() / "host_service.exe");
}

/// As an argument for the service, which runs in another folder. A separator before the closing quote would take that
/// for text.
std::string Argument(const std::string& relative)
{
    std::string path = AnsiText(std::filesystem::absolute(relative));
    while (path.ends_with('\\'))
    {
        path.pop_back();
    }
    return '"' + path + '"';
}

std::string LastErrorText(const std::string& what)
{
    return what + ": error " + std::to_string(GetLastError());
}

std::string StateText(unsigned long state)
{
    switch (state)
    {
    case SERVICE_STOPPED:
        return "stopped";
    case SERVICE_START_PENDING:
        return "starting";
    case SERVICE_STOP_PENDING:
        return "stopping";
    case SERVICE_RUNNING:
        return "running";
    default:
        return "in state " + std::to_string(state);
    }
}

/// A service that does not stop by itself would be deleted only with its process.
void EndProcessOf(SC_HANDLE service)
{
    SERVICE_STATUS_PROCESS status = {};
    DWORD needed = 0;
    QueryServiceStatusEx(service, SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE*>(&status), sizeof(status), &needed);
    if (status.dwProcessId == 0)
    {
        return;
    }
    const HANDLE process = OpenProcess(PROCESS_TERMINATE | SYNCHRONIZE, FALSE, status.dwProcessId);
    if (process != nullptr)
    {
        TerminateProcess(process, 1);
        WaitForSingleObject(process, kLongestEnd);
        CloseHandle(process);
    }
}

/// False when there was no such service, or it cannot be removed.
bool RemoveHostService()
{
    const ServiceHandle service = OpenHostService(DELETE | SERVICE_QUERY_STATUS);
    if (!service)
    {
        return false;
    }
    Service::StopService(kHostServiceName);
    Service::Wait(kHostServiceName, SERVICE_STOPPED, kLongestWait);
    EndProcessOf(service.get());
    return DeleteService(service.get()) != FALSE;
}

ServiceHandle CreateHostService(const std::string& commandLine)
{
    const ServiceHandle manager = OpenManager(SC_MANAGER_CREATE_SERVICE);
    return ServiceHandle(manager ? CreateServiceA(manager.get(), kHostServiceName, kDisplayName, SERVICE_QUERY_STATUS,
                                                  SERVICE_WIN32_OWN_PROCESS, SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL,
                                                  commandLine.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr)
                                 : nullptr);
}

/// A service that was removed is gone only when its process has ended and nobody holds it open.
bool InstallHostService(const std::string& commandLine)
{
    const ULONGLONG end = GetTickCount64() + kLongestEnd;
    while (!CreateHostService(commandLine))
    {
        if (GetLastError() != ERROR_SERVICE_MARKED_FOR_DELETE || GetTickCount64() > end)
        {
            return false;
        }
        Sleep(kPause);
    }
    return true;
}

/// The host's service for the life of the object.
class Installation
{
public:
    explicit Installation(const std::string& commandLine) : m_made(Replace(commandLine))
    {
    }
    ~Installation()
    {
        Remove();
    }
    Installation(const Installation&) = delete;
    Installation& operator=(const Installation&) = delete;

    /// With the last error when it is false.
    bool Made() const
    {
        return m_made;
    }
    bool Remove()
    {
        const bool removed = m_made && RemoveHostService();
        m_made = false;
        return removed;
    }

private:
    static bool Replace(const std::string& commandLine)
    {
        RemoveHostService(); // of a run that was killed
        return InstallHostService(commandLine);
    }

    bool m_made;
};

void ShowInstalled(Console& console)
{
    const ServiceHandle manager = OpenManager(SC_MANAGER_ENUMERATE_SERVICE);
    console.Value("command line", Service::GetServiceBinaryPath(manager.get(), kHostServiceName));
    const RequestLib::VersionInfo version = Service::GetDataServiceVersion(ProgramPath());
    console.Value("its program's version", std::to_string(version.major) + "." + std::to_string(version.minor) + "." +
                                               std::to_string(version.build));
    std::vector<RequestLib::VersionInfo> others;
    Service::GetDataServiceVersions(others);
    console.Value("the suite's services", std::to_string(others.size()) + " installed");
}

void ShowState(Console& console, ScopedServiceControl& control, const std::string& when)
{
    unsigned long state = 0;
    console.Value(when, control.GetStatus(state) ? StateText(state) : LastErrorText("unknown"));
}

/// Starts and restarts the installed service. A step that fails is said, and ends it.
void UseHostService(Console& console)
{
    ShowInstalled(console);
    ScopedServiceControl control(kHostServiceName);
    if (!control.StartSvc())
    {
        console.Line(LastErrorText("The service does not start"));
        return;
    }
    Service::Wait(kHostServiceName, SERVICE_RUNNING, kLongestWait);
    ShowState(console, control, "after the start");
    if (!control.RestartSvc())
    {
        console.Line(LastErrorText("The service does not restart"));
        return;
    }
    ShowState(console, control, "after a restart");
}

void ShowLog(Console& console, const std::string& logPath)
{
    std::ifstream file(logPath);
    for (std::string line; std::getline(file, line);)
    {
        console.Line(line);
    }
}

} // namespace

void RunAsService(Console& console, const std::string& company, const std::string& outFolder)
{
    const std::string logPath = outFolder + "\\service.log";
    std::error_code none;
    std::filesystem::remove(logPath, none); // of an earlier run
    Installation installation(Argument(ProgramPath()) + ' ' + Argument(logPath) + ' ' + Argument(company));
    if (!installation.Made())
    {
        console.Line(LastErrorText("Cannot install the service (that takes administrator rights)"));
        return;
    }
    UseHostService(console);
    console.Line(installation.Remove() ? "Stopped and removed; what the service has logged:"
                                       : LastErrorText("The service is not removed"));
    ShowLog(console, logPath);
}
