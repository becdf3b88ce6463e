#pragma once

namespace UtilsLib::Platform
{

/// The calling thread's turn with the system's debug-help library, which serves one thread at a time.
///
/// A thread that has the turn may take it again: it may crash within a trace, and is to write its dump then. The turn
/// of a thread that ended without giving it back is free. Usable from the library's load to the process's very end,
/// since a crash can come at any time; when the library's statics are gone, nobody waits any more.
class DebugHelpTurn
{
public:
    /// Waits until no other thread has the turn, `limit` ms at most.
    explicit DebugHelpTurn(unsigned long limit);
    ~DebugHelpTurn();
    DebugHelpTurn(const DebugHelpTurn&) = delete;
    DebugHelpTurn& operator=(const DebugHelpTurn&) = delete;

    /// Ends the turn before the scope's end. By the thread that took it; harmless when repeated.
    void GiveBack();

    /// Whether another thread had the turn first.
    bool Waited() const;
    /// Whether another thread still has the turn, since the limit ended the wait.
    bool TimedOut() const;

private:
    bool m_taken = false;
    bool m_waited = false;
    bool m_timedOut = false;
};

} // namespace UtilsLib::Platform
