#include <UtilsLib/platform/LastErrorKeeper.h>

#include <UtilsLib/WindowsTypes.h>

namespace UtilsLib::Platform
{

LastErrorKeeper::LastErrorKeeper() : m_value(GetLastError())
{
}

LastErrorKeeper::~LastErrorKeeper()
{
    SetLastError(m_value);
}

unsigned long LastErrorKeeper::Value() const
{
    return m_value;
}

} // namespace UtilsLib::Platform
