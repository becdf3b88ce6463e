#include <UtilsLib/platform/DebugHelpTurn.h>

namespace UtilsLib::Platform
{

namespace
{

constexpr DWORD kPause = 10; // ms between two attempts

/// Made when the library is loaded, not at the first crash, and never deleted: a destructor that runs later may crash.
/// Without debug information a critical section holds nothing that would be left behind.
struct Section
{
    Section()
    {
        InitializeCriticalSectionEx(&section, 0, CRITICAL_SECTION_NO_DEBUG_INFO);
    }
    CRITICAL_SECTION section;
};
Section g_turn;

} // namespace

DebugHelpTurn::DebugHelpTurn() : m_taken(true)
{
    EnterCriticalSection(&g_turn.section);
}

DebugHelpTurn::DebugHelpTurn(unsigned long limit)
{
    const ULONGLONG start = GetTickCount64();
    for (;;)
    {
        m_taken = TryEnterCriticalSection(&g_turn.section) != FALSE;
        if (m_taken || GetTickCount64() - start >= limit)
        {
            return;
        }
        m_waited = true;
        Sleep(kPause);
    }
}

DebugHelpTurn::~DebugHelpTurn()
{
    if (m_taken)
    {
        LeaveCriticalSection(&g_turn.section);
    }
}

bool DebugHelpTurn::Taken() const
{
    return m_taken;
}

bool DebugHelpTurn::Waited() const
{
    return m_waited;
}

} // namespace UtilsLib::Platform
