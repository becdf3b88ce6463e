#include <UtilsLib/threading/BackgroundTask.h>

#include <UtilsLib/WindowsTypes.h>
#include <UtilsLib/logging/Logger.h>
#include <UtilsLib/platform/UniqueHandle.h>
#include <UtilsLib/system/HelperUtils.h>
#include <tests/logging/LoggerFixture.h>
#include <tests/support/ChildProcess.h>
#include <tests/support/FieldsOf.h>
#include <tests/support/Gate.h>
#include <tests/support/ImportPatch.h>
#include <tests/support/OpenHandles.h>
#include <tests/support/TempFolder.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <thread>
#include <type_traits>

using TestSupport::ChildProcess;
using TestSupport::Eventually;
using TestSupport::ImportPatch;
using TestSupport::LastErrorText;
using TestSupport::ProgramFolder;
using TestSupport::TempFolder;
using UtilsLib::BackgroundTask;
using UtilsLib::Platform::UniqueHandle;

static_assert(std::is_polymorphic_v<BackgroundTask> && !std::has_virtual_destructor_v<BackgroundTask>);

namespace
{

const std::string kProgram = ProgramFolder() + "\\child_background_program.exe";

BackgroundTask TaskWith(const std::string& program, const std::string& arguments)
{
    BackgroundTask task;
    task.executablePath = program;
    task.arguments = arguments;
    return task;
}

std::string CurrentFolder()
{
    char folder[MAX_PATH] = "";
    GetCurrentDirectoryA(sizeof(folder), folder);
    return folder;
}

/// A variable of this process's environment, which children get, until scope end.
class ScopedVariable
{
public:
    ScopedVariable(const std::string& name, const std::string& value) : m_name(name)
    {
        SetEnvironmentVariableA(name.c_str(), value.c_str());
    }
    ~ScopedVariable()
    {
        SetEnvironmentVariableA(m_name.c_str(), nullptr);
    }
    ScopedVariable(const ScopedVariable&) = delete;
    ScopedVariable& operator=(const ScopedVariable&) = delete;

private:
    const std::string m_name;
};

/// Makes the program wait until it is let go, at the latest at scope end.
class HeldProgram
{
public:
    HeldProgram() : m_go(CreateEventA(nullptr, TRUE, FALSE, m_name.c_str())), m_variable("UTILSLIB_HOLD", m_name)
    {
    }
    ~HeldProgram()
    {
        LetGo();
    }
    void LetGo()
    {
        SetEvent(m_go.Get());
    }

private:
    const std::string m_name = "background_task_" + std::to_string(GetCurrentProcessId());
    UniqueHandle m_go;
    ScopedVariable m_variable;
};

/// What the last creation of a process was asked.
struct CreateCall
{
    std::string program;
    std::string line;
    LPSECURITY_ATTRIBUTES process;
    LPSECURITY_ATTRIBUTES thread;
    BOOL inherit;
    DWORD flags;
    LPVOID environment;
    std::string folder;
    STARTUPINFOA startup;
    PROCESS_INFORMATION given;
};
CreateCall ms_create;

BOOL WINAPI RecordedCreate(LPCSTR program, LPSTR line, LPSECURITY_ATTRIBUTES process, LPSECURITY_ATTRIBUTES thread,
                           BOOL inherit, DWORD flags, LPVOID environment, LPCSTR folder, LPSTARTUPINFOA startup,
                           LPPROCESS_INFORMATION information)
{
    ms_create = {program, line, process, thread, inherit, flags, environment, folder, *startup, {}};
    const BOOL created =
        CreateProcessA(program, line, process, thread, inherit, flags, environment, folder, startup, information);
    ms_create.given = *information;
    return created;
}

DWORD WINAPI FailedWait(HANDLE, DWORD)
{
    SetLastError(ERROR_INVALID_HANDLE);
    return WAIT_FAILED;
}

BOOL WINAPI NoExitCode(HANDLE, LPDWORD code)
{
    *code = 259;
    SetLastError(ERROR_ACCESS_DENIED);
    return FALSE;
}

DWORD ms_openAccess = 0;
BOOL ms_openInherit = TRUE;
HANDLE ms_opened = nullptr;

HANDLE WINAPI RecordedOpen(DWORD access, BOOL inherit, DWORD id)
{
    ms_openAccess = access;
    ms_openInherit = inherit;
    ms_opened = OpenProcess(access, inherit, id);
    return ms_opened;
}

int ms_opens = 0;

HANDLE WINAPI OpenOfNothing(DWORD, BOOL, DWORD)
{
    ++ms_opens;
    return INVALID_HANDLE_VALUE;
}

const char* ms_modulePath = "";

DWORD WINAPI PathOfTheTest(HMODULE, LPSTR path, DWORD size)
{
    lstrcpynA(path, ms_modulePath, static_cast<int>(size));
    return static_cast<DWORD>(std::strlen(ms_modulePath));
}

std::string ms_newFolder;

BOOL WINAPI RecordedFolder(LPCSTR folder)
{
    ms_newFolder = folder;
    return TRUE;
}

BOOL WINAPI RefusedFolder(LPCSTR)
{
    SetLastError(ERROR_ACCESS_DENIED);
    return FALSE;
}

bool IsClosed(HANDLE handle)
{
    DWORD flags = 0;
    return !GetHandleInformation(handle, &flags);
}

} // namespace

