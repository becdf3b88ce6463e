#include <UtilsLib/system/WindowEnum.h>

#include <atomic>

namespace UtilsLib
{

namespace
{

bool IsOfThisProcess(HWND window)
{
    DWORD process = 0; // stays when the window is gone by now
    GetWindowThreadProcessId(window, &process);
    return process == GetCurrentProcessId();
}

} // namespace

HWND WindowEnum::m_hWndTop = nullptr;

WindowEnum::WindowEnum() = default;

WindowEnum::~WindowEnum() = default;

HWND WindowEnum::FindTopMostCurrentProcessWindow()
{
    // kept: one field for all threads, so they may see each other's result
    const std::atomic_ref<HWND> top(m_hWndTop);
    top.store(nullptr);
    EnumWindows(&WindowEnum::EnumWindowsProc, 0);
    return top.load();
}

BOOL CALLBACK WindowEnum::EnumWindowsProc(HWND window, LPARAM)
{
    if (!IsOfThisProcess(window) || !IsWindowVisible(window))
    {
        return TRUE;
    }
    std::atomic_ref<HWND>{m_hWndTop}.store(window);
    return FALSE;
}

} // namespace UtilsLib
