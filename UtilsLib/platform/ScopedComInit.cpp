#include <UtilsLib/platform/ScopedComInit.h>

#include <objbase.h>

namespace UtilsLib::Platform
{

ScopedComInit::ScopedComInit() : m_result(CoInitialize(nullptr))
{
}

ScopedComInit::~ScopedComInit()
{
    if (SUCCEEDED(m_result))
    {
        CoUninitialize();
    }
}

} // namespace UtilsLib::Platform
