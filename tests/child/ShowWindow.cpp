// Shows a window above all others of a desktop until told to go: child_show_window DESKTOP.
#include <tests/child/Signals.h>

int main(int argc, char** argv)
{
    const HDESK desktop = argc == 2 ? OpenDesktopA(argv[1], 0, FALSE, GENERIC_ALL) : nullptr;
    if (desktop == nullptr || !SetThreadDesktop(desktop))
    {
        return 2;
    }
    const HWND window = CreateWindowExA(WS_EX_TOPMOST, "STATIC", "of another process", WS_OVERLAPPEDWINDOW | WS_VISIBLE,
                                        0, 0, 100, 100, nullptr, nullptr, nullptr, nullptr);
    if (window == nullptr)
    {
        return 3;
    }
    SignalReady();
    const bool told = WaitForGo();
    DestroyWindow(window);
    return told ? 0 : 4;
}
