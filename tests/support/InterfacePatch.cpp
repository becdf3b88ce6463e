#include <tests/support/InterfacePatch.h>

#include <tests/support/StoreInSlot.h>

namespace TestSupport
{

InterfacePatch::InterfacePatch(void* object, std::size_t slot, void* replacement, int)
    : m_slot(*static_cast<void***>(object) + slot), m_original(*m_slot)
{
    StoreInSlot(m_slot, replacement);
}

InterfacePatch::~InterfacePatch()
{
    StoreInSlot(m_slot, m_original);
}

} // namespace TestSupport
