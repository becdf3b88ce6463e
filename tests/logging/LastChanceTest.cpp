#include <UtilsLib/logging/MiniDump.h>

#include <UtilsLib/logging/Stack.h>
#include <UtilsLib/platform/StructuredGuard.h>
#include <UtilsLib/platform/UniqueHandle.h>

#include <tests/logging/DumpFolder.h>
#include <tests/support/ChildProcess.h>
#include <tests/support/Gate.h>
#include <tests/support/HeldLoader.h>
#include <tests/support/ImportPatch.h>
#include <tests/support/TempFolder.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
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

std::vector<DWORD> g_waits;
std::vector<DWORD> g_pauses;

class LastChanceTest : public DumpTests::DumpFolder
{
protected:
    LastChanceTest()
    {
        g_waits.clear();
        g_pauses.clear();
    }
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

unsigned long long g_ticks = 0;

/// Five seconds each time somebody looks.
ULONGLONG WINAPI HurryingClock()
{
    return g_ticks += 5'000;
}

/// A wait that is over at once, whatever its limit.
DWORD WINAPI ImpatientWait(HANDLE object, DWORD limit)
{
    if (limit != 0)
    {
        g_waits.push_back(limit);
    }
    return WaitForSingleObject(object, 0);
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

struct Session
{
    Gate entered;
    Gate leave;
};
Session* g_session = nullptr;

BOOL WINAPI StayInSession(HANDLE, PCSTR, BOOL)
{
    g_session->entered.Open();
    EXPECT_TRUE(g_session->leave.Wait());
    return FALSE;
}

/// What another thread does is over as soon as it is waited for.
DWORD WINAPI WaitThatIsRewarded(HANDLE object, DWORD limit)
{
    if (limit != 0)
    {
        g_session->leave.Open();
    }
    return WaitForSingleObject(object, limit);
}

/// A thread that is within a trace, for ever as far as others see.
class TracingThread
{
public:
    TracingThread()
    {
        EXPECT_TRUE(m_session.entered.Wait());
    }
    ~TracingThread()
    {
        m_session.leave.Open();
        m_thread.join();
    }

private:
    Session m_session;
    const ImportPatch m_initialize{"dbghelp.dll", "SymInitialize", &StayInSession};
    std::thread m_thread{[this] {
        g_session = &m_session;
        UtilsLib::Stack("").Trace();
    }};
};

/// Calls the filter with an exception of this code and lets the process live. No dump is written.
void CallFilter(DWORD code)
{
    const ImportPatch end(kKernel, "TerminateProcess", &NoEnd);
    EXCEPTION_RECORD record = {};
    record.ExceptionCode = code;
    EXCEPTION_POINTERS pointers = {&record, nullptr};
    EXPECT_EQ(LastChanceMiniDumpProcess(&pointers), 1);
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
    const ImportPatch wait(kKernel, "WaitForSingleObject", &ImpatientWait);
    const ImportPatch none(kKernel, "CreateFileA", &NoFile);
    EXCEPTION_RECORD record = {};
    EXCEPTION_POINTERS pointers = {&record, nullptr};

    LastChanceMiniDumpProcess(&pointers);

    EXPECT_THAT(g_waits, testing::ElementsAre(30'000)); // the other thread's
}

TEST_F(LastChanceTest, ThreadThatHoldsDebugHelpForEverDelaysACrashByHalfAMinute)
{
    const TracingThread tracing;
    const ImportPatch wait(kKernel, "WaitForSingleObject", &ImpatientWait);
    const ImportPatch pause(kKernel, "Sleep", &RecordedSleep);
    const ImportPatch none(kKernel, "CreateFileA", &NoFile);

    CallFilter(0xE0002222);

    EXPECT_EQ(g_exitCode, 0xE0002222);
    EXPECT_THAT(g_waits, testing::ElementsAre(30'000)); // once
    EXPECT_THAT(g_pauses, testing::IsEmpty());          // nobody is about to end the process
}

TEST_F(LastChanceTest, ThreadThatStaysInADllMainDelaysACrashByTenSeconds)
{
    const ImportPatch clock(kKernel, "GetTickCount64", &HurryingClock);
    const ImportPatch pause(kKernel, "Sleep", &RecordedSleep);
    const ImportPatch end(kKernel, "TerminateProcess", &NoEnd);
    EXCEPTION_RECORD record = {};
    record.ExceptionCode = 0xE0002224;
    EXCEPTION_POINTERS pointers = {&record, nullptr};
    {
        const TestSupport::HeldLoader other;
        LastChanceMiniDumpProcess(&pointers);
    }

    EXPECT_EQ(g_exitCode, 0xE0002224);
    EXPECT_THAT(g_pauses, testing::ElementsAre(10));
    EXPECT_TRUE(NoDumpFile());
}

TEST_F(LastChanceTest, ThreadThatHasWaitedGivesTheOtherTwoSecondsToEndTheProcess)
{
    const TracingThread tracing;
    const ImportPatch wait(kKernel, "WaitForSingleObject", &WaitThatIsRewarded);
    const ImportPatch pause(kKernel, "Sleep", &RecordedSleep);
    const ImportPatch none(kKernel, "CreateFileA", &NoFile);

    CallFilter(0xE0002223);

    EXPECT_EQ(g_exitCode, 0xE0002223);
    EXPECT_THAT(g_pauses, testing::ElementsAre(2000));
}

TEST_F(LastChanceTest, TerminateWhoseFaultACallerTakesHoldsUpNobody)
{
    const ImportPatch none(kKernel, "CreateFileA", &NoFile);
    const auto terminate = [](void*) noexcept { LastChanceTerminate(); };
    const auto take = [](EXCEPTION_POINTERS*, void*) noexcept -> LONG { return EXCEPTION_EXECUTE_HANDLER; };

    EXPECT_FALSE(UtilsLib::Platform::CallGuarded(terminate, take, nullptr));

    const ImportPatch wait(kKernel, "WaitForSingleObject", &ImpatientWait);
    std::thread([] { UtilsLib::Stack("").Trace(); }).join();
    EXPECT_THAT(g_waits, testing::IsEmpty());
}

TEST_F(LastChanceTest, TraceWaitsAMinuteForAThreadThatHoldsDebugHelpForEver)
{
    const TracingThread tracing;
    const ImportPatch wait(kKernel, "WaitForSingleObject", &ImpatientWait);
    UtilsLib::Stack stack("");

    stack.Trace();

    EXPECT_EQ(stack.AsString(), "\r\nTRACE:\r\n\r\n");
    EXPECT_THAT(g_waits, testing::ElementsAre(60'000));
}
