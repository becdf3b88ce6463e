#pragma once

#include <UtilsLib/WindowsTypes.h>
#include <UtilsLib/platform/UniqueResource.h>

namespace UtilsLib::Platform
{

struct UniqueModuleTraits
{
    using Type = HMODULE;
    static Type Invalid()
    {
        return nullptr;
    }
    static void Close(Type value);
};

/// One load of a library: what LoadLibrary gives and FreeLibrary takes back.
using UniqueModule = UniqueResource<UniqueModuleTraits>;

} // namespace UtilsLib::Platform
