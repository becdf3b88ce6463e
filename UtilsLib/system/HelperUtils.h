#pragma once

#include <UtilsLib/Export.h>
#include <UtilsLib/events/Event.h>

#include <string>
#include <vector>

namespace UtilsLib
{

/// Who and where the program runs, and small questions about folders and errors.
///
/// Failures are told by the result and never thrown. Any thread; there is no state. Texts are in the ANSI code page.
class UTILSLIB_API HelperUtils
{
public:
    /// The computer's NetBIOS name, as the system spells it; empty when it cannot be read.
    static std::string GetLocalMachineName();
    /// The user that the calling thread acts for: in a service that is the service's account, not the user at the
    /// console. Empty when it cannot be read.
    static std::string GetCurrentUserName();
    /// The full path of the executable of this process, of any length.
    static std::string GetBinaryPath();
    /// The full path of a module that this process has loaded; empty when it has not. A name without a suffix means
    /// ".dll".
    static std::string GetModulePath(const std::string& moduleName);
    /// True for a folder whose attributes can be read; a file is none.
    static bool DirectoryExists(const std::string& path);
    /// True for a path in the output folder of a test run: one with a folder "TestResults" and a folder "Out", in any
    /// letter case and either order. Both must have a separator on each side.
    static bool IsUnitTestRun(const std::string& path);
    /// True when the user's folder for temporary files, with its trailing separator, occurs anywhere in `path`, in any
    /// letter case. So the folder itself, written without a separator at its end, is not in it.
    static bool IsTemp(const std::string& path);
    /// The system's text of the calling thread's last error, with the line end that the system puts there; also sent
    /// to the debugger. Empty for a code without a text. The last error stays as it is.
    static std::string GetLastErrorMessage();
    /// Removes "\accdata" from the end of `path`, in place. Strict: nothing is removed when the letters are written
    /// otherwise, when a separator follows, or when "\accdata" also occurs earlier in the path.
    static void TrimAccdata(std::string& path);
    /// Copies of the events that the user wants to see, in their order: an event is dropped when its scope, zone and
    /// type are all those of some entry of `hidden`.
    static std::vector<Event> FilterEvents(const std::vector<Event>& events, const std::vector<EventDontShow>& hidden);
};

} // namespace UtilsLib
