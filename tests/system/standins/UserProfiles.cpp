#define _USERENV_ // this DLL is where the functions are

#include <tests/system/standins/UserProfiles.h>

#include <userenv.h>

namespace
{

const UserProfiles* g_profiles = nullptr;

} // namespace

extern "C"
{

    void SetUserProfiles(const UserProfiles* profiles)
    {
        g_profiles = profiles;
    }

    BOOL WINAPI LoadUserProfileA(HANDLE token, LPPROFILEINFOA info)
    {
        return g_profiles != nullptr && g_profiles->loadUserProfile(token, info);
    }

    BOOL WINAPI UnloadUserProfile(HANDLE token, HANDLE profile)
    {
        return g_profiles != nullptr && g_profiles->unloadUserProfile(token, profile);
    }

} // extern "C"
