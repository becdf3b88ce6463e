#pragma once

#include <UtilsLib/WindowsTypes.h>

#include <oleauto.h>

namespace UtilsLib::Platform
{

/// A variant that starts empty and is cleared at scope end.
class ScopedVariant
{
public:
    ScopedVariant();
    ~ScopedVariant();
    ScopedVariant(const ScopedVariant&) = delete;
    ScopedVariant& operator=(const ScopedVariant&) = delete;

    /// The place that an API writes to; what it holds is not cleared first.
    VARIANT* Put();
    /// The string that it holds, still owned by the variant. Null when it holds another type: the member that a string
    /// stands in is a number or a pointer of another kind then.
    BSTR String() const;

private:
    VARIANT m_value;
};

} // namespace UtilsLib::Platform
