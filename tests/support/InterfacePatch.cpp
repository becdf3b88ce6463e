#include <tests/support/InterfacePatch.h>

#include <UtilsLib/WindowsTypes.h>

namespace TestSupport
{

namespace
{

void Store(void** slot, void* value)
{
    DWORD old = 0;
    VirtualProtect(slot, sizeof(*slot), PAGE_READWRITE, &old);
    InterlockedExchangePointer(slot, value);
    VirtualProtect(slot, sizeof(*slot), old, &old);
}

} // namespace

InterfacePatch::InterfacePatch(void* object, std::size_t slot, void* replacement, int)
    : m_slot(*static_cast<void***>(object) + slot), m_original(*m_slot)
{
    Store(m_slot, replacement);
}

InterfacePatch::~InterfacePatch()
{
    Store(m_slot, m_original);
}

} // namespace TestSupport
