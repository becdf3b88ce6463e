#include <tests/support/InstalledService.h>

#include <UtilsLib/platform/UniqueHandle.h>

#include <tests/support/ChildProcess.h>
#include <tests/support/Gate.h>
#include <tests/support/TempFolder.h>

#include <gtest/gtest.h>

#include <stdexcept>
#include <vector>

namespace TestSupport
{

namespace
{

using UtilsLib::Platform::UniqueHandle;
using UtilsLib::Platform::UniqueServiceHandle;

UniqueServiceHandle OpenManager(DWORD access)
{
    UniqueServiceHandle manager(OpenSCManagerA(nullptr, nullptr, access));
    if (!manager)
    {
        throw std::runtime_error(LastErrorText("OpenSCManagerA"));
    }
    return manager;
}

SERVICE_STATUS_PROCESS StatusOf(SC_HANDLE service)
{
    SERVICE_STATUS_PROCESS status = {};
    DWORD needed = 0;
    QueryServiceStatusEx(service, SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE*>(&status), sizeof(status), &needed);
    return status;
}

bool ReachesState(SC_HANDLE service, DWORD state, std::chrono::milliseconds limit)
{
    return Eventually([&] { return StatusOf(service).dwCurrentState == state; }, limit);
}

bool SendControl(SC_HANDLE service, DWORD control)
{
    SERVICE_STATUS status = {};
    return ControlService(service, control, &status) != FALSE;
}

void EndProcessOf(SC_HANDLE service)
{
    const UniqueHandle process(OpenProcess(PROCESS_TERMINATE | SYNCHRONIZE, FALSE, StatusOf(service).dwProcessId));
    if (process)
    {
        TerminateProcess(process.Get(), 1);
        WaitForSingleObject(process.Get(), 5000);
    }
}

void Remove(SC_HANDLE service)
{
    if (!SendControl(service, SERVICE_CONTROL_STOP) || !ReachesState(service, SERVICE_STOPPED, std::chrono::seconds(3)))
    {
        EndProcessOf(service);
    }
    DeleteService(service);
}

/// Whether tests install services of that name.
bool IsOfTests(const std::string& name)
{
    return name.starts_with("UtilsLib") || name.starts_with("Corvane Ledgrix");
}

std::vector<std::string> InstalledNames()
{
    constexpr DWORD kSize = 0x40000; // more than the system gives at once
    std::vector<BYTE> buffer(kSize);
    auto* const services = reinterpret_cast<ENUM_SERVICE_STATUSA*>(buffer.data());
    DWORD needed = 0;
    DWORD count = 0;
    DWORD resume = 0;
    const UniqueServiceHandle manager = OpenManager(SC_MANAGER_ENUMERATE_SERVICE);
    EnumServicesStatusA(manager.Get(), SERVICE_WIN32, SERVICE_STATE_ALL, services, kSize, &needed, &count, &resume);
    std::vector<std::string> names;
    for (DWORD i = 0; i < count; ++i)
    {
        names.push_back(services[i].lpServiceName);
    }
    return names;
}

/// A test that was killed leaves its services behind: they go before the first test of the next program.
class RemovesLeftOvers : public testing::Environment
{
    void SetUp() override
    {
        const UniqueServiceHandle manager = OpenManager(SC_MANAGER_CONNECT);
        for (const std::string& name : InstalledNames())
        {
            if (IsOfTests(name))
            {
                Remove(UniqueServiceHandle(OpenServiceA(manager.Get(), name.c_str(), SERVICE_ALL_ACCESS)).Get());
                EXPECT_TRUE(Eventually([&] { return !IsInstalled(name); })) << name;
            }
        }
    }
};

testing::Environment* const g_removesLeftOvers = testing::AddGlobalTestEnvironment(new RemovesLeftOvers);

} // namespace

std::string ServiceCommandLine(const std::string& arguments, const std::string& program)
{
    return "\"" + ProgramFolder() + "\\" + program + ".exe\"" + (arguments.empty() ? "" : " " + arguments);
}

InstalledService::InstalledService(const std::string& name, const std::string& commandLine,
                                   const std::string& displayName)
{
    if (!IsOfTests(name))
    {
        throw std::runtime_error(name + " would not be removed after a killed test");
    }
    const UniqueServiceHandle manager = OpenManager(SC_MANAGER_CREATE_SERVICE);
    // A service of that name which was deleted is gone only when its process has ended.
    const bool decided = Eventually(
        [&] {
            m_service.Reset(CreateServiceA(manager.Get(), name.c_str(),
                                           displayName.empty() ? name.c_str() : displayName.c_str(), SERVICE_ALL_ACCESS,
                                           SERVICE_WIN32_OWN_PROCESS, SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL,
                                           commandLine.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr));
            return m_service || GetLastError() != ERROR_SERVICE_MARKED_FOR_DELETE;
        },
        std::chrono::seconds(10));
    if (!decided || !m_service)
    {
        throw std::runtime_error(LastErrorText("CreateServiceA " + name));
    }
}

InstalledService::~InstalledService()
{
    Remove(m_service.Get());
}

bool InstalledService::Start(std::chrono::milliseconds limit) const
{
    return StartServiceA(m_service.Get(), 0, nullptr) && Reaches(SERVICE_RUNNING, limit);
}

bool InstalledService::Stop() const
{
    return Control(SERVICE_CONTROL_STOP) && Reaches(SERVICE_STOPPED);
}

bool InstalledService::Reaches(DWORD state, std::chrono::milliseconds limit) const
{
    return ReachesState(m_service.Get(), state, limit);
}

bool InstalledService::Control(DWORD control) const
{
    return SendControl(m_service.Get(), control);
}

SERVICE_STATUS_PROCESS InstalledService::Status() const
{
    return StatusOf(m_service.Get());
}

bool IsInstalled(const std::string& name)
{
    const UniqueServiceHandle manager = OpenManager(SC_MANAGER_CONNECT);
    return static_cast<bool>(UniqueServiceHandle(OpenServiceA(manager.Get(), name.c_str(), SERVICE_QUERY_STATUS)));
}

} // namespace TestSupport
