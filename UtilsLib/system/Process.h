#pragma once

#include <UtilsLib/Export.h>

#include <string>

namespace UtilsLib
{

/// Questions about processes. Any thread; there is no state.
class UTILSLIB_API Process
{
public:
    /// Sets `running` to true when a process of any user has the executable `executableName`: the whole file name with
    /// its suffix and without a folder, in any letter case. Otherwise `running` keeps what the caller put there:
    ///
    ///     bool running = false;
    ///     if (Process::IsRunning("Ledger.exe", running) && running)
    ///
    /// False when the processes cannot be listed.
    static bool IsRunning(const std::string& executableName, bool& running);
    /// Ends this process at once with exit code 0. No exit handler and no destructor runs, and nothing is flushed: what
    /// the logger has queued is lost unless it was shut down before. Does not return.
    static void KillCurrentProcess();
};

} // namespace UtilsLib