TEST(BackgroundTaskTest, NewTaskHasNoTextsAndNoProcess)
{
    BackgroundTask task;

    EXPECT_EQ(task.executablePath, "");
    EXPECT_EQ(task.arguments, "");
    EXPECT_EQ(task.GetProcessID(), 0u);
}

TEST(BackgroundTaskTest, WaitingRunGivesTheExitCode)
{
    for (const char* code : {"0", "1", "3", "259", "2147483647"})
    {
        EXPECT_EQ(TaskWith(kProgram, code).RunProcess(true), std::stoi(code));
    }
    EXPECT_EQ(TaskWith(kProgram, "4294967295").RunProcess(true), -1);
    EXPECT_EQ(TaskWith(kProgram, "3221225477").RunProcess(true), static_cast<int>(0xC0000005));
}

TEST(BackgroundTaskTest, RunWithoutWaitingGives1WhileTheProgramRuns)
{
    HeldProgram held;
    BackgroundTask task = TaskWith(kProgram, "5");

    EXPECT_EQ(task.RunProcess(false), 1);

    const UniqueHandle process(OpenProcess(SYNCHRONIZE | PROCESS_QUERY_INFORMATION, FALSE, task.GetProcessID()));
    ASSERT_TRUE(process) << LastErrorText("OpenProcess");
    EXPECT_EQ(WaitForSingleObject(process.Get(), 0), static_cast<DWORD>(WAIT_TIMEOUT));
    EXPECT_TRUE(BackgroundTask::IsPIDRunning(task.GetProcessID()));
    held.LetGo();
    EXPECT_EQ(WaitForSingleObject(process.Get(), 10'000), static_cast<DWORD>(WAIT_OBJECT_0));
    DWORD code = 0;
    EXPECT_TRUE(GetExitCodeProcess(process.Get(), &code));
    EXPECT_EQ(code, 5u);
    EXPECT_FALSE(BackgroundTask::IsPIDRunning(task.GetProcessID()));
}

TEST(BackgroundTaskTest, ProcessIdIsThereWhileAnotherThreadWaitsForTheEnd)
{
    HeldProgram held;
    BackgroundTask task = TaskWith(kProgram, "6");
    int result = 0;
    std::thread runner([&] { result = task.RunProcess(true); });

    EXPECT_TRUE(Eventually([&task] { return task.GetProcessID() != 0; }));
    EXPECT_TRUE(BackgroundTask::IsPIDRunning(task.GetProcessID()));
    EXPECT_EQ(result, 0);
    held.LetGo();

    runner.join();
    EXPECT_EQ(result, 6);
}

TEST(BackgroundTaskTest, ProgramThatCannotBeStartedGivesMinus1AndLeavesTheProcessId)
{
    const TempFolder folder;
    folder.Write("text.exe", "no program");
    BackgroundTask task = TaskWith(kProgram, "0");
    ASSERT_EQ(task.RunProcess(true), 0);
    const unsigned int id = task.GetProcessID();
    ASSERT_NE(id, 0u);

    for (const bool wait : {false, true})
    {
        task.executablePath = folder / "missing.exe";
        EXPECT_EQ(task.RunProcess(wait), -1);
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
        task.executablePath = folder / "text.exe";
        EXPECT_EQ(task.RunProcess(wait), -1);
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_BAD_EXE_FORMAT));
        task.executablePath = "";
        EXPECT_EQ(task.RunProcess(wait), -1);
    }
    EXPECT_EQ(task.GetProcessID(), id);
}

