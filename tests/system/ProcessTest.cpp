#include <UtilsLib/system/Process.h>

#include <tests/support/ChildProcess.h>
#include <tests/support/Gate.h>
#include <tests/support/ImportPatch.h>
#include <tests/support/OpenHandles.h>
#include <tests/support/TempFolder.h>

#include <tlhelp32.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <optional>

using testing::ElementsAre;
using testing::IsEmpty;
using TestSupport::ChildProcess;
using TestSupport::ImportPatch;
using TestSupport::OpenHandles;
using UtilsLib::Process;

namespace
{

/// Whether a process of that name runs; nothing when the processes cannot be listed.
std::optional<bool> IsRunning(const std::string& name)
{
    bool running = false;
    return Process::IsRunning(name, running) ? std::optional<bool>(running) : std::nullopt;
}

HANDLE WINAPI NoSnapshot(DWORD, DWORD)
{
    SetLastError(ERROR_BAD_LENGTH);
    return INVALID_HANDLE_VALUE;
}

DWORD g_snapshotFlags = 0;

HANDLE WINAPI WatchSnapshot(DWORD flags, DWORD process)
{
    g_snapshotFlags = flags;
    return CreateToolhelp32Snapshot(flags, process);
}

std::vector<std::string> g_names;
std::size_t g_walked = 0;

BOOL WalkOn(PROCESSENTRY32* entry)
{
    if (g_walked >= g_names.size())
    {
        SetLastError(ERROR_NO_MORE_FILES);
        return FALSE;
    }
    const std::string& name = g_names[g_walked++];
    std::copy_n(name.c_str(), name.size() + 1, entry->szExeFile);
    return entry->dwSize == sizeof(PROCESSENTRY32);
}

BOOL WINAPI FirstOfGiven(HANDLE, PROCESSENTRY32* entry)
{
    g_walked = 0;
    return WalkOn(entry);
}

BOOL WINAPI NextOfGiven(HANDLE, PROCESSENTRY32* entry)
{
    return WalkOn(entry);
}

/// The system has processes of these names, and no others.
class GivenProcesses
{
public:
    explicit GivenProcesses(const std::vector<std::string>& names)
    {
        g_names = names;
    }

private:
    ImportPatch m_first{"KERNEL32.dll", "Process32First", &FirstOfGiven};
    ImportPatch m_next{"KERNEL32.dll", "Process32Next", &NextOfGiven};
};

std::vector<std::string> g_calls;

BOOL WINAPI RecordTermination(HANDLE process, UINT code)
{
    g_calls.push_back((process == GetCurrentProcess() ? "terminate this with " : "terminate other with ") +
                      std::to_string(code));
    return TRUE;
}

DWORD WINAPI RecordWait(HANDLE handle, DWORD limit)
{
    g_calls.push_back(handle == GetCurrentProcess() && limit == INFINITE ? "wait for this without limit" : "wait");
    return WAIT_OBJECT_0;
}

} // namespace

TEST(ProcessTest, TheRunningProgramIsFound)
{
    EXPECT_EQ(IsRunning("system_tests.exe"), true);
}

TEST(ProcessTest, LetterCaseDoesNotMatter)
{
    EXPECT_EQ(IsRunning("SYSTEM_Tests.EXE"), true);
}

TEST(ProcessTest, OnlyTheWholeFileNameCounts)
{
    for (const char* const name : {"system_tests", "system_tests.ex", "system_tests.exe ", " system_tests.exe",
                                   "ystem_tests.exe", "system_test?.exe", "*", ".exe", ""})
    {
        EXPECT_EQ(IsRunning(name), false) << name;
    }
}

TEST(ProcessTest, APathIsNeverFound)
{
    EXPECT_EQ(IsRunning(TestSupport::ProgramFolder() + "\\system_tests.exe"), false);
    EXPECT_EQ(IsRunning(".\\system_tests.exe"), false);
}

TEST(ProcessTest, AnotherProcessIsFoundWhileItRuns)
{
    ASSERT_EQ(IsRunning("child_wait.exe"), false) << "no other test runs it";
    {
        ChildProcess child("child_wait");
        ASSERT_TRUE(child.WaitUntilReady());
        EXPECT_EQ(IsRunning("Child_Wait.exe"), true);
        child.LetGo();
        ASSERT_TRUE(child.WaitForExit());
    }
    EXPECT_TRUE(TestSupport::Eventually([] { return IsRunning("child_wait.exe") == false; }));
}

