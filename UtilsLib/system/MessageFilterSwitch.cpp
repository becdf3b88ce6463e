#include <UtilsLib/system/MessageFilterSwitch.h>

#include <UtilsLib/WindowsTypes.h>

#include <objbase.h>

namespace UtilsLib
{

MessageFilterSwitch::MessageFilterSwitch()
{
    CoRegisterMessageFilter(nullptr, &m_previousFilter);
}

MessageFilterSwitch::~MessageFilterSwitch()
{
    CoRegisterMessageFilter(m_previousFilter, nullptr);
    if (m_previousFilter != nullptr)
    {
        m_previousFilter->Release(); // the registration holds one of its own
    }
}

} // namespace UtilsLib
