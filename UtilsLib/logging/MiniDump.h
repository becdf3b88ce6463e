#pragma once

#include <UtilsLib/Export.h>
#include <UtilsLib/WindowsTypes.h>

/// @file
/// Crash dumps. All three functions are global and may be called by any thread. The file is
/// "c:\hx41svc crashdump 15-Nov-2026 04-45-23.dmp" with the local time, so of two dumps of the same second the later
/// one remains. A dump that cannot be written whole leaves no file and no message. Dumps and stack traces take turns; a
/// dump waits half a minute at most for another thread's, and ten seconds for another thread's DllMain: within one that
/// does not end, none can be written. When the stack is full, a thread of its own writes the dump.

/// Writes a dump of this process that shows `exception` on the calling thread. Always 1.
///
/// With an exception, `written` tells whether the dump was written. Null stands for the place of the call: the function
/// raises an access violation there itself, by a write to address 0, and the dump shows that; then `written` is set to
/// true, or, when the dump could not be written, keeps its value while the access violation goes on to the caller's own
/// structured exception handlers and, if none takes it, ends the process.
UTILSLIB_API DWORD CreateMiniDump(EXCEPTION_POINTERS* exception, bool& written);

/// A filter for SetUnhandledExceptionFilter: breaks into the debugger if there is one, writes a dump and ends the
/// process at once, by TerminateProcess with the exception's code, also when there is no dump. Without a record the
/// code is that of an access violation. Does not come back; the result, 1, is for the type's sake.
///
/// A thread that has waited for another one's dump (or trace) gives that one two seconds to end the process, so that
/// its dump stays.
UTILSLIB_API LONG WINAPI LastChanceMiniDumpProcess(EXCEPTION_POINTERS* exception);

/// A handler for std::set_terminate: breaks into the debugger if there is one, writes the dump of
/// CreateMiniDump(nullptr) and comes back; std::terminate then ends the process with abort's exit code, 3. When the
/// dump cannot be written, the access violation ends it. Gives way to another thread's dump as
/// LastChanceMiniDumpProcess does.
UTILSLIB_API void LastChanceTerminate();
