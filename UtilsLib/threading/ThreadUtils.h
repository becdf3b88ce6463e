#pragma once

#include <UtilsLib/Export.h>

#include <string>

namespace UtilsLib
{

/// Helpers about the threads of the process.
class UTILSLIB_API ThreadUtils
{
public:
    /// The id of the first thread of this process in the system's thread list, which need not be the thread that
    /// loaded the library; 0 when the list cannot be read. Any thread.
    static unsigned long GetMainThreadId();
    /// Does nothing and names no thread, on purpose: callers of long standing keep it.
    static void SetThreadName(const std::string& name);
};

} // namespace UtilsLib
