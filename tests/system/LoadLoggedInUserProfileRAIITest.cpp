#include <UtilsLib/system/LoadLoggedInUserProfileRAII.h>

#include <UtilsLib/registry/RegUtils.h>

#include <tests/support/FieldsOf.h>
#include <tests/support/OpenHandles.h>
#include <tests/system/LoggedOnMachine.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <optional>
#include <type_traits>

using TestSupport::OpenHandles;
using UtilsLib::LoadLoggedInUserProfileRAII;

namespace
{

constexpr char kService[] = "hx41svc";

static_assert(std::is_copy_assignable_v<LoadLoggedInUserProfileRAII>);
static_assert(!std::is_convertible_v<std::string, LoadLoggedInUserProfileRAII>);

struct Fields
{
    HANDLE userToken;
    HANDLE duplicateToken;
    PROFILEINFOA profileInfo;
    HKEY userHive;
    bool profileLoaded;
};

const Fields& FieldsOf(const LoadLoggedInUserProfileRAII& profile)
{
    return TestSupport::FieldsOf<Fields>(profile);
}

void ExpectEmpty(const LoadLoggedInUserProfileRAII& profile)
{
    EXPECT_EQ(profile.GetCurrentUserRegHive(), HKEY_CURRENT_USER);
    EXPECT_EQ(profile.GetLoggedInUserToken(), INVALID_HANDLE_VALUE);
    EXPECT_EQ(FieldsOf(profile).userToken, INVALID_HANDLE_VALUE);
    EXPECT_FALSE(FieldsOf(profile).profileLoaded);
}

/// The privileges that a token has, each with whether it is enabled.
std::map<std::string, bool> PrivilegesOf(HANDLE token)
{
    std::map<std::string, bool> result;
    DWORD size = 0;
    GetTokenInformation(token, TokenPrivileges, nullptr, 0, &size);
    std::vector<BYTE> buffer(size);
    if (!GetTokenInformation(token, TokenPrivileges, buffer.data(), size, &size))
    {
        return result;
    }
    auto* const privileges = reinterpret_cast<TOKEN_PRIVILEGES*>(buffer.data());
    for (DWORD i = 0; i < privileges->PrivilegeCount; ++i)
    {
        char name[64] = "";
        DWORD length = sizeof(name);
        LookupPrivilegeNameA(nullptr, &privileges->Privileges[i].Luid, name, &length);
        result[name] = (privileges->Privileges[i].Attributes & SE_PRIVILEGE_ENABLED) != 0;
    }
    return result;
}

class LoadLoggedInUserProfileRAIITest : public testing::Test
{
protected:
    LoadLoggedInUserProfileRAIITest()
    {
        {
            const LoadLoggedInUserProfileRAII warmUp(kService); // opens what the system itself keeps
        }
        m_machine.Forget();
    }

    LoggedOnMachine m_machine;
};

} // namespace

TEST_F(LoadLoggedInUserProfileRAIITest, LoadsTheProfileOfTheActiveUserStepByStep)
{
    const LoadLoggedInUserProfileRAII profile(kService);

    EXPECT_EQ(m_machine.calls, kLoadCalls);
    EXPECT_NE(m_machine.hive, nullptr);
    EXPECT_EQ(profile.GetCurrentUserRegHive(), m_machine.hive);
    EXPECT_NE(m_machine.duplicateToken, m_machine.userToken);
    EXPECT_EQ(profile.GetLoggedInUserToken(), m_machine.duplicateToken);
}

TEST_F(LoadLoggedInUserProfileRAIITest, UnloadsTheProfileThenClosesTheDuplicateThenTheUsersToken)
{
    const unsigned long before = OpenHandles();
    {
        const LoadLoggedInUserProfileRAII profile(kService);
        EXPECT_EQ(OpenHandles(), before + 3); // two tokens and the hive
        m_machine.calls.clear();
        SetLastError(ERROR_DISK_FULL);
    }

    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_DISK_FULL));
    EXPECT_EQ(m_machine.calls, kCleanupCalls);
    EXPECT_EQ(OpenHandles(), before);
}

TEST_F(LoadLoggedInUserProfileRAIITest, ClosesTheTokensWhenTheProfileDoesNotUnload)
{
    {
        const LoadLoggedInUserProfileRAII profile(kService);
        m_machine.failing = "UnloadUserProfile";
        m_machine.calls.clear();
    }

    EXPECT_EQ(m_machine.calls, kCleanupCalls);
}

