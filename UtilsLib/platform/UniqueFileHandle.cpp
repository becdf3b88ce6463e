#include <UtilsLib/platform/UniqueFileHandle.h>

namespace UtilsLib::Platform
{

void UniqueFileHandleTraits::Close(Type value)
{
    CloseHandle(value);
}

} // namespace UtilsLib::Platform
