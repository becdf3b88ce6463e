#pragma once

#include <UtilsLib/Export.h>
#include <UtilsLib/ThreadAnnotations.h>
#include <UtilsLib/WindowsTypes.h>

namespace UtilsLib
{

/// The library's one mutual-exclusion primitive: a recursive Windows critical section. Any thread may use it; a thread
/// that holds it may take it again and must release it as often. Waiters are served as the system serves them.
class UTILSLIB_API UTILSLIB_CAPABILITY("Lock") Lock
{
public:
    Lock();
    /// No thread may hold the lock or wait for it.
    ~Lock();
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

    /// Blocks without a time limit until the lock is free or already held by the calling thread.
    void Acquire() UTILSLIB_ACQUIRE();
    /// Only by the thread that holds it.
    void Release() UTILSLIB_RELEASE();
    /// The id of the thread that holds the lock, 0 when none does. A snapshot, read without taking the lock.
    unsigned long GetOwningThreadId() const;

private:
    CRITICAL_SECTION m_section;
};

// Here for speed, and outside the class because GCC exports no function that is defined within one.

inline void Lock::Acquire()
{
    EnterCriticalSection(&m_section);
}

inline void Lock::Release()
{
    LeaveCriticalSection(&m_section);
}

} // namespace UtilsLib
