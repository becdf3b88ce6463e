#pragma once

#include <UtilsLib/WindowsTypes.h>
#include <UtilsLib/platform/UniqueResource.h>

#include <oleauto.h>

namespace UtilsLib::Platform
{

struct UniqueBstrTraits
{
    using Type = BSTR;
    static Type Invalid()
    {
        return nullptr;
    }
    static void Close(Type value);
};

/// A COM string; null and the empty string both count as empty.
using UniqueBstr = UniqueResource<UniqueBstrTraits>;

} // namespace UtilsLib::Platform
