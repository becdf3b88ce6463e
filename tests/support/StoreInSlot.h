#pragma once

#include <UtilsLib/WindowsTypes.h>

namespace TestSupport
{

/// Changes a pointer of a table that the system keeps from being written.
inline void StoreInSlot(void** slot, void* value)
{
    DWORD old = 0;
    VirtualProtect(slot, sizeof(*slot), PAGE_READWRITE, &old);
    InterlockedExchangePointer(slot, value);
    VirtualProtect(slot, sizeof(*slot), old, &old);
}

} // namespace TestSupport
