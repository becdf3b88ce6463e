#pragma once

#include <UtilsLib/threading/Lock.h>

namespace UtilsLib
{

/// Holds a `Lock` for the life of the object; also when the scope is left by an exception. There is no early release.
class UTILSLIB_API UTILSLIB_SCOPED_CAPABILITY ScopedLock
{
public:
    /// Blocks until `lock` is held. `lock` must outlive the object.
    explicit ScopedLock(Lock& lock) UTILSLIB_ACQUIRE(lock);
    ~ScopedLock() UTILSLIB_RELEASE();
    ScopedLock(const ScopedLock&) = delete;
    ScopedLock& operator=(const ScopedLock&) = delete;

private:
    Lock& m_lock;
};

// Here for speed, and outside the class because GCC exports no function that is defined within one.

inline ScopedLock::ScopedLock(Lock& lock) : m_lock(lock)
{
    m_lock.Acquire();
}

inline ScopedLock::~ScopedLock()
{
    m_lock.Release();
}

} // namespace UtilsLib
