#include <UtilsLib/platform/UniqueServiceHandle.h>

namespace UtilsLib::Platform
{

void UniqueServiceHandleTraits::Close(Type value)
{
    CloseServiceHandle(value);
}

} // namespace UtilsLib::Platform
