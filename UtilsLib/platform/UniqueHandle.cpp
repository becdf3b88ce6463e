#include <UtilsLib/platform/UniqueHandle.h>

namespace UtilsLib::Platform
{

void UniqueHandleTraits::Close(Type value)
{
    CloseHandle(value);
}

} // namespace UtilsLib::Platform