TEST_F(LoadLoggedInUserProfileRAIITest, AFailedStepEndsTheLoadAndClosesWhatIsHeldOnce)
{
    const std::string manager = "CloseServiceHandle: manager";
    const std::string service = "CloseServiceHandle: service";
    const std::string user = "CloseHandle: user token";
    const std::string duplicate = "CloseHandle: duplicate";
    const struct
    {
        std::string step;
        std::vector<std::string> closes;
    } cases[] = {
        {"OpenSCManagerA", {}},
        {"OpenServiceA", {manager}},
        {"QueryServiceStatus", {service, manager}},
        {"WTSEnumerateSessionsA", {service, manager}},
        {"WTSQueryUserToken", {service, manager}},
        {"DuplicateTokenEx", {user, service, manager}},
        {"WTSQuerySessionInformationA", {duplicate, user, service, manager}},
        {"LoadUserProfileA", {duplicate, user, service, manager}},
    };
    const unsigned long before = OpenHandles();
    for (const auto& [step, closes] : cases)
    {
        SCOPED_TRACE(step);
        m_machine.failing = step;
        m_machine.calls.clear();
        const auto failed = std::find_if(kLoadCalls.begin(), kLoadCalls.end(),
                                         [&, name = step](const auto& call) { return call.starts_with(name + ":"); });
        std::vector<std::string> expected(kLoadCalls.begin(), failed + 1);
        expected.insert(expected.end(), closes.begin(), closes.end());
        {
            SetLastError(ERROR_SUCCESS);
            const LoadLoggedInUserProfileRAII profile(kService);

            EXPECT_EQ(GetLastError(), LoggedOnMachine::kRefused);
            ExpectEmpty(profile);
            EXPECT_EQ(m_machine.calls, expected);
            m_machine.calls.clear();
        }
        EXPECT_THAT(m_machine.calls, testing::IsEmpty());
    }
    EXPECT_EQ(OpenHandles(), before);
}

TEST_F(LoadLoggedInUserProfileRAIITest, LoadsOnlyWhileTheServiceRuns)
{
    for (DWORD state = SERVICE_STOPPED; state <= SERVICE_PAUSED; ++state)
    {
        SCOPED_TRACE(state);
        m_machine.serviceState = state;
        m_machine.calls.clear();
        const LoadLoggedInUserProfileRAII profile(kService);

        if (state == SERVICE_RUNNING)
        {
            EXPECT_EQ(profile.GetCurrentUserRegHive(), m_machine.hive);
            continue;
        }
        ExpectEmpty(profile);
        EXPECT_THAT(m_machine.calls,
                    testing::ElementsAre(kLoadCalls[0], kLoadCalls[1], kLoadCalls[2], "CloseServiceHandle: service",
                                         "CloseServiceHandle: manager"));
    }
}

TEST_F(LoadLoggedInUserProfileRAIITest, TakesTheFirstSessionThatIsActive)
{
    using Session = std::pair<DWORD, WTS_CONNECTSTATE_CLASS>;
    const struct
    {
        std::vector<Session> sessions;
        std::string expected; // the session; empty for none
    } cases[] = {
        {{}, ""},
        {{{0, WTSDisconnected}}, ""},
        {{{1, WTSActive}}, "1"},
        {{{0, WTSDisconnected}, {7, WTSActive}, {5, WTSActive}}, "7"},
        {{{2, WTSConnected}, {3, WTSIdle}, {4, WTSListen}, {65536, WTSActive}}, "65536"},
        {{{2, WTSConnected}, {3, WTSConnectQuery}, {4, WTSShadow}, {5, WTSReset}, {6, WTSDown}, {7, WTSInit}}, ""},
    };
    for (const auto& [sessions, expected] : cases)
    {
        m_machine.sessions.clear();
        for (const auto& [id, state] : sessions)
        {
            m_machine.AddSession(id, state);
        }
        m_machine.calls.clear();
        const LoadLoggedInUserProfileRAII profile(kService);

        SCOPED_TRACE(testing::PrintToString(m_machine.calls));
        if (expected.empty())
        {
            ExpectEmpty(profile);
            EXPECT_EQ(m_machine.Count("WTSQueryUserToken"), 0);
            continue;
        }
        EXPECT_THAT(m_machine.calls, testing::Contains("WTSQueryUserToken: session " + expected));
        EXPECT_THAT(m_machine.calls,
                    testing::Contains("WTSQuerySessionInformationA: session " + expected + ", user name"));
        EXPECT_EQ(profile.GetCurrentUserRegHive(), m_machine.hive);
    }
}

TEST_F(LoadLoggedInUserProfileRAIITest, AnActiveSession0CountsAsNoneAndHidesLaterOnes)
{
    m_machine.sessions.clear();
    m_machine.AddSession(0, WTSActive);
    m_machine.AddSession(3, WTSActive);

    const LoadLoggedInUserProfileRAII profile(kService);

    ExpectEmpty(profile);
    EXPECT_EQ(m_machine.Count("WTSQueryUserToken"), 0);
    EXPECT_EQ(m_machine.Count("CloseServiceHandle"), 2);
}

TEST_F(LoadLoggedInUserProfileRAIITest, FillsSizeAndUserNameOfTheProfileRecordAndNothingElse)
{
    m_machine.userName = "Zo\xEB of the long name";

    const LoadLoggedInUserProfileRAII profile(kService);

    EXPECT_EQ(m_machine.profile.dwSize, sizeof(PROFILEINFOA));
    EXPECT_EQ(m_machine.profileUserName, "Zo\xEB of the long name");
    EXPECT_EQ(m_machine.profile.dwFlags, 0u);
    EXPECT_EQ(m_machine.profile.lpProfilePath, nullptr);
    EXPECT_EQ(m_machine.profile.lpDefaultPath, nullptr);
    EXPECT_EQ(m_machine.profile.lpServerName, nullptr);
    EXPECT_EQ(m_machine.profile.lpPolicyPath, nullptr);
    EXPECT_EQ(m_machine.profile.hProfile, nullptr);
}

