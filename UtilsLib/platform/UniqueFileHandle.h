#pragma once

#include <UtilsLib/WindowsTypes.h>
#include <UtilsLib/platform/UniqueResource.h>

namespace UtilsLib::Platform
{

struct UniqueFileHandleTraits
{
    using Type = HANDLE;
    static Type Invalid()
    {
        return INVALID_HANDLE_VALUE;
    }
    static void Close(Type value);
};

/// A handle whose API fails with INVALID_HANDLE_VALUE: files and tool-help snapshots.
using UniqueFileHandle = UniqueResource<UniqueFileHandleTraits>;

} // namespace UtilsLib::Platform