TEST(ProcessTest, RunningIsOnlyEverSetToTrue)
{
    bool running = true;
    EXPECT_TRUE(Process::IsRunning("no such program.exe", running));
    EXPECT_TRUE(running);

    running = false;
    EXPECT_TRUE(Process::IsRunning("no such program.exe", running));
    EXPECT_FALSE(running);
}

TEST(ProcessTest, WithoutASnapshotRunningIsLeftAlone)
{
    const ImportPatch fails("KERNEL32.dll", "CreateToolhelp32Snapshot", &NoSnapshot);
    for (const bool before : {false, true})
    {
        bool running = before;
        EXPECT_FALSE(Process::IsRunning("system_tests.exe", running));
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_BAD_LENGTH));
        EXPECT_EQ(running, before);
    }
}

TEST(ProcessTest, AListWithoutProcessesIsNoFailure)
{
    const GivenProcesses none({});

    EXPECT_EQ(IsRunning("system_tests.exe"), false);
}

TEST(ProcessTest, TheSearchEndsAtTheFirstMatch)
{
    const GivenProcesses given({"a.exe", "B.exe", "b.exe", "c.exe"});

    EXPECT_EQ(IsRunning("b.exe"), true);
    EXPECT_EQ(g_walked, 2u);
    EXPECT_EQ(IsRunning("a.exe"), true);
    EXPECT_EQ(g_walked, 1u);
    EXPECT_EQ(IsRunning("c.exe"), true);
    EXPECT_EQ(g_walked, 4u);
    EXPECT_EQ(IsRunning("d.exe"), false);
    EXPECT_EQ(g_walked, 4u);
}

TEST(ProcessTest, LetterCaseDoesNotMatterBeyondAscii)
{
    ASSERT_EQ(GetACP(), 1252u) << "the bytes below are of this code page";
    const GivenProcesses given({"B\xDC"
                                "cher.exe",
                                std::string(259, 'N')});

    EXPECT_EQ(IsRunning("b\xFC"
                        "CHER.exe"),
              true);
    EXPECT_EQ(IsRunning("bucher.exe"), false);
    EXPECT_EQ(IsRunning(std::string(259, 'n')), true);
    EXPECT_EQ(IsRunning(std::string(260, 'n')), false);
    EXPECT_EQ(IsRunning(std::string(100'000, 'n')), false);
}

TEST(ProcessTest, OnlyProcessesAreListed)
{
    const ImportPatch watch("KERNEL32.dll", "CreateToolhelp32Snapshot", &WatchSnapshot);

    EXPECT_EQ(IsRunning("system_tests.exe"), true);
    EXPECT_EQ(g_snapshotFlags, static_cast<DWORD>(TH32CS_SNAPPROCESS));
}

TEST(ProcessTest, TheSnapshotIsClosed)
{
    IsRunning("system_tests.exe");
    const unsigned long before = OpenHandles();

    IsRunning("system_tests.exe");
    IsRunning("no such program.exe");
    {
        const GivenProcesses none({});
        IsRunning("system_tests.exe");
    }

    EXPECT_EQ(OpenHandles(), before);
}

TEST(ProcessTest, KillingThisProcessRunsNoExitHandler)
{
    const TestSupport::TempFolder folder;

    const TestSupport::ChildResult result =
        TestSupport::RunChild("child_kill_itself", "kill \"" + folder.Path() + "\"");

    EXPECT_TRUE(result.ended);
    EXPECT_EQ(result.exitCode, 0u);
    EXPECT_THAT(folder.Tree(), ElementsAre("buffered"));
    EXPECT_EQ(folder.Read("buffered"), ""); // nothing is flushed either
}

TEST(ProcessTest, TheSameProcessRunsThemWhenItReturns)
{
    const TestSupport::TempFolder folder;

    const TestSupport::ChildResult result =
        TestSupport::RunChild("child_kill_itself", "return \"" + folder.Path() + "\"");

    EXPECT_TRUE(result.ended);
    EXPECT_EQ(result.exitCode, 4u);
    EXPECT_THAT(folder.Tree(), ElementsAre("atexit", "buffered", "library", "stack", "static"));
    EXPECT_EQ(folder.Read("buffered"), "text");
}

TEST(ProcessTest, KillingWaitsForTheEndWithoutLimit)
{
    const ImportPatch terminate("KERNEL32.dll", "TerminateProcess", &RecordTermination);
    const ImportPatch wait("KERNEL32.dll", "WaitForSingleObject", &RecordWait);

    Process::KillCurrentProcess();

    EXPECT_THAT(g_calls, ElementsAre("terminate this with 0", "wait for this without limit"));
}
