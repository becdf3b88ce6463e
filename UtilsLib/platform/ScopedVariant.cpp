#include <UtilsLib/platform/ScopedVariant.h>

namespace UtilsLib::Platform
{

ScopedVariant::ScopedVariant()
{
    VariantInit(&m_value);
}

ScopedVariant::~ScopedVariant()
{
    VariantClear(&m_value);
}

VARIANT* ScopedVariant::Put()
{
    return &m_value;
}

BSTR ScopedVariant::String() const
{
    return V_VT(&m_value) == VT_BSTR ? V_BSTR(&m_value) : nullptr;
}

} // namespace UtilsLib::Platform
