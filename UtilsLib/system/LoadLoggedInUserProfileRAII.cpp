#include <UtilsLib/system/LoadLoggedInUserProfileRAII.h>

#include <UtilsLib/platform/LastErrorKeeper.h>
#include <UtilsLib/platform/UniqueServiceHandle.h>

#include <userenv.h>
#include <wtsapi32.h>

namespace UtilsLib
{

namespace
{

bool IsRunning(SC_HANDLE service)
{
    SERVICE_STATUS status = {};
    return QueryServiceStatus(service, &status) && status.dwCurrentState == SERVICE_RUNNING;
}

void CloseToken(HANDLE& token)
{
    if (token != INVALID_HANDLE_VALUE)
    {
        CloseHandle(token);
        token = INVALID_HANDLE_VALUE;
    }
}

} // namespace

LoadLoggedInUserProfileRAII::LoadLoggedInUserProfileRAII(const std::string& serviceName)
    : m_userToken(INVALID_HANDLE_VALUE),
      m_duplicateToken(INVALID_HANDLE_VALUE),
      m_profileInfo(),
      m_userHive(HKEY_CURRENT_USER),
      m_profileLoaded(false)
{
    const Platform::UniqueServiceHandle manager(OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
    if (!manager)
    {
        return;
    }
    const Platform::UniqueServiceHandle service(
        OpenServiceA(manager.Get(), serviceName.c_str(), SERVICE_START | SERVICE_STOP | SERVICE_QUERY_STATUS));
    if (service && IsRunning(service.Get()))
    {
        LoadProfileOfActiveUser();
    }
    if (!m_profileLoaded)
    {
        CloseTokens();
    }
}

LoadLoggedInUserProfileRAII::~LoadLoggedInUserProfileRAII()
{
    Cleanup();
}

HKEY LoadLoggedInUserProfileRAII::GetCurrentUserRegHive() const
{
    return m_userHive;
}

HANDLE LoadLoggedInUserProfileRAII::GetLoggedInUserToken() const
{
    return m_duplicateToken;
}

void LoadLoggedInUserProfileRAII::LoadProfileOfActiveUser()
{
    const unsigned long sessionId = GetActiveSessionId();
    if (sessionId == 0 || !TakeTokens(sessionId))
    {
        return;
    }
    // A profile is loaded with the rights to back up and to restore files.
    SetPrivilege(m_duplicateToken, "SeBackupPrivilege", true);
    SetPrivilege(m_duplicateToken, "SeRestorePrivilege", true);

    // kept: the name is not released, so that the profile record stays whole
    char* userName = nullptr;
    DWORD size = 0;
    if (!WTSQuerySessionInformationA(WTS_CURRENT_SERVER_HANDLE, sessionId, WTSUserName, &userName, &size))
    {
        return;
    }
    m_profileInfo.dwSize = sizeof(m_profileInfo);
    m_profileInfo.lpUserName = userName;
    if (LoadUserProfileA(m_duplicateToken, &m_profileInfo))
    {
        m_userHive = static_cast<HKEY>(m_profileInfo.hProfile);
        m_profileLoaded = true;
    }
}

bool LoadLoggedInUserProfileRAII::TakeTokens(unsigned long sessionId)
{
    // A failed call may leave anything in its result.
    HANDLE token = nullptr;
    if (!WTSQueryUserToken(sessionId, &token))
    {
        return false;
    }
    m_userToken = token;
    if (!DuplicateTokenEx(m_userToken, TOKEN_ALL_ACCESS, nullptr, SecurityImpersonation, TokenPrimary, &token))
    {
        return false;
    }
    m_duplicateToken = token;
    return true;
}

void LoadLoggedInUserProfileRAII::CloseTokens()
{
    const Platform::LastErrorKeeper keep;
    CloseToken(m_duplicateToken);
    CloseToken(m_userToken);
}

void LoadLoggedInUserProfileRAII::Cleanup()
{
    const Platform::LastErrorKeeper keep;
    if (m_profileLoaded)
    {
        UnloadUserProfile(m_duplicateToken, m_profileInfo.hProfile);
    }
    CloseTokens();
}

unsigned long LoadLoggedInUserProfileRAII::GetActiveSessionId() const
{
    // kept: the list is not released
    WTS_SESSION_INFOA* sessions = nullptr;
    DWORD count = 0;
    if (!WTSEnumerateSessionsA(WTS_CURRENT_SERVER_HANDLE, 0, 1, &sessions, &count))
    {
        return 0;
    }
    for (DWORD i = 0; i < count; ++i)
    {
        if (sessions[i].State == WTSActive)
        {
            return sessions[i].SessionId;
        }
    }
    return 0;
}

void LoadLoggedInUserProfileRAII::SetPrivilege(HANDLE token, const char* privilegeName, bool enable)
{
    TOKEN_PRIVILEGES privileges = {};
    privileges.PrivilegeCount = 1;
    privileges.Privileges[0].Attributes = enable ? SE_PRIVILEGE_ENABLED : 0;
    // kept: no result is checked; whether the rights were enough shows when the profile is loaded
    LookupPrivilegeValueA(nullptr, privilegeName, &privileges.Privileges[0].Luid);
    AdjustTokenPrivileges(token, FALSE, &privileges, sizeof(privileges), nullptr, nullptr);
}

} // namespace UtilsLib
