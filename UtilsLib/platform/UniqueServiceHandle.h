#pragma once

#include <UtilsLib/WindowsTypes.h>
#include <UtilsLib/platform/UniqueResource.h>

namespace UtilsLib::Platform
{

struct UniqueServiceHandleTraits
{
    using Type = SC_HANDLE;
    static Type Invalid()
    {
        return nullptr;
    }
    static void Close(Type value);
};

/// A handle of the service control manager: the manager itself or a service.
using UniqueServiceHandle = UniqueResource<UniqueServiceHandleTraits>;

} // namespace UtilsLib::Platform
