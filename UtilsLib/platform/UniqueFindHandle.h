#pragma once

#include <UtilsLib/WindowsTypes.h>
#include <UtilsLib/platform/UniqueResource.h>

namespace UtilsLib::Platform
{

struct UniqueFindHandleTraits
{
    using Type = HANDLE;
    static Type Invalid()
    {
        return INVALID_HANDLE_VALUE;
    }
    static void Close(Type value);
};

/// A search of FindFirstFile.
using UniqueFindHandle = UniqueResource<UniqueFindHandleTraits>;

} // namespace UtilsLib::Platform
