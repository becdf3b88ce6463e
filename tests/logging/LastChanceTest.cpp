#include <UtilsLib/logging/MiniDump.h>

#include <UtilsLib/logging/Stack.h>
#include <UtilsLib/platform/UniqueHandle.h>

#include <tests/logging/DumpFolder.h>
#include <tests/support/ChildProcess.h>
#include <tests/support/Gate.h>
#include <tests/support/ImportPatch.h>
#include <tests/support/TempFolder.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <sstream>
#include <thread>
#include <vector>

using DumpTests::DumpFile;
using DumpTests::DumpsOnDriveC;
using testing::Contains;
using TestSupport::ChildResult;
using TestSupport::Gate;
using TestSupport::ImportPatch;
using TestSupport::RunChild;

namespace
{

constexpr const char* kKernel = "KERNEL32.dll";
constexpr auto kLimit = std::chrono::seconds(50);

/// What the child wrote down before it died.
struct Note
{
    unsigned long threadId = 0;
    unsigned long long address = 0;
    std::string text;
};

class LastChanceTest : public DumpTests::DumpFolder
{
protected:
    ChildResult Die(const std::string& way)
    {
        const ChildResult result = RunChild("child_crash", Arguments(way), kLimit);
        EXPECT_TRUE(result.ended) << way;
        return result;
    }
    std::string Arguments(const std::string& way) const
    {
        return way + " \"" + m_folder / "note" + "\"";
    }
    Note Read() const
    {
        Note note;
        std::istringstream stream(m_folder.Read("note"));
        stream >> note.threadId >> note.address;
        stream.get();
        std::getline(stream, note.text);
        return note;
    }
    /// Puts folders where dumps of the next half minute would be written.
    static void OccupyNames()
    {
        using namespace std::chrono;
        const auto now = system_clock::now();
        for (int second = 0; second < 60; ++second)
        {
            const std::time_t then = system_clock::to_time_t(now + seconds(second));
            char name[100] = "";
            std::strftime(name, sizeof(name), "c:\\hx41svc crashdump %d-%b-%Y %H-%M-%S.dmp", std::localtime(&then));
            ASSERT_TRUE(CreateDirectoryA(name, nullptr)) << TestSupport::LastErrorText(name);
        }
    }
    static bool NoDumpFile()
    {
        const std::vector<std::string> paths = DumpsOnDriveC();
        return std::all_of(paths.begin(), paths.end(), [](const std::string& path) {
            return (GetFileAttributesA(path.c_str()) & FILE_ATTRIBUTE_DIRECTORY) != 0;
        });
    }

private:
    TestSupport::TempFolder m_folder;
};

DWORD CodeInDump(const std::string& path)
{
    return DumpFile(path).Exception().ExceptionRecord.ExceptionCode;
}

struct DebuggedResult
{
    int breakpoints = 0;
    int otherExceptions = 0;
    std::vector<std::size_t> dumpsAtBreakpoints;
    DWORD exitCode = 0;
    bool ended = false;
};

/// Runs child_crash as a debugger does that only looks on.
DebuggedResult RunDebugged(const std::string& arguments)
{
    const std::string path = TestSupport::ProgramFolder() + "\\child_crash.exe";
    std::string line = "\"" + path + "\" " + arguments;
    STARTUPINFOA startup = {};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION information = {};
    DebuggedResult result;
    if (!CreateProcessA(path.c_str(), line.data(), nullptr, nullptr, FALSE, DEBUG_ONLY_THIS_PROCESS, nullptr, nullptr,
                        &startup, &information))
    {
        ADD_FAILURE() << TestSupport::LastErrorText(path);
        return result;
    }
    const UtilsLib::Platform::UniqueHandle process(information.hProcess);
    const UtilsLib::Platform::UniqueHandle thread(information.hThread);
    DEBUG_EVENT event = {};
    while (!result.ended && WaitForDebugEvent(&event, 30'000))
    {
        DWORD answer = DBG_CONTINUE;
        if (event.dwDebugEventCode == EXCEPTION_DEBUG_EVENT)
        {
            if (event.u.Exception.ExceptionRecord.ExceptionCode == EXCEPTION_BREAKPOINT)
            {
                ++result.breakpoints;
                result.dumpsAtBreakpoints.push_back(DumpsOnDriveC().size());
            }
            else
            {
                ++result.otherExceptions;
                answer = DBG_EXCEPTION_NOT_HANDLED;
            }
        }
        else if (event.dwDebugEventCode == EXIT_PROCESS_DEBUG_EVENT)
        {
            result.exitCode = event.u.ExitProcess.dwExitCode;
            result.ended = true;
        }
        ContinueDebugEvent(event.dwProcessId, event.dwThreadId, answer);
    }
    if (!result.ended)
    {
        TerminateProcess(process.Get(), 98);
    }
    return result;
}

UINT g_exitCode = 0;
HANDLE g_ended = nullptr;

std::atomic<unsigned long long> g_ticks = 0;
std::vector<DWORD> g_pauses;

/// Ten seconds each time somebody looks.
ULONGLONG WINAPI HurryingClock()
{
    return g_ticks += 10'000;
}

void WINAPI RecordedSleep(DWORD milliseconds)
{
    g_pauses.push_back(milliseconds);
    Sleep(0);
}

BOOL WINAPI NoEnd(HANDLE process, UINT exitCode)
{
    g_ended = process;
    g_exitCode = exitCode;
    return TRUE;
}

/// In the place of TerminateProcess: another thread's dump at this moment.
BOOL WINAPI DumpOnAnotherThread(HANDLE, UINT)
{
    std::thread([] {
        EXCEPTION_RECORD record = {};
        EXCEPTION_POINTERS pointers = {&record, nullptr};
        bool written = false;
        CreateMiniDump(&pointers, written);
    }).join();
    return TRUE;
}

Gate g_inSession;
Gate g_leaveSession;

BOOL WINAPI StayInSession(HANDLE, PCSTR, BOOL)
{
    g_inSession.Open();
    EXPECT_TRUE(g_leaveSession.Wait());
    return FALSE;
}

HANDLE WINAPI NoFile(LPCSTR, DWORD, DWORD, LPSECURITY_ATTRIBUTES, DWORD, DWORD, HANDLE)
{
    return INVALID_HANDLE_VALUE;
}

} // namespace

TEST_F(LastChanceTest, AccessViolationLeavesADumpOfItsThread)
{
    EXPECT_EQ(Die("access-violation").exitCode, static_cast<DWORD>(EXCEPTION_ACCESS_VIOLATION));

    const Note note = Read();
    const DumpFile dump(OnlyDump());
    const MINIDUMP_EXCEPTION& record = dump.Exception().ExceptionRecord;
    EXPECT_EQ(record.ExceptionCode, static_cast<DWORD>(EXCEPTION_ACCESS_VIOLATION));
    EXPECT_EQ(record.ExceptionInformation[0], 1u);
    EXPECT_EQ(record.ExceptionInformation[1], 0x10u);
    EXPECT_EQ(dump.ModuleAt(record.ExceptionAddress), "child_crash.exe");
    EXPECT_EQ(dump.Exception().ThreadId, note.threadId);
    EXPECT_EQ(dump.Registers().Eip, record.ExceptionAddress);
    EXPECT_EQ(dump.System().ProcessorArchitecture, PROCESSOR_ARCHITECTURE_INTEL);
    EXPECT_THAT(dump.ThreadIds(), Contains(note.threadId));
    for (const char* const module : {"child_crash.exe", "utilslib.dll", "ntdll.dll", "kernel32.dll"})
    {
        EXPECT_THAT(dump.Modules(), Contains(module));
    }
    EXPECT_EQ(note.text, "a text on the stack");
    EXPECT_EQ(dump.Memory(note.address, note.text.size()), note.text);
}

TEST_F(LastChanceTest, ExitCodeIsThatOfTheException)
{
    struct
    {
        const char* way;
        DWORD code;
    } const cases[] = {{"divide", 0xC0000094}, {"raise", 0xE0001234}};
    for (const auto& [way, code] : cases)
    {
        Clear();
        EXPECT_EQ(Die(way).exitCode, code);
        EXPECT_EQ(CodeInDump(OnlyDump()), code);
    }
}

TEST_F(LastChanceTest, CrashOfAnotherThreadIsDumpedAsThatThreads)
{
    EXPECT_EQ(Die("on-another-thread").exitCode, static_cast<DWORD>(EXCEPTION_ACCESS_VIOLATION));

    const DumpFile dump(OnlyDump());
    EXPECT_EQ(dump.Exception().ThreadId, Read().threadId);
    EXPECT_GE(dump.ThreadIds().size(), 2u);
}

TEST_F(LastChanceTest, FullStackLeavesADumpOfItsThread)
{
    for (const char* const way : {"overflow-stack", "overflow-on-another-thread"})
    {
        Clear();
        EXPECT_EQ(Die(way).exitCode, static_cast<DWORD>(EXCEPTION_STACK_OVERFLOW)) << way;
        EXPECT_EQ(CodeInDump(OnlyDump()), static_cast<DWORD>(EXCEPTION_STACK_OVERFLOW)) << way;
        EXPECT_EQ(DumpFile(OnlyDump()).Exception().ThreadId, Read().threadId) << way;
    }
}

TEST_F(LastChanceTest, TerminateLeavesADumpAndEndsByAbort)
{
    EXPECT_EQ(Die("terminate").exitCode, 3u);

    const DumpFile dump(OnlyDump());
    EXPECT_EQ(dump.Exception().ThreadId, Read().threadId);
    EXPECT_EQ(dump.Exception().ExceptionRecord.ExceptionCode, static_cast<DWORD>(EXCEPTION_ACCESS_VIOLATION));
    EXPECT_EQ(dump.ModuleAt(dump.Exception().ExceptionRecord.ExceptionAddress), "utilslib.dll");
}

TEST_F(LastChanceTest, CrashEndsWithItsCodeWhenNoDumpCanBeWritten)
{
    OccupyNames();
    EXPECT_EQ(Die("access-violation").exitCode, static_cast<DWORD>(EXCEPTION_ACCESS_VIOLATION));
    EXPECT_EQ(Die("raise").exitCode, 0xE0001234);

    EXPECT_TRUE(NoDumpFile());
}

TEST_F(LastChanceTest, TerminateWithoutADumpEndsWithTheLibrarysOwnFault)
{
    OccupyNames();
    EXPECT_EQ(Die("terminate").exitCode, static_cast<DWORD>(EXCEPTION_ACCESS_VIOLATION));
    EXPECT_EQ(Die("terminate-with-filter").exitCode, 55u); // a host's own filter gets it

    EXPECT_TRUE(NoDumpFile());
}

TEST_F(LastChanceTest, ThreadsThatCrashAtOnceLeaveAWholeDump)
{
    EXPECT_EQ(Die("violate-on-all-threads").exitCode, static_cast<DWORD>(EXCEPTION_ACCESS_VIOLATION));

    EXPECT_EQ(CodeInDump(OnlyDump()), static_cast<DWORD>(EXCEPTION_ACCESS_VIOLATION));
    EXPECT_GE(DumpFile(OnlyDump()).ThreadIds().size(), 9u);
}

TEST_F(LastChanceTest, ThreadsThatTerminateAtOnceLeaveAWholeDump)
{
    EXPECT_EQ(Die("terminate-on-all-threads").exitCode, 3u);

    EXPECT_EQ(CodeInDump(OnlyDump()), static_cast<DWORD>(EXCEPTION_ACCESS_VIOLATION));
}

TEST_F(LastChanceTest, FilterBreaksIntoADebuggerBeforeItWritesTheDump)
{
    const DebuggedResult debugged = RunDebugged(Arguments("filter"));

    EXPECT_EQ(debugged.breakpoints, 2); // one at the start of every program
    EXPECT_THAT(debugged.dumpsAtBreakpoints, testing::Each(0u));
    EXPECT_EQ(debugged.otherExceptions, 0);
    EXPECT_EQ(debugged.exitCode, 0xE0005678);
    EXPECT_EQ(CodeInDump(OnlyDump()), 0xE0005678);
}

TEST_F(LastChanceTest, TerminateHandlerBreaksIntoADebuggerAndComesBack)
{
    const DebuggedResult debugged = RunDebugged(Arguments("handler"));

    EXPECT_EQ(debugged.breakpoints, 2);
    EXPECT_THAT(debugged.dumpsAtBreakpoints, testing::Each(0u));
    EXPECT_EQ(debugged.otherExceptions, 1); // the library's own fault
    EXPECT_EQ(debugged.exitCode, 77u);
    EXPECT_EQ(CodeInDump(OnlyDump()), static_cast<DWORD>(EXCEPTION_ACCESS_VIOLATION));
}

TEST_F(LastChanceTest, HandlersWithoutADebuggerDoNotBreak)
{
    EXPECT_EQ(Die("filter").exitCode, 0xE0005678);
    EXPECT_EQ(Die("handler").exitCode, 77u);
}

TEST_F(LastChanceTest, FilterEndsThisProcessAndItsResultIsOne)
{
    const ImportPatch end(kKernel, "TerminateProcess", &NoEnd);
    const ImportPatch none(kKernel, "CreateFileA", &NoFile);
    EXCEPTION_RECORD record = {};
    record.ExceptionCode = 0xE0001111;
    EXCEPTION_POINTERS pointers = {&record, nullptr};

    EXPECT_EQ(LastChanceMiniDumpProcess(&pointers), 1);

    EXPECT_EQ(g_ended, GetCurrentProcess());
    EXPECT_EQ(g_exitCode, 0xE0001111);
}

TEST_F(LastChanceTest, FilterWithoutARecordEndsAsAnAccessViolation)
{
    const ImportPatch end(kKernel, "TerminateProcess", &NoEnd);
    const ImportPatch none(kKernel, "CreateFileA", &NoFile);
    EXCEPTION_POINTERS empty = {nullptr, nullptr};
    for (EXCEPTION_POINTERS* const pointers : {static_cast<EXCEPTION_POINTERS*>(nullptr), &empty})
    {
        g_exitCode = 0;
        EXPECT_EQ(LastChanceMiniDumpProcess(pointers), 1);
        EXPECT_EQ(g_exitCode, static_cast<UINT>(EXCEPTION_ACCESS_VIOLATION));
    }
}

TEST_F(LastChanceTest, TerminateHandlerCanBeCalledAgainAndAgain)
{
    for (int i = 0; i < 2; ++i)
    {
        Clear();
        LastChanceTerminate();
        EXPECT_EQ(DumpFile(OnlyDump()).Exception().ThreadId, GetCurrentThreadId());
    }
}

TEST_F(LastChanceTest, NoOtherDumpBeginsWhileTheFilterEndsTheProcess)
{
    const ImportPatch end(kKernel, "TerminateProcess", &DumpOnAnotherThread);
    const ImportPatch clock(kKernel, "GetTickCount64", &HurryingClock);
    const ImportPatch none(kKernel, "CreateFileA", &NoFile);
    EXCEPTION_RECORD record = {};
    EXCEPTION_POINTERS pointers = {&record, nullptr};

    g_pauses.clear();
    const ImportPatch pause(kKernel, "Sleep", &RecordedSleep);
    LastChanceMiniDumpProcess(&pointers);

    EXPECT_FALSE(g_pauses.empty()); // the other thread has waited, until it lost patience
}

TEST_F(LastChanceTest, ThreadThatHoldsDebugHelpForEverDelaysACrashByAMinute)
{
    const ImportPatch initialize("dbghelp.dll", "SymInitialize", &StayInSession);
    std::thread tracing([] { UtilsLib::Stack("").Trace(); });
    EXPECT_TRUE(g_inSession.Wait());
    {
        const ImportPatch end(kKernel, "TerminateProcess", &NoEnd);
        const ImportPatch clock(kKernel, "GetTickCount64", &HurryingClock);
        const ImportPatch pause(kKernel, "Sleep", &RecordedSleep);
        const ImportPatch create(kKernel, "CreateFileA", &NoFile);
        EXCEPTION_RECORD record = {};
        record.ExceptionCode = 0xE0002222;
        EXCEPTION_POINTERS pointers = {&record, nullptr};
        g_pauses.clear();
        g_ticks = 0;

        EXPECT_EQ(LastChanceMiniDumpProcess(&pointers), 1);

        EXPECT_EQ(g_exitCode, 0xE0002222);
        // Half a minute before the dump, two seconds for the other thread to end the process, half a minute again.
        EXPECT_THAT(g_pauses, testing::ElementsAre(10, 10, 2000, 10, 10));
    }
    g_leaveSession.Open();
    tracing.join();
}