TEST_F(LoadLoggedInUserProfileRAIITest, EnablesBackupAndRestoreOnTheDuplicateAlone)
{
    const LoadLoggedInUserProfileRAII profile(kService);

    std::map<std::string, bool> expected = PrivilegesOf(m_machine.userToken);
    ASSERT_EQ(expected.count("SeBackupPrivilege"), 1u);
    EXPECT_FALSE(expected["SeBackupPrivilege"]);
    EXPECT_FALSE(expected["SeRestorePrivilege"]);
    expected["SeBackupPrivilege"] = true;
    expected["SeRestorePrivilege"] = true;
    EXPECT_EQ(PrivilegesOf(profile.GetLoggedInUserToken()), expected);
}

TEST_F(LoadLoggedInUserProfileRAIITest, LoadsTheProfileWhateverBecomesOfThePrivileges)
{
    for (const char* refused : {"LookupPrivilegeValueA", "AdjustTokenPrivileges"})
    {
        SCOPED_TRACE(refused);
        m_machine.failing = refused;
        m_machine.calls.clear();
        const LoadLoggedInUserProfileRAII profile(kService);

        EXPECT_EQ(m_machine.Count("LookupPrivilegeValueA"), 2);
        EXPECT_EQ(m_machine.Count("AdjustTokenPrivileges"), 2);
        EXPECT_EQ(profile.GetCurrentUserRegHive(), m_machine.hive);
    }
}

TEST_F(LoadLoggedInUserProfileRAIITest, LeavesTheBuffersOfTheTerminalServicesToTheProcess)
{
    {
        const LoadLoggedInUserProfileRAII profile(kService);
        EXPECT_STREQ(FieldsOf(profile).profileInfo.lpUserName, "anna");
    }

    EXPECT_EQ(m_machine.Count("WTSFreeMemory"), 0);
}

TEST_F(LoadLoggedInUserProfileRAIITest, HoldsItsFieldsInTheOrderThatHostsKnow)
{
    const LoadLoggedInUserProfileRAII profile(kService);
    const Fields& fields = FieldsOf(profile);

    static_assert(sizeof(Fields) == sizeof(LoadLoggedInUserProfileRAII));
    EXPECT_EQ(fields.userToken, m_machine.userToken);
    EXPECT_EQ(fields.duplicateToken, m_machine.duplicateToken);
    EXPECT_EQ(fields.profileInfo.dwSize, sizeof(PROFILEINFOA));
    EXPECT_EQ(fields.profileInfo.hProfile, m_machine.hive);
    EXPECT_EQ(fields.userHive, m_machine.hive);
    EXPECT_TRUE(fields.profileLoaded);
}

TEST_F(LoadLoggedInUserProfileRAIITest, CopiesShareTheHandlesAndEachEndsThem)
{
    m_machine.serviceState = SERVICE_STOPPED;
    std::optional<LoadLoggedInUserProfileRAII> copy(kService);
    m_machine.serviceState = SERVICE_RUNNING;
    std::optional<LoadLoggedInUserProfileRAII> original(kService);
    const unsigned long before = OpenHandles();
    m_machine.calls.clear();

    *copy = *original;

    EXPECT_EQ(copy->GetLoggedInUserToken(), m_machine.duplicateToken);
    EXPECT_EQ(copy->GetCurrentUserRegHive(), m_machine.hive);
    EXPECT_EQ(OpenHandles(), before);
    EXPECT_THAT(m_machine.calls, testing::IsEmpty());
    original.reset();
    EXPECT_EQ(m_machine.calls, kCleanupCalls);
    m_machine.calls.clear();
    copy.reset();
    EXPECT_EQ(m_machine.calls, kCleanupCalls);
}

TEST_F(LoadLoggedInUserProfileRAIITest, HandsOutAHiveThatTheRegistryHelpersRead)
{
    const LoadLoggedInUserProfileRAII profile(kService);
    HKEY key = nullptr; // the stand-in's hive is HKEY_CURRENT_USER\Software
    ASSERT_EQ(RegCreateKeyExA(HKEY_CURRENT_USER, "Software\\ProfileTest", 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key,
                              nullptr),
              ERROR_SUCCESS);
    RegSetValueExA(key, "name", 0, REG_SZ, reinterpret_cast<const BYTE*>("anna"), 5);
    RegCloseKey(key);

    std::string value;
    EXPECT_TRUE(
        UtilsLib::RegUtils::ReadRegString("ProfileTest", "name", value, profile.GetCurrentUserRegHive(), KEY_READ));

    EXPECT_EQ(value, "anna");
    RegDeleteKeyA(HKEY_CURRENT_USER, "Software\\ProfileTest");
}
