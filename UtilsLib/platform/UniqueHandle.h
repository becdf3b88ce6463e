#pragma once

#include <UtilsLib/WindowsTypes.h>
#include <UtilsLib/platform/UniqueResource.h>

namespace UtilsLib::Platform
{

struct UniqueHandleTraits
{
    using Type = HANDLE;
    static Type Invalid()
    {
        return nullptr;
    }
    static void Close(Type value);
};

/// A handle whose API fails with null: events, semaphores, threads, processes, tokens.
using UniqueHandle = UniqueResource<UniqueHandleTraits>;

} // namespace UtilsLib::Platform
