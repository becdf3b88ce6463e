#include <UtilsLib/platform/UniqueSid.h>

namespace UtilsLib::Platform
{

void UniqueSidTraits::Close(Type value)
{
    FreeSid(value);
}

} // namespace UtilsLib::Platform
