#include <UtilsLib/system/WindowEnum.h>

#include <UtilsLib/platform/UniqueRegKey.h>

#include <tests/support/ChildProcess.h>
#include <tests/support/Gate.h>
#include <tests/support/ImportPatch.h>
#include <tests/support/OpenHandles.h>

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <type_traits>
#include <utility>

using TestSupport::ChildProcess;
using TestSupport::ImportPatch;
using UtilsLib::WindowEnum;

namespace
{

/// Opens what is for derived classes.
class OpenWindowEnum : public WindowEnum
{
public:
    using WindowEnum::EnumWindowsProc;
    using WindowEnum::m_hWndTop;
};

static_assert(std::is_same_v<decltype(&OpenWindowEnum::EnumWindowsProc), WNDENUMPROC>);

class Window
{
public:
    explicit Window(DWORD style = WS_OVERLAPPEDWINDOW | WS_VISIBLE, HWND owner = nullptr)
        : m_window(CreateWindowExA(0, "STATIC", "", style, 0, 0, 100, 100, owner, nullptr, nullptr, nullptr))
    {
        EXPECT_NE(m_window, nullptr);
    }
    ~Window()
    {
        DestroyWindow(m_window);
    }
    Window(const Window&) = delete;
    Window& operator=(const Window&) = delete;

    HWND Get() const
    {
        return m_window;
    }
    void Raise() const
    {
        SetWindowPos(m_window, HWND_TOP, 0, 0, 0, 0, SWP_NOMOVE | SWP_NOSIZE | SWP_NOACTIVATE);
    }

private:
    const HWND m_window;
};

DWORD ProcessOf(HWND window)
{
    DWORD process = 0;
    GetWindowThreadProcessId(window, &process);
    return process;
}

BOOL WINAPI FailToEnumerate(WNDENUMPROC, LPARAM)
{
    return FALSE;
}

DWORD WINAPI NoSuchWindow(HWND, DWORD*)
{
    return 0;
}

/// Runs on a desktop of its own, where nobody else has windows, of a driver that needs no display.
class WindowEnumTest : public testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        const char driver[] = "null";
        UtilsLib::Platform::UniqueRegKey key;
        ASSERT_EQ(RegCreateKeyExA(HKEY_CURRENT_USER, "Software\\Wine\\Drivers", 0, nullptr, 0, KEY_ALL_ACCESS, nullptr,
                                  key.Put(), nullptr),
                  ERROR_SUCCESS);
        ASSERT_EQ(
            RegSetValueExA(key.Get(), "Graphics", 0, REG_SZ, reinterpret_cast<const BYTE*>(driver), sizeof(driver)),
            ERROR_SUCCESS);
        const HDESK desktop = CreateDesktopA(DesktopName().c_str(), nullptr, nullptr, 0, GENERIC_ALL, nullptr);
        ASSERT_NE(desktop, nullptr);
        ASSERT_TRUE(SetThreadDesktop(desktop));
    }

    static std::string DesktopName()
    {
        return "utilslib_" + std::to_string(GetCurrentProcessId());
    }
};

} // namespace

TEST_F(WindowEnumTest, WithoutWindowsThereIsNone)
{
    EXPECT_EQ(WindowEnum::FindTopMostCurrentProcessWindow(), nullptr);
}

TEST_F(WindowEnumTest, TheHighestInTheZOrderIsFound)
{
    const Window first;
    const Window second;
    const Window third;

    EXPECT_EQ(WindowEnum::FindTopMostCurrentProcessWindow(), third.Get());

    first.Raise();
    EXPECT_EQ(WindowEnum::FindTopMostCurrentProcessWindow(), first.Get());

    second.Raise();
    EXPECT_EQ(WindowEnum::FindTopMostCurrentProcessWindow(), second.Get());
}

TEST_F(WindowEnumTest, HiddenWindowsDoNotCount)
{
    const Window visible;
    const Window hidden(WS_OVERLAPPEDWINDOW);
    ASSERT_EQ(GetTopWindow(nullptr), hidden.Get());

    EXPECT_EQ(WindowEnum::FindTopMostCurrentProcessWindow(), visible.Get());

    ShowWindow(visible.Get(), SW_HIDE);
    EXPECT_EQ(WindowEnum::FindTopMostCurrentProcessWindow(), nullptr);

    ShowWindow(hidden.Get(), SW_SHOWNOACTIVATE);
    EXPECT_EQ(WindowEnum::FindTopMostCurrentProcessWindow(), hidden.Get());
}

TEST_F(WindowEnumTest, AMinimisedWindowCounts)
{
    const Window window;
    ShowWindow(window.Get(), SW_MINIMIZE);
    ASSERT_TRUE(IsIconic(window.Get()));

    EXPECT_EQ(WindowEnum::FindTopMostCurrentProcessWindow(), window.Get());
}

TEST_F(WindowEnumTest, AnOwnedWindowIsFoundAboveItsOwner)
{
    const Window owner;
    const Window dialog(WS_POPUP | WS_VISIBLE, owner.Get());

    EXPECT_EQ(WindowEnum::FindTopMostCurrentProcessWindow(), dialog.Get());
}

TEST_F(WindowEnumTest, AWindowInsideAnotherIsNoTopWindow)
{
    const Window top;
    const Window inside(WS_CHILD | WS_VISIBLE, top.Get());

    EXPECT_EQ(WindowEnum::FindTopMostCurrentProcessWindow(), top.Get());
}