TEST(BackgroundTaskTest, CommandLineIsThePathABlankAndTheArguments)
{
    const TempFolder folder;
    const std::string program = folder / "with some blanks\\the program.exe";
    folder.MakeFolder("with some blanks");
    ASSERT_TRUE(CopyFileA(kProgram.c_str(), program.c_str(), TRUE)) << LastErrorText("CopyFileA");
    const std::string record = folder / "record.txt";
    const ScopedVariable variable("UTILSLIB_RECORD", record);

    EXPECT_EQ(TaskWith(program, "\"a b\"  -x 7").RunProcess(true), 7);

    EXPECT_EQ(folder.Read("record.txt"), program + " \"a b\"  -x 7\n" + ProgramFolder() + "\n");
}

TEST(BackgroundTaskTest, WithoutArgumentsTheBlankStaysAtTheEndOfTheCommandLine)
{
    const ImportPatch create("KERNEL32.dll", "CreateProcessA", &RecordedCreate);

    EXPECT_EQ(TaskWith("C:\\missing program.exe", "").RunProcess(true), -1);

    EXPECT_EQ(ms_create.program, "C:\\missing program.exe");
    EXPECT_EQ(ms_create.line, "C:\\missing program.exe ");
}

TEST(BackgroundTaskTest, ProcessIsCreatedWithTheSystemsDefaultsInTheFolderOfTheProgram)
{
    const ImportPatch create("KERNEL32.dll", "CreateProcessA", &RecordedCreate);
    BackgroundTask task = TaskWith(kProgram, "0");
    ASSERT_EQ(task.RunProcess(true), 0);

    EXPECT_EQ(ms_create.program, kProgram);
    EXPECT_EQ(ms_create.line, kProgram + " 0");
    EXPECT_EQ(ms_create.process, nullptr);
    EXPECT_EQ(ms_create.thread, nullptr);
    EXPECT_FALSE(ms_create.inherit);
    EXPECT_EQ(ms_create.flags, 0u);
    EXPECT_EQ(ms_create.environment, nullptr);
    EXPECT_EQ(ms_create.folder, ProgramFolder());
    STARTUPINFOA zeroed = {};
    zeroed.cb = sizeof(zeroed);
    EXPECT_EQ(std::memcmp(&ms_create.startup, &zeroed, sizeof(zeroed)), 0);
    EXPECT_EQ(task.GetProcessID(), ms_create.given.dwProcessId);
    EXPECT_TRUE(IsClosed(ms_create.given.hProcess));
    EXPECT_TRUE(IsClosed(ms_create.given.hThread));
}

TEST(BackgroundTaskTest, EveryRunMakesTheProgramsFolderTheCurrentOne)
{
    const TempFolder elsewhere;
    for (const std::string& program : {kProgram, std::string("C:\\missing.exe")})
    {
        ASSERT_TRUE(SetCurrentDirectoryA(elsewhere.Path().c_str()));

        TaskWith(program, "0").RunProcess(true);

        EXPECT_EQ(CurrentFolder(), ProgramFolder());
    }
}

