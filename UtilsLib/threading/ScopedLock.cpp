#include <UtilsLib/threading/ScopedLock.h>

namespace UtilsLib
{

ScopedLock::ScopedLock(Lock& lock) : m_lock(lock)
{
    m_lock.Acquire();
}

ScopedLock::~ScopedLock()
{
    m_lock.Release();
}

} // namespace UtilsLib
