#pragma once

#include <windows.h>

/// Tells the parent that this child has come to the point it waits for.
inline void SignalReady()
{
    char name[128] = "";
    GetEnvironmentVariableA("UTILSLIB_READY", name, sizeof(name));
    if (const HANDLE event = OpenEventA(EVENT_MODIFY_STATE, FALSE, name))
    {
        SetEvent(event);
        CloseHandle(event);
    }
}

/// Waits until the parent lets this child go on; false after half a minute.
inline bool WaitForGo()
{
    char name[128] = "";
    GetEnvironmentVariableA("UTILSLIB_GO", name, sizeof(name));
    const HANDLE event = OpenEventA(SYNCHRONIZE, FALSE, name);
    if (event == nullptr)
    {
        return false;
    }
    const bool told = WaitForSingleObject(event, 30'000) == WAIT_OBJECT_0;
    CloseHandle(event);
    return told;
}
