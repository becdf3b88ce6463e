#include <UtilsLib/system/LoadLoggedInUserProfileRAII.h>

#include <UtilsLib/platform/UniqueServiceHandle.h>

#include <tests/support/ChildProcess.h>
#include <tests/support/Gate.h>
#include <tests/support/TempFolder.h>
#include <tests/system/LoggedOnMachine.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

using TestSupport::Eventually;
using TestSupport::LastErrorText;
using UtilsLib::LoadLoggedInUserProfileRAII;
using UtilsLib::Platform::UniqueServiceHandle;

namespace
{

constexpr char kName[] = "UtilsLibProfileTest";

/// A real service, stopped, that is gone at scope end.
class InstalledService
{
public:
    InstalledService() : m_manager(OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS))
    {
        const UniqueServiceHandle leftOver(OpenServiceA(m_manager.Get(), kName, DELETE));
        DeleteService(leftOver.Get());
        const std::string program = "\"" + TestSupport::ProgramFolder() + "\\child_idle_service.exe\"";
        m_service.Reset(CreateServiceA(m_manager.Get(), kName, kName, SERVICE_ALL_ACCESS, SERVICE_WIN32_OWN_PROCESS,
                                       SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL, program.c_str(), nullptr, nullptr,
                                       nullptr, nullptr, nullptr));
        if (!m_service)
        {
            throw std::runtime_error(LastErrorText("CreateServiceA"));
        }
    }
    ~InstalledService()
    {
        Stop();
        DeleteService(m_service.Get());
    }
    InstalledService(const InstalledService&) = delete;
    InstalledService& operator=(const InstalledService&) = delete;

    bool Start() const
    {
        return StartServiceA(m_service.Get(), 0, nullptr) && Reaches(SERVICE_RUNNING);
    }
    bool Stop() const
    {
        SERVICE_STATUS status = {};
        return ControlService(m_service.Get(), SERVICE_CONTROL_STOP, &status) && Reaches(SERVICE_STOPPED);
    }

private:
    bool Reaches(DWORD state) const
    {
        return Eventually(
            [&] {
                SERVICE_STATUS status = {};
                return QueryServiceStatus(m_service.Get(), &status) && status.dwCurrentState == state;
            },
            std::chrono::seconds(20));
    }

    UniqueServiceHandle m_manager;
    UniqueServiceHandle m_service;
};

class ServiceProfileTest : public testing::Test
{
protected:
    LoggedOnMachine m_machine{LoggedOnMachine::Services::Real};
};

} // namespace

TEST_F(ServiceProfileTest, LoadsWhileTheInstalledServiceRunsAndNoLonger)
{
    const InstalledService service;
    ASSERT_TRUE(service.Start()) << LastErrorText("StartServiceA");
    {
        const LoadLoggedInUserProfileRAII profile("UTILSLIBprofiletest");
        EXPECT_EQ(m_machine.calls, kLoadCalls);
        EXPECT_EQ(profile.GetCurrentUserRegHive(), m_machine.hive);
        EXPECT_EQ(profile.GetLoggedInUserToken(), m_machine.duplicateToken);
    }
    m_machine.calls.clear();
    ASSERT_TRUE(service.Stop());

    const LoadLoggedInUserProfileRAII profile(kName);

    EXPECT_EQ(profile.GetCurrentUserRegHive(), HKEY_CURRENT_USER);
    EXPECT_EQ(profile.GetLoggedInUserToken(), INVALID_HANDLE_VALUE);
    EXPECT_THAT(m_machine.calls, testing::ElementsAre(kLoadCalls[0], kLoadCalls[1], kLoadCalls[2],
                                                      "CloseServiceHandle: service", "CloseServiceHandle: manager"));
}

TEST_F(ServiceProfileTest, LoadsNothingForAServiceThatIsMissing)
{
    SetLastError(ERROR_SUCCESS);
    const LoadLoggedInUserProfileRAII profile("UtilsLibNoSuchService");

    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SERVICE_DOES_NOT_EXIST));
    EXPECT_EQ(profile.GetCurrentUserRegHive(), HKEY_CURRENT_USER);
    EXPECT_EQ(profile.GetLoggedInUserToken(), INVALID_HANDLE_VALUE);
    EXPECT_THAT(m_machine.calls, testing::ElementsAre(kLoadCalls[0], kLoadCalls[1], "CloseServiceHandle: manager"));
}
