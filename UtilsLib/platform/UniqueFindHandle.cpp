#include <UtilsLib/platform/UniqueFindHandle.h>

namespace UtilsLib::Platform
{

void UniqueFindHandleTraits::Close(Type value)
{
    FindClose(value);
}

} // namespace UtilsLib::Platform
