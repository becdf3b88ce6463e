#include <UtilsLib/platform/UniqueRegKey.h>

namespace UtilsLib::Platform
{

void UniqueRegKeyTraits::Close(Type value)
{
    RegCloseKey(value);
}

} // namespace UtilsLib::Platform
