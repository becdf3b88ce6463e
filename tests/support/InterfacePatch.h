#pragma once

#include <cstddef>

namespace TestSupport
{

/// Sends the calls of one method of a COM class to a stand-in until scope end: of every object that shares the method
/// table with `object`, and of callers in any module. The stand-in is a WINAPI function whose first argument is the
/// object. `slot` counts from 0, QueryInterface.
class InterfacePatch
{
public:
    template <typename Function>
    InterfacePatch(void* object, std::size_t slot, Function* replacement)
        : InterfacePatch(object, slot, reinterpret_cast<void*>(replacement), 0)
    {
    }
    ~InterfacePatch();
    InterfacePatch(const InterfacePatch&) = delete;
    InterfacePatch& operator=(const InterfacePatch&) = delete;

    /// The method that was there before, for stand-ins that hand calls on.
    template <typename Function>
    Function* Original() const
    {
        return reinterpret_cast<Function*>(m_original);
    }

private:
    InterfacePatch(void* object, std::size_t slot, void* replacement, int);

    void** m_slot;
    void* m_original;
};

} // namespace TestSupport
