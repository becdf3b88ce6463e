#include <UtilsLib/system/LoadLoggedInUserProfileRAII.h>

#include <tests/support/InstalledService.h>
#include <tests/support/TempFolder.h>
#include <tests/system/LoggedOnMachine.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using TestSupport::InstalledService;
using TestSupport::LastErrorText;
using UtilsLib::LoadLoggedInUserProfileRAII;

namespace
{

constexpr char kName[] = "UtilsLibProfileTest";

class ServiceProfileTest : public testing::Test
{
protected:
    LoggedOnMachine m_machine{LoggedOnMachine::Services::Real};
};

} // namespace

TEST_F(ServiceProfileTest, LoadsWhileTheInstalledServiceRunsAndNoLonger)
{
    const InstalledService service(kName);
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
