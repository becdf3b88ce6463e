#pragma once

#include <UtilsLib/Export.h>
#include <UtilsLib/WindowsTypes.h>

#include <profinfo.h>

#include <string>

namespace UtilsLib
{

/// The registry hive and the token of the user who is logged on, for a service that runs as the local system account.
///
/// The constructor loads the user's profile, the destructor unloads it; in between the object does not change. Failures
/// are not reported: an object that could not load hands out HKEY_CURRENT_USER and no token, as every program outside
/// the running service gets. Use hive and token only while the object lives. Any thread; there is no lock.
/// Copies are shallow on purpose: handles are copied, not duplicated, and each object unloads and closes them at its
/// end. The buffers of the terminal services (a few hundred bytes an object) are left to the process on purpose.
class UTILSLIB_API LoadLoggedInUserProfileRAII
{
public:
    /// Loads the profile of the user of the first active session, if the service `serviceName` (its key name, in any
    /// letter case) runs. Blocks while Windows loads the profile. The caller must be the local system account, with the
    /// right to open the service control manager for all access. Nothing is loaded when that session is number 0 or any
    /// step fails; the last error is then that of the failed step.
    explicit LoadLoggedInUserProfileRAII(const std::string& serviceName);
    /// Copies the fields, on purpose: the handles are shared, and each object unloads and closes them.
    LoadLoggedInUserProfileRAII(const LoadLoggedInUserProfileRAII&) = default;
    /// Copies the fields. What this object held before is neither unloaded nor closed.
    LoadLoggedInUserProfileRAII& operator=(const LoadLoggedInUserProfileRAII&) = default;
    /// Unloads the profile and closes the tokens. Keeps the thread's last error.
    ~LoadLoggedInUserProfileRAII();

    /// The user's own hive, or HKEY_CURRENT_USER when nothing was loaded. The object's: do not close it.
    HKEY GetCurrentUserRegHive() const;
    /// A primary token of the user with all access, or INVALID_HANDLE_VALUE when nothing was loaded. The object's: do
    /// not close it.
    HANDLE GetLoggedInUserToken() const;

private:
    void LoadProfileOfActiveUser();
    bool TakeTokens(unsigned long sessionId);
    void CloseTokens();
    void Cleanup();
    /// Of the first active session of this machine; 0 also when there is none, since session 0 is the services' own.
    unsigned long GetActiveSessionId() const;
    /// Enables or disables that one privilege of `token`. A failure is not reported.
    void SetPrivilege(HANDLE token, const char* privilegeName, bool enable);

    HANDLE m_userToken;         // as the terminal services return it; INVALID_HANDLE_VALUE when not held
    HANDLE m_duplicateToken;    // its primary duplicate with all access; INVALID_HANDLE_VALUE when not held
    PROFILEINFOA m_profileInfo; // its user name is a buffer of the terminal services that stays
    HKEY m_userHive;            // HKEY_CURRENT_USER or the loaded hive
    bool m_profileLoaded;       // true only after a successful load
};

} // namespace UtilsLib
