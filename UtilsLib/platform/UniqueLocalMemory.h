#pragma once

#include <UtilsLib/WindowsTypes.h>
#include <UtilsLib/platform/UniqueResource.h>

namespace UtilsLib::Platform
{

struct UniqueLocalMemoryTraits
{
    using Type = HLOCAL;
    static Type Invalid()
    {
        return nullptr;
    }
    static void Close(Type value);
};

/// Memory that the system allocated for the caller to free with LocalFree.
using UniqueLocalMemory = UniqueResource<UniqueLocalMemoryTraits>;

} // namespace UtilsLib::Platform
