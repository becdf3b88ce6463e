#include <UtilsLib/system/RaiiObject.h>

namespace UtilsLib
{

RaiiObject::RaiiObject(const std::function<void()>& onEnter, const std::function<void()>& onExit)
    : m_onEnter(onEnter), m_onExit(onExit)
{
    m_onEnter();
}

RaiiObject::RaiiObject(const RaiiObject& other) = default;

RaiiObject::~RaiiObject() noexcept(false)
{
    m_onExit(); // kept: throws when it is empty
}

RaiiObject& RaiiObject::operator=(const RaiiObject& other) = default;

} // namespace UtilsLib
