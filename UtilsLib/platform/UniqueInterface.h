#pragma once

#include <UtilsLib/platform/UniqueResource.h>

namespace UtilsLib::Platform
{

template <typename Interface>
struct UniqueInterfaceTraits
{
    using Type = Interface*;
    static Type Invalid()
    {
        return nullptr;
    }
    static void Close(Type value)
    {
        value->Release();
    }
};

/// One reference on a COM object; to be given up on the thread and before the end of COM on it.
template <typename Interface>
using UniqueInterface = UniqueResource<UniqueInterfaceTraits<Interface>>;

} // namespace UtilsLib::Platform
