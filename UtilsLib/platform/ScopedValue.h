#pragma once

#include <utility>

namespace UtilsLib::Platform
{

/// Gives a variable another value until scope end; then it has again what it had before.
template <typename Type>
class ScopedValue
{
public:
    /// `variable` has to stay until scope end.
    ScopedValue(Type& variable, Type value) : m_variable(variable), m_outer(std::exchange(variable, value))
    {
    }
    ~ScopedValue()
    {
        m_variable = m_outer;
    }
    ScopedValue(const ScopedValue&) = delete;
    ScopedValue& operator=(const ScopedValue&) = delete;

private:
    Type& m_variable;
    const Type m_outer;
};

} // namespace UtilsLib::Platform
