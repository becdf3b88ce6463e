#pragma once

#include <UtilsLib/WindowsTypes.h>

#include <lm.h>

/// What the stand-in of netapi32.dll does when it is called.
struct Workstation
{
    NET_API_STATUS(WINAPI* getInfo)(wchar_t* machine, DWORD level, BYTE** buffer);
    NET_API_STATUS(WINAPI* freeBuffer)(void* buffer);
};

/// Exported by the stand-in as "SetWorkstation". Before it is called, every call fails.
using SetWorkstationFunction = void(const Workstation* workstation);
