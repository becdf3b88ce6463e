#pragma once

#include <UtilsLib/WindowsTypes.h>
#include <UtilsLib/platform/UniqueResource.h>

namespace UtilsLib::Platform
{

struct UniqueRegKeyTraits
{
    using Type = HKEY;
    static Type Invalid()
    {
        return nullptr;
    }
    static void Close(Type value);
};

/// An open registry key.
using UniqueRegKey = UniqueResource<UniqueRegKeyTraits>;

} // namespace UtilsLib::Platform
