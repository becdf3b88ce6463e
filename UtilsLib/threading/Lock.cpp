#include <UtilsLib/threading/Lock.h>

namespace UtilsLib
{

Lock::Lock()
{
    InitializeCriticalSection(&m_section);
}

Lock::~Lock()
{
    DeleteCriticalSection(&m_section);
}

unsigned long Lock::GetOwningThreadId() const
{
    // The system keeps the id in the handle-sized field while the section is held. Volatile, because other threads
    // change it behind the compiler's back; a pointer-sized read is whole.
    const HANDLE owner = *static_cast<const volatile HANDLE*>(&m_section.OwningThread);
    return static_cast<unsigned long>(reinterpret_cast<ULONG_PTR>(owner));
}

} // namespace UtilsLib
