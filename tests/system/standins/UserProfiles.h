#pragma once

#include <UtilsLib/WindowsTypes.h>

#include <profinfo.h>

/// What the stand-in of userenv.dll does when it is called.
struct UserProfiles
{
    BOOL(WINAPI* loadUserProfile)(HANDLE token, LPPROFILEINFOA info);
    BOOL(WINAPI* unloadUserProfile)(HANDLE token, HANDLE profile);
};

/// Exported by the stand-in as "SetUserProfiles". Before it is called, every call fails.
using SetUserProfilesFunction = void(const UserProfiles* profiles);
