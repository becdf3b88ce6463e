#pragma once

#include <UtilsLib/WindowsTypes.h>

namespace UtilsLib::Platform
{

/// The calling thread's turn with the system's debug-help library, which serves one thread at a time.
///
/// A thread that has the turn may take it again: it may crash within a trace, and is to write its dump then. Ready from
/// the library's load to the process's very end, since a crash can come at any time.
class DebugHelpTurn
{
public:
    /// Waits until no other thread has the turn.
    DebugHelpTurn();
    /// Waits `limit` ms at most and then goes on without the turn: a thread that never gives it back must not keep a
    /// dying process alive.
    explicit DebugHelpTurn(unsigned long limit);
    ~DebugHelpTurn();
    DebugHelpTurn(const DebugHelpTurn&) = delete;
    DebugHelpTurn& operator=(const DebugHelpTurn&) = delete;

    /// False when the time limit ended the wait.
    bool Taken() const;
    /// Whether another thread had the turn first. Known with a time limit only.
    bool Waited() const;

private:
    bool m_taken = false;
    bool m_waited = false;
};

} // namespace UtilsLib::Platform
