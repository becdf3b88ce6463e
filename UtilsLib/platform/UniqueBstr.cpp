#include <UtilsLib/platform/UniqueBstr.h>

namespace UtilsLib::Platform
{

void UniqueBstrTraits::Close(Type value)
{
    SysFreeString(value);
}

} // namespace UtilsLib::Platform
