#pragma once

#include <UtilsLib/WindowsTypes.h>
#include <UtilsLib/platform/UniqueResource.h>

namespace UtilsLib::Platform
{

struct UniqueSidTraits
{
    using Type = PSID;
    static Type Invalid()
    {
        return nullptr;
    }
    static void Close(Type value);
};

/// A security identifier of AllocateAndInitializeSid.
using UniqueSid = UniqueResource<UniqueSidTraits>;

} // namespace UtilsLib::Platform
