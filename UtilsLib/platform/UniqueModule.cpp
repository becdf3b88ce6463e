#include <UtilsLib/platform/UniqueModule.h>

namespace UtilsLib::Platform
{

void UniqueModuleTraits::Close(Type value)
{
    FreeLibrary(value);
}

} // namespace UtilsLib::Platform