TEST(BackgroundTaskTest, FolderIsThePathOfTheProgramUpToTheLastBackslash)
{
    const ImportPatch path("KERNEL32.dll", "GetModuleFileNameA", &PathOfTheTest);
    const ImportPatch folder("KERNEL32.dll", "SetCurrentDirectoryA", &RecordedFolder);
    const ImportPatch create("KERNEL32.dll", "CreateProcessA", &RecordedCreate);
    for (const auto& [module, expected] : {std::pair{"C:\\suite\\bin\\host.exe", "C:\\suite\\bin"},
                                           {"C:\\suite/bin/host.exe", "C:"},
                                           {"C:\\host.exe", "C:"},
                                           {"C:/suite/host.exe", "C:/suite/host.exe"},
                                           {"host.exe", "host.exe"}})
    {
        ms_modulePath = module;
        TaskWith("C:\\missing.exe", "").RunProcess(false);

        EXPECT_EQ(ms_newFolder, expected) << module;
        EXPECT_EQ(ms_create.folder, expected) << module;
    }
}

TEST(BackgroundTaskTest, FolderThatCannotBeMadeTheCurrentOneHoldsNothingUp)
{
    const ImportPatch folder("KERNEL32.dll", "SetCurrentDirectoryA", &RefusedFolder);

    EXPECT_EQ(TaskWith(kProgram, "4").RunProcess(true), 4);
}

TEST(BackgroundTaskTest, FailedWaitGivesMinus1AndKeepsTheProcessId)
{
    HeldProgram held;
    const ImportPatch create("KERNEL32.dll", "CreateProcessA", &RecordedCreate);
    BackgroundTask task = TaskWith(kProgram, "0");
    {
        const ImportPatch wait("KERNEL32.dll", "WaitForSingleObject", &FailedWait);
        EXPECT_EQ(task.RunProcess(true), -1);
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    }

    EXPECT_EQ(task.GetProcessID(), ms_create.given.dwProcessId);
    EXPECT_TRUE(IsClosed(ms_create.given.hProcess));
    EXPECT_TRUE(IsClosed(ms_create.given.hThread));
}

TEST(BackgroundTaskTest, ExitCodeThatCannotBeReadGivesMinus1AndKeepsTheProcessId)
{
    BackgroundTask task = TaskWith(kProgram, "0");
    const ImportPatch code("KERNEL32.dll", "GetExitCodeProcess", &NoExitCode);

    EXPECT_EQ(task.RunProcess(true), -1);

    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    EXPECT_NE(task.GetProcessID(), 0u);
}

TEST(BackgroundTaskTest, NoHandleIsLeftOpen)
{
    TaskWith(kProgram, "0").RunProcess(true); // makes the logger
    const unsigned long handles = TestSupport::OpenHandles();

    for (int i = 0; i < 3; ++i)
    {
        TaskWith(kProgram, "0").RunProcess(true);
        TaskWith(kProgram, "0").RunProcess(false);
        TaskWith("C:\\missing.exe", "0").RunProcess(true);
    }

    EXPECT_EQ(TestSupport::OpenHandles(), handles);
}

TEST(BackgroundTaskTest, CopiesHaveAllThreeFields)
{
    BackgroundTask task = TaskWith(kProgram, "2");
    ASSERT_EQ(task.RunProcess(true), 2);

    BackgroundTask copy(task);
    BackgroundTask assigned;
    assigned = task;

    for (BackgroundTask* const each : {&copy, &assigned})
    {
        EXPECT_EQ(each->executablePath, kProgram);
        EXPECT_EQ(each->arguments, "2");
        EXPECT_EQ(each->GetProcessID(), task.GetProcessID());
    }
}

TEST(BackgroundTaskTest, FieldsFollowTheVirtualTableInTheirOrder)
{
    struct Fields
    {
        const void* table;
        std::string executablePath;
        std::string arguments;
        unsigned int processId;
    };
    BackgroundTask task = TaskWith(kProgram, "2");
    ASSERT_EQ(task.RunProcess(true), 2);

    const Fields& fields = TestSupport::FieldsOf<Fields>(task);

    EXPECT_EQ(fields.executablePath, kProgram);
    EXPECT_EQ(fields.arguments, "2");
    EXPECT_EQ(fields.processId, task.GetProcessID());
}

