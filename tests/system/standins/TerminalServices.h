#pragma once

#include <UtilsLib/WindowsTypes.h>

#include <wtsapi32.h>

/// What the stand-in of wtsapi32.dll does when it is called.
struct TerminalServices
{
    decltype(&WTSEnumerateSessionsA) enumerateSessions;
    decltype(&WTSQueryUserToken) queryUserToken;
    decltype(&WTSQuerySessionInformationA) querySessionInformation;
    decltype(&WTSFreeMemory) freeMemory;
};

/// Exported by the stand-in as "SetTerminalServices". Before it is called, every call fails.
using SetTerminalServicesFunction = void(const TerminalServices* services);
