#pragma once

#include <tests/support/ImportPatch.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace TestSupport
{

/// Watches the locks that UtilsLib.dll takes and leaves on the thread that made the recorder, until scope end. One at a
/// time. A lock is known by the address of its critical section, which is that of the `Lock`.
class LockRecorder
{
public:
    using Hook = std::function<void()>;

    LockRecorder();
    ~LockRecorder();
    LockRecorder(const LockRecorder&) = delete;
    LockRecorder& operator=(const LockRecorder&) = delete;

    /// Gives a lock the letter under which `Steps` shows it; others show as '?'.
    void Name(const void* lock, char letter);
    /// What was done so far: "+a+b-b-a" when b was taken and left inside of a.
    std::string Steps() const;
    /// Called while the lock is held, right after any lock was taken.
    void OnTaken(Hook hook);
    /// Called while the lock is still held, right before any lock is left.
    void OnLeaving(Hook hook);

private:
    static void WINAPI Enter(CRITICAL_SECTION* section);
    static void WINAPI Leave(CRITICAL_SECTION* section);
    void Record(char step, const void* section);

    unsigned long m_threadId;
    std::vector<std::pair<const void*, char>> m_names;
    std::vector<std::pair<char, const void*>> m_steps;
    Hook m_taken;
    Hook m_leaving;
    ImportPatch m_enter;
    ImportPatch m_leave;
};

} // namespace TestSupport