TEST_F(WindowEnumTest, WindowsOfOtherProcessesDoNotCount)
{
    ChildProcess other("child_show_window", DesktopName());
    ASSERT_TRUE(other.WaitUntilReady());
    const HWND highest = GetTopWindow(nullptr);
    ASSERT_EQ(ProcessOf(highest), other.Id());
    ASSERT_TRUE(IsWindowVisible(highest));

    EXPECT_EQ(WindowEnum::FindTopMostCurrentProcessWindow(), nullptr);
    {
        const Window own;
        ASSERT_EQ(GetTopWindow(nullptr), highest);
        EXPECT_EQ(WindowEnum::FindTopMostCurrentProcessWindow(), own.Get());
    }

    other.LetGo();
    EXPECT_TRUE(other.WaitForExit());
    EXPECT_EQ(other.ExitCode(), 0u);
}

TEST_F(WindowEnumTest, AWindowOfAnotherThreadCounts)
{
    TestSupport::Gate shown;
    TestSupport::Gate seen;
    std::atomic<HWND> window = nullptr;
    std::thread other([&, desktop = GetThreadDesktop(GetCurrentThreadId())] {
        SetThreadDesktop(desktop);
        const Window own;
        window = own.Get();
        shown.Open();
        EXPECT_TRUE(seen.Wait());
    });
    EXPECT_TRUE(shown.Wait());

    EXPECT_EQ(WindowEnum::FindTopMostCurrentProcessWindow(), window.load());

    seen.Open();
    other.join();
}

TEST_F(WindowEnumTest, TheResultOfAnEarlierSearchIsForgotten)
{
    {
        const Window window;
        ASSERT_EQ(WindowEnum::FindTopMostCurrentProcessWindow(), window.Get());
        EXPECT_EQ(OpenWindowEnum::m_hWndTop, window.Get());
    }
    EXPECT_EQ(WindowEnum::FindTopMostCurrentProcessWindow(), nullptr);
    EXPECT_EQ(OpenWindowEnum::m_hWndTop, nullptr);

    const Window window;
    ASSERT_EQ(WindowEnum::FindTopMostCurrentProcessWindow(), window.Get());
    const ImportPatch fails("USER32.dll", "EnumWindows", &FailToEnumerate);
    EXPECT_EQ(WindowEnum::FindTopMostCurrentProcessWindow(), nullptr);
}

TEST_F(WindowEnumTest, TheCallbackStopsAtAVisibleWindowOfThisProcess)
{
    const Window visible;
    OpenWindowEnum::m_hWndTop = nullptr;

    EXPECT_EQ(OpenWindowEnum::EnumWindowsProc(visible.Get(), 0), 0);
    EXPECT_EQ(OpenWindowEnum::m_hWndTop, visible.Get());

    OpenWindowEnum::m_hWndTop = nullptr;
    EXPECT_EQ(OpenWindowEnum::EnumWindowsProc(visible.Get(), -1), 0);
    EXPECT_EQ(OpenWindowEnum::m_hWndTop, visible.Get());
}

TEST_F(WindowEnumTest, TheCallbackGoesOnAtAllOthersAndLeavesTheResult)
{
    const Window visible;
    const Window hidden(WS_OVERLAPPEDWINDOW);
    OpenWindowEnum::m_hWndTop = visible.Get();

    EXPECT_EQ(OpenWindowEnum::EnumWindowsProc(hidden.Get(), 0), 1);
    EXPECT_EQ(OpenWindowEnum::EnumWindowsProc(GetDesktopWindow(), 0), 1);
    EXPECT_EQ(OpenWindowEnum::EnumWindowsProc(nullptr, 0), 1);
    {
        const ImportPatch gone("USER32.dll", "GetWindowThreadProcessId", &NoSuchWindow);
        EXPECT_EQ(OpenWindowEnum::EnumWindowsProc(visible.Get(), 0), 1);
    }

    EXPECT_EQ(OpenWindowEnum::m_hWndTop, visible.Get());
}

TEST_F(WindowEnumTest, AnObjectOfTheClassDoesNothing)
{
    static_assert(sizeof(WindowEnum) == 1); // no data of its own
    const Window window;
    OpenWindowEnum::m_hWndTop = window.Get();
    {
        const WindowEnum object;
        WindowEnum copy = object;
        copy = object;
    }
    EXPECT_EQ(OpenWindowEnum::m_hWndTop, window.Get());
}

TEST_F(WindowEnumTest, TwoThreadsThatSearchAtOnceGetTheWindowOrNull)
{
    const Window window;
    std::atomic<int> strange = 0;
    const auto search = [&, desktop = GetThreadDesktop(GetCurrentThreadId())] {
        SetThreadDesktop(desktop);
        for (int i = 0; i < 200; ++i)
        {
            const HWND found = WindowEnum::FindTopMostCurrentProcessWindow();
            strange += found == window.Get() || found == nullptr ? 0 : 1;
        }
    };

    std::thread other(search);
    search();
    other.join();

    EXPECT_EQ(strange, 0);
}

TEST_F(WindowEnumTest, NoHandleIsLeftOpen)
{
    const Window window;
    WindowEnum::FindTopMostCurrentProcessWindow();
    const unsigned long before = TestSupport::OpenHandles();

    WindowEnum::FindTopMostCurrentProcessWindow();

    EXPECT_EQ(TestSupport::OpenHandles(), before);
}
