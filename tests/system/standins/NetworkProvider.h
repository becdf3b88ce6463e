#pragma once

#include <UtilsLib/WindowsTypes.h>

/// What the stand-in of mpr.dll does, by the functions of a test.
struct NetworkProvider
{
    DWORD (*getUniversalName)(const char* path, DWORD level, void* buffer, DWORD* size);
};

/// Exported by the stand-in. Null: no network.
extern "C" void SetNetworkProvider(const NetworkProvider* provider);
