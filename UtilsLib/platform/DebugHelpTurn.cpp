#include <UtilsLib/platform/DebugHelpTurn.h>

#include <UtilsLib/WindowsTypes.h>

#include <utility>

namespace UtilsLib::Platform
{

namespace
{

/// A mutex of the system's, which knows when its owner has ended. Null outside the life of the statics.
HANDLE g_turn = nullptr;

/// Makes the mutex when the library is loaded, not at the first crash.
struct TurnMaker
{
    TurnMaker()
    {
        g_turn = CreateMutexA(nullptr, FALSE, nullptr);
    }
    ~TurnMaker()
    {
        if (g_turn != nullptr)
        {
            CloseHandle(std::exchange(g_turn, nullptr));
        }
    }
};
const TurnMaker g_maker;

bool IsTaken(DWORD result)
{
    return result == WAIT_OBJECT_0 || result == WAIT_ABANDONED;
}

} // namespace

DebugHelpTurn::DebugHelpTurn(unsigned long limit)
{
    if (g_turn == nullptr)
    {
        return;
    }
    DWORD result = WaitForSingleObject(g_turn, 0);
    m_waited = result == WAIT_TIMEOUT;
    if (m_waited)
    {
        result = WaitForSingleObject(g_turn, limit);
    }
    m_taken = IsTaken(result);
    m_timedOut = result == WAIT_TIMEOUT;
}

DebugHelpTurn::~DebugHelpTurn()
{
    GiveBack();
}

void DebugHelpTurn::GiveBack()
{
    if (std::exchange(m_taken, false))
    {
        ReleaseMutex(g_turn);
    }
}

bool DebugHelpTurn::Waited() const
{
    return m_waited;
}

bool DebugHelpTurn::TimedOut() const
{
    return m_timedOut;
}

} // namespace UtilsLib::Platform
