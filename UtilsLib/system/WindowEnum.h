#pragma once

#include <UtilsLib/Export.h>
#include <UtilsLib/WindowsTypes.h>

namespace UtilsLib
{

/// Finds the window of this program that the user sees on top, for instance as the owner of a message box.
///
/// Meant for the user-interface thread: the result passes through a field of the whole class, so of two threads that
/// search at once, one may get what the other found, or null.
class UTILSLIB_API WindowEnum
{
public:
    WindowEnum();
    ~WindowEnum();
    /// Nothing to copy.
    WindowEnum(const WindowEnum&) = default;
    /// Nothing to copy.
    WindowEnum& operator=(const WindowEnum&) = default;

    /// The visible top-level window of this process that is highest in the z-order of the calling thread's desktop; a
    /// minimised one counts as visible. Null when there is none. The window may be gone as soon as this returns.
    static HWND FindTopMostCurrentProcessWindow();

protected:
    /// Called for each top-level window, the highest first: stores a visible one of this process in `m_hWndTop` and
    /// returns 0, which ends the enumeration; for all others returns 1. `parameter` is not used.
    static BOOL CALLBACK EnumWindowsProc(HWND window, LPARAM parameter);

    static HWND m_hWndTop; ///< what the last search has found; null if nothing
};

} // namespace UtilsLib