TEST(BackgroundTaskTest, RunProcessCanBeOverridden)
{
    class Fake : public BackgroundTask
    {
    public:
        int RunProcess(bool wait) override
        {
            return wait ? 40 : 41;
        }
    };
    Fake fake;
    BackgroundTask& task = fake;

    EXPECT_EQ(task.RunProcess(true), 40);
    EXPECT_EQ(task.RunProcess(false), 41);
}

using BackgroundTaskLogTest = LoggerTests::LoggerFixture;

TEST_F(BackgroundTaskLogTest, LogsThePathAndTheCommandLineAsInformation)
{
    UtilsLib::Logger& logger = UtilsLib::Logger::GetInstance();
    logger.SetPath(m_path);
    logger.Start();

    EXPECT_EQ(TaskWith(kProgram, "-x  1").RunProcess(true), 1);
    EXPECT_EQ(TaskWith("C:\\missing %s.exe", "%d").RunProcess(false), -1);
    logger.Shutdown();

    EXPECT_EQ(Messages(),
              (std::vector<std::string>{"BackgroundTask::RunProcess() " + kProgram + ": " + kProgram + " -x  1",
                                        "BackgroundTask::RunProcess() C:\\missing %s.exe: C:\\missing %s.exe %d"}));
    EXPECT_NE(Text().find(", (1:1), "), std::string::npos);
}

TEST(BackgroundTaskTest, OwnProcessIsRunning)
{
    EXPECT_TRUE(BackgroundTask::IsPIDRunning(GetCurrentProcessId()));
}

TEST(BackgroundTaskTest, Process0IsNotRunningAndNotAskedFor)
{
    ms_opens = 0;
    const ImportPatch open("KERNEL32.dll", "OpenProcess", &OpenOfNothing);

    EXPECT_FALSE(BackgroundTask::IsPIDRunning(0));

    EXPECT_EQ(ms_opens, 0);
}

TEST(BackgroundTaskTest, UnknownProcessesAreNotRunning)
{
    for (const unsigned int id : {3u, 0x7FFFFFFCu, 0xFFFFFFFFu})
    {
        EXPECT_FALSE(BackgroundTask::IsPIDRunning(id)) << id;
    }
}

TEST(BackgroundTaskTest, ProcessThatHasEndedIsNotRunningWhileItsHandleIsOpen)
{
    ChildProcess child("child_background_program", "0");
    ASSERT_TRUE(child.WaitForExit());

    EXPECT_FALSE(BackgroundTask::IsPIDRunning(child.Id()));
}

TEST(BackgroundTaskTest, ProcessThatEndedWithTheCodeOfActiveOnesCountsAsRunning)
{
    ChildProcess child("child_background_program", "259");
    ASSERT_TRUE(child.WaitForExit());
    ASSERT_EQ(child.ExitCode(), 259u);

    EXPECT_TRUE(BackgroundTask::IsPIDRunning(child.Id()));
}

TEST(BackgroundTaskTest, AskingOpensTheProcessForQueriesOnlyAndClosesIt)
{
    const ImportPatch open("KERNEL32.dll", "OpenProcess", &RecordedOpen);

    EXPECT_TRUE(BackgroundTask::IsPIDRunning(GetCurrentProcessId()));
    EXPECT_EQ(ms_openAccess, static_cast<DWORD>(PROCESS_QUERY_INFORMATION));
    EXPECT_FALSE(ms_openInherit);
    EXPECT_TRUE(IsClosed(ms_opened));

    const ImportPatch code("KERNEL32.dll", "GetExitCodeProcess", &NoExitCode);
    EXPECT_FALSE(BackgroundTask::IsPIDRunning(GetCurrentProcessId()));
    EXPECT_TRUE(IsClosed(ms_opened));
}

TEST(BackgroundTaskTest, InvalidHandleIsNoRunningProcess)
{
    ms_opens = 0;
    const ImportPatch open("KERNEL32.dll", "OpenProcess", &OpenOfNothing);

    EXPECT_FALSE(BackgroundTask::IsPIDRunning(GetCurrentProcessId()));

    EXPECT_EQ(ms_opens, 1);
}
