#pragma once

#include <UtilsLib/Export.h>
#include <UtilsLib/WindowsTypes.h>

#include <list>
#include <string>
#include <vector>

namespace UtilsLib
{

/// The calling thread's stack as text, for the log: of each frame module, function, source line and return address.
///
/// Frames without symbols are left out. An object belongs to one thread at a time; traces of several threads wait for
/// each other, because the system's debug-help library serves one caller only; after a minute a trace stays empty. A
/// trace loads and unloads the symbols of all modules (about a second): a rare diagnostic. It ends a debug-help session
/// that the process itself has open.
class UTILSLIB_API Stack
{
public:
    /// `searchPath` is where symbols are looked for; when it is empty, in the folder of the program.
    explicit Stack(const std::string& searchPath);
    /// Copies the search path and the frames.
    Stack(const Stack& other);
    /// Copies the search path and the frames.
    Stack& operator=(const Stack& other);
    ~Stack();

    /// Replaces the frames with the calling thread's stack, the caller first. Failures are not reported: frames are
    /// missing then. Leaves the debug-help library's options as it set them, and no session.
    void Trace();
    /// "\r\nTRACE:\r\n", a line for each frame, "\r\n".
    std::string AsString();

protected:
    // Steps of a trace, for use between SymInitialize and SymCleanup only.

    /// Sets the options and the search path and reads the list of modules. Always 1.
    int InitSymbolLookup(HANDLE process, const char* searchPath);
    /// The return addresses of `thread`, innermost first; the innermost comes twice. A thread other than the calling
    /// one must be suspended. Empty when its context cannot be read.
    std::list<unsigned long long> DumpStackTraceEx(HANDLE process, HANDLE thread);
    /// Appends the frame of `address`, unless no symbol is found for it.
    void TraceFrame(HANDLE process, unsigned long long address);

private:
    struct Frame
    {
        std::string module;
        std::string function;
        unsigned int line = 0; // 0 when unknown
        unsigned long long address = 0;
    };

    std::string m_searchPath;
    std::vector<Frame> m_frames; // outermost call last
};

} // namespace UtilsLib
