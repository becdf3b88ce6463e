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
    /// The Windows domain or workgroup of this computer, as the workstation service names it; "unknown" when that does
    /// not answer. May take as long as that service does.
    static std::string GetDomainName();
    /// The user that the calling thread acts for: in a service that is the service's account, not the user at the
    /// console. Empty when it cannot be read.
    static std::string GetCurrentUserName();
    /// The full path of the executable of this process, of any length.
    static std::string GetBinaryPath();
    /// The full path of a module that this process has loaded; empty when it has not. A name without a suffix means
    /// ".dll".
    static std::string GetModulePath(const std::string& moduleName);
    /// True when the machine's uninstall list has a key of that name which this process may read. A 32-bit process sees
    /// the list of 32-bit applications. The empty name is the list itself, so true.
    static bool GetApplicationInstalled(const std::string& applicationKey);
    /// True for a folder whose attributes can be read; a file is none.
    static bool DirectoryExists(const std::string& path);
    /// Deletes a folder and all that is in it, read-only files too, through the shell, without progress and questions;
    /// into the recycle bin unless `permanently`. Blocks until the shell is done. Give a full path. Nothing is deleted
    /// when the path, or one of those in the folder, has more than 259 characters, or when it has wildcards.
    ///
    /// Only what is there afterwards counts: true when the path is no folder, whether it has been deleted, never was
    /// one or names a file; a file is deleted too. False when the folder stays, for instance because a file in it is
    /// open; parts of it may be gone then.
    static bool DeleteDirectory(const std::string& path, bool permanently);
    /// Adds full access for the account named "SYSTEM" to the folder's access list, for it and all that is in it; the
    /// other entries stay. For a folder that has no access list, which means full access for all, nothing is changed.
    ///
    /// False when a step failed (87 for an empty path). Its error code and the thread's last error are then logged, and
    /// the last error is left as the failed step left it.
    static bool GrantLocalSystemFullAccessToDirectory(const std::string& path);
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
