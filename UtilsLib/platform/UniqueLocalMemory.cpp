#include <UtilsLib/platform/UniqueLocalMemory.h>

namespace UtilsLib::Platform
{

void UniqueLocalMemoryTraits::Close(Type value)
{
    LocalFree(value);
}

} // namespace UtilsLib::Platform
