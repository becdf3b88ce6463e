#include <UtilsLib/threading/ThreadUtils.h>

#include <UtilsLib/WindowsTypes.h>
#include <UtilsLib/platform/UniqueHandle.h>
#include <UtilsLib/threading/ThreadMonitor.h>
#include <tests/support/ImportPatch.h>
#include <tests/support/OpenHandles.h>

#include <gtest/gtest.h>

#include <tlhelp32.h>

#include <cstdlib>
#include <string>
#include <thread>
#include <type_traits>

using TestSupport::ImportPatch;
using UtilsLib::ThreadUtils;

static_assert(std::is_same_v<decltype(ThreadUtils::GetMainThreadId()), unsigned long>);

namespace
{

HANDLE WINAPI NoSnapshot(DWORD, DWORD)
{
    SetLastError(ERROR_BAD_LENGTH);
    return INVALID_HANDLE_VALUE;
}

HANDLE WINAPI SnapshotThatLeavesAnError(DWORD flags, DWORD process)
{
    const HANDLE snapshot = CreateToolhelp32Snapshot(flags, process);
    SetLastError(ERROR_NO_MORE_FILES);
    return snapshot;
}

DWORD ms_flags = 0;
DWORD ms_process = 1;

HANDLE WINAPI RecordedSnapshot(DWORD flags, DWORD process)
{
    ms_flags = flags;
    ms_process = process;
    return CreateToolhelp32Snapshot(flags, process);
}

BOOL WINAPI NoStep(HANDLE, LPTHREADENTRY32)
{
    SetLastError(ERROR_NO_MORE_FILES);
    return FALSE;
}

/// Another process's thread first, then this process's 77 and 78.
int ms_step = 0;

BOOL FillEntry(LPTHREADENTRY32 entry)
{
    entry->th32OwnerProcessID = ms_step == 0 ? 4 : GetCurrentProcessId();
    entry->th32ThreadID = ms_step == 0 ? 76u : ms_step == 1 ? 77u : 78u;
    ++ms_step;
    return TRUE;
}

BOOL WINAPI MadeUpFirst(HANDLE, LPTHREADENTRY32 entry)
{
    ms_step = 0;
    return FillEntry(entry);
}

BOOL WINAPI MadeUpNext(HANDLE, LPTHREADENTRY32 entry)
{
    return FillEntry(entry);
}

/// A step that succeeds and yet says that it was the last.
BOOL WINAPI LastNext(HANDLE, LPTHREADENTRY32 entry)
{
    FillEntry(entry);
    SetLastError(ERROR_NO_MORE_FILES);
    return TRUE;
}

} // namespace

TEST(ThreadUtilsTest, GetMainThreadIdGivesTheMainThreadOnEveryThread)
{
    const unsigned long main = GetCurrentThreadId(); // tests run on the program's first thread
    EXPECT_EQ(ThreadUtils::GetMainThreadId(), main);

    unsigned long fromAnother = 0;
    std::thread([&] { fromAnother = ThreadUtils::GetMainThreadId(); }).join();

    EXPECT_EQ(fromAnother, main);
}

TEST(ThreadUtilsTest, GetMainThreadIdIsNotMisledByAnEarlierLastError)
{
    SetLastError(ERROR_NO_MORE_FILES);
    EXPECT_EQ(ThreadUtils::GetMainThreadId(), GetCurrentThreadId());

    // A step that succeeds need not clear it.
    const ImportPatch snapshot("KERNEL32.dll", "CreateToolhelp32Snapshot", &SnapshotThatLeavesAnError);
    const ImportPatch first("KERNEL32.dll", "Thread32First", &MadeUpFirst);
    const ImportPatch next("KERNEL32.dll", "Thread32Next", &MadeUpNext);
    EXPECT_EQ(ThreadUtils::GetMainThreadId(), 77u);
}

TEST(ThreadUtilsTest, GetMainThreadIdReadsAllThreadsOfTheSystem)
{
    const ImportPatch recorded("KERNEL32.dll", "CreateToolhelp32Snapshot", &RecordedSnapshot);

    EXPECT_NE(ThreadUtils::GetMainThreadId(), 0u);

    EXPECT_EQ(ms_flags, static_cast<DWORD>(TH32CS_SNAPTHREAD));
    EXPECT_EQ(ms_process, 0u);
}

TEST(ThreadUtilsTest, GetMainThreadIdIsTheFirstEntryOfTheProcess)
{
    const ImportPatch first("KERNEL32.dll", "Thread32First", &MadeUpFirst);
    const ImportPatch next("KERNEL32.dll", "Thread32Next", &MadeUpNext);

    EXPECT_EQ(ThreadUtils::GetMainThreadId(), 77u);
}

TEST(ThreadUtilsTest, GetMainThreadIdStopsAtAStepThatSaysNoMore)
{
    const ImportPatch first("KERNEL32.dll", "Thread32First", &MadeUpFirst);
    const ImportPatch next("KERNEL32.dll", "Thread32Next", &LastNext);

    EXPECT_EQ(ThreadUtils::GetMainThreadId(), 0u);
}

TEST(ThreadUtilsTest, GetMainThreadIdIsZeroWithoutASnapshot)
{
    const ImportPatch none("KERNEL32.dll", "CreateToolhelp32Snapshot", &NoSnapshot);

    EXPECT_EQ(ThreadUtils::GetMainThreadId(), 0u);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_BAD_LENGTH));
}

TEST(ThreadUtilsTest, GetMainThreadIdClosesItsSnapshot)
{
    ThreadUtils::GetMainThreadId();
    const unsigned long before = TestSupport::OpenHandles();

    ThreadUtils::GetMainThreadId();
    {
        const ImportPatch none("KERNEL32.dll", "Thread32First", &NoStep);
        EXPECT_EQ(ThreadUtils::GetMainThreadId(), 0u);
    }

    EXPECT_EQ(TestSupport::OpenHandles(), before);
}

TEST(ThreadUtilsTest, SetThreadNameDoesNothing)
{
    SetLastError(ERROR_SHARING_VIOLATION);

    ThreadUtils::SetThreadName("a name");

    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SHARING_VIOLATION));
    EXPECT_TRUE(UtilsLib::ThreadMonitor::GetInstance().GetThreadStatus().empty());
    using GetDescription = HRESULT(WINAPI*)(HANDLE, PWSTR*);
    const auto getDescription = reinterpret_cast<GetDescription>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleA("kernel32.dll"), "GetThreadDescription")));
    if (getDescription != nullptr)
    {
        PWSTR description = nullptr;
        if (SUCCEEDED(getDescription(GetCurrentThread(), &description)) && description != nullptr)
        {
            EXPECT_EQ(std::wstring(description), L"");
            LocalFree(description);
        }
    }
}
