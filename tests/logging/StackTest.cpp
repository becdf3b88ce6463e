#include <UtilsLib/logging/Stack.h>

#include <UtilsLib/files/Paths.h>
#include <UtilsLib/platform/UniqueHandle.h>
#include <UtilsLib/system/HelperUtils.h>
#include <tests/support/FieldsOf.h>
#include <tests/support/Gate.h>
#include <tests/support/ImportPatch.h>
#include <tests/support/OpenHandles.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <dbghelp.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <regex>
#include <thread>
#include <type_traits>

using testing::ElementsAre;
using testing::StrCaseEq;
using TestSupport::Gate;
using TestSupport::ImportPatch;

using UtilsLib::Stack;

static_assert(!std::is_polymorphic_v<Stack>);
static_assert(std::is_copy_constructible_v<Stack> && std::is_copy_assignable_v<Stack>);

namespace
{

constexpr const char* kDebugHelp = "dbghelp.dll";

/// The steps of a trace, which are for derived classes.
class Steps : public Stack
{
public:
    Steps() : Stack("")
    {
    }
    using Stack::DumpStackTraceEx;
    using Stack::InitSymbolLookup;
    using Stack::TraceFrame;
};

/// A line of the text form.
struct Line
{
    std::string module;
    std::string function;
    unsigned int line;
    unsigned long long address;
};

std::vector<Line> Parse(const std::string& text)
{
    static const std::regex pattern("FRAME Lib: (.*) Func: (.*) Line: ([0-9]+) Address: ([0-9]+)");
    std::vector<Line> lines;
    std::smatch match;
    for (std::string rest = text; std::regex_search(rest, match, pattern); rest = match.suffix())
    {
        lines.push_back({match[1], match[2], static_cast<unsigned int>(std::stoul(match[3])), std::stoull(match[4])});
    }
    return lines;
}

HMODULE ModuleOf(unsigned long long address)
{
    HMODULE module = nullptr;
    GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                       reinterpret_cast<const char*>(static_cast<std::uintptr_t>(address)), &module);
    return module;
}

const Line* Find(const std::vector<Line>& lines, const std::string& function)
{
    const auto found = std::find_if(lines.begin(), lines.end(), [&](const Line& line) {
        return line.function.find(function) != std::string::npos;
    });
    return found == lines.end() ? nullptr : &*found;
}

std::vector<std::string>* ms_calls = nullptr;

BOOL WINAPI RecordedInitialize(HANDLE process, PCSTR searchPath, BOOL invade)
{
    ms_calls->push_back("SymInitialize " + std::string(searchPath) + " " + std::to_string(invade));
    return process == GetCurrentProcess();
}

DWORD WINAPI RecordedOptions(DWORD options)
{
    ms_calls->push_back("SymSetOptions " + std::to_string(options));
    return options;
}

BOOL WINAPI RecordedSearchPath(HANDLE process, PCSTR searchPath)
{
    ms_calls->push_back("SymSetSearchPath " + std::string(searchPath));
    return process == GetCurrentProcess();
}

BOOL WINAPI RecordedRefresh(HANDLE process)
{
    ms_calls->push_back("SymRefreshModuleList");
    return process == GetCurrentProcess();
}

BOOL WINAPI RecordedCleanup(HANDLE process)
{
    ms_calls->push_back("SymCleanup");
    return process == GetCurrentProcess();
}

BOOL WINAPI NoWalk(DWORD machine, HANDLE, HANDLE, LPSTACKFRAME64 frame, PVOID context, PREAD_PROCESS_MEMORY_ROUTINE64,
                   PFUNCTION_TABLE_ACCESS_ROUTINE64, PGET_MODULE_BASE_ROUTINE64, PTRANSLATE_ADDRESS_ROUTINE64)
{
    EXPECT_EQ(machine, static_cast<DWORD>(IMAGE_FILE_MACHINE_I386));
    EXPECT_EQ(static_cast<CONTEXT*>(context)->ContextFlags & 0x10007u, 0x10007u);
    EXPECT_EQ(frame->AddrPC.Mode, AddrModeFlat);
    EXPECT_EQ(frame->AddrFrame.Mode, AddrModeFlat);
    EXPECT_EQ(frame->AddrStack.Mode, AddrModeFlat);
    EXPECT_EQ(frame->AddrPC.Offset, static_cast<CONTEXT*>(context)->Eip);
    EXPECT_EQ(frame->AddrFrame.Offset, static_cast<CONTEXT*>(context)->Ebp);
    EXPECT_EQ(frame->AddrStack.Offset, static_cast<CONTEXT*>(context)->Esp);
    return FALSE;
}

int ms_steps = 0;

/// A walk of two further frames.
BOOL WINAPI ShortWalk(DWORD, HANDLE, HANDLE, LPSTACKFRAME64 frame, PVOID, PREAD_PROCESS_MEMORY_ROUTINE64,
                      PFUNCTION_TABLE_ACCESS_ROUTINE64, PGET_MODULE_BASE_ROUTINE64, PTRANSLATE_ADDRESS_ROUTINE64)
{
    ++ms_steps;
    frame->AddrPC.Offset = 1000u + ms_steps;
    return ms_steps <= 2;
}

/// Sessions without a debug-help library behind them: every trace has the addresses of `ShortWalk`.
class MadeUpSession
{
public:
    MadeUpSession()
    {
        ms_calls = &m_calls;
        ms_steps = 0;
    }
    const std::vector<std::string>& Calls() const
    {
        return m_calls;
    }

private:
    std::vector<std::string> m_calls;
    const ImportPatch m_initialize{kDebugHelp, "SymInitialize", &RecordedInitialize};
    const ImportPatch m_options{kDebugHelp, "SymSetOptions", &RecordedOptions};
    const ImportPatch m_searchPath{kDebugHelp, "SymSetSearchPath", &RecordedSearchPath};
    const ImportPatch m_refresh{kDebugHelp, "SymRefreshModuleList", &RecordedRefresh};
    const ImportPatch m_cleanup{kDebugHelp, "SymCleanup", &RecordedCleanup};
    const ImportPatch m_walk{kDebugHelp, "StackWalk64", &ShortWalk};
};

DWORD64 WINAPI ModuleOfOddAddresses(HANDLE, DWORD64 address)
{
    return address % 2;
}

BOOL WINAPI MadeUpModule(HANDLE, DWORD64 address, PIMAGEHLP_MODULE64 module)
{
    EXPECT_EQ(module->SizeOfStruct, sizeof(IMAGEHLP_MODULE64));
    EXPECT_EQ(address % 2, 1u);
    std::strcpy(module->ModuleName, "module");
    return TRUE;
}

BOOL WINAPI MadeUpSymbol(HANDLE, DWORD64 address, PDWORD64, PIMAGEHLP_SYMBOL64 symbol)
{
    EXPECT_EQ(symbol->SizeOfStruct, sizeof(IMAGEHLP_SYMBOL64));
    EXPECT_EQ(symbol->MaxNameLength, 255u);
    std::strcpy(symbol->Name, ("function" + std::to_string(address % 10)).c_str());
    return TRUE;
}

BOOL WINAPI NoSymbol(HANDLE, DWORD64, PDWORD64, PIMAGEHLP_SYMBOL64)
{
    return FALSE;
}

/// Symbols for made-up addresses only, as if the library had none of its own.
BOOL WINAPI NoSymbolOfTheLibrary(HANDLE process, DWORD64 address, PDWORD64 displacement, PIMAGEHLP_SYMBOL64 symbol)
{
    return address < 2000 && MadeUpSymbol(process, address, displacement, symbol);
}

std::vector<unsigned long long> ms_missed;

/// The real symbols, but none of the C run-time's: whether it has some depends on the system.
BOOL WINAPI SymbolsOutsideTheCRunTime(HANDLE process, DWORD64 address, PDWORD64 displacement, PIMAGEHLP_SYMBOL64 symbol)
{
    const bool found = ModuleOf(address) != GetModuleHandleA("msvcrt.dll") &&
                       SymGetSymFromAddr64(process, address, displacement, symbol);
    if (!found)
    {
        ms_missed.push_back(address);
    }
    return found;
}

BOOL WINAPI LongestSymbol(HANDLE, DWORD64, PDWORD64, PIMAGEHLP_SYMBOL64 symbol)
{
    std::memset(symbol->Name, 'x', symbol->MaxNameLength + 1); // without a terminator
    return TRUE;
}

BOOL WINAPI MadeUpLine(HANDLE, DWORD64 address, PDWORD, PIMAGEHLP_LINE64 line)
{
    EXPECT_EQ(line->SizeOfStruct, sizeof(IMAGEHLP_LINE64));
    line->LineNumber = 4'000'000'000u;
    return address % 2 != 0;
}

DWORD ms_directoryResult = 0;

DWORD WINAPI MadeUpDirectory(DWORD size, LPSTR)
{
    EXPECT_EQ(size, 500u);
    return ms_directoryResult;
}

unsigned int ms_line = 0;

void TraceHere(Stack& stack)
{
    ms_line = __LINE__ + 1;
    stack.Trace();
    std::atomic_signal_fence(std::memory_order_seq_cst); // keeps this frame: the call is not the function's last act
}

struct Klass
{
    static int Compare(const void* left, const void*)
    {
        (**static_cast<Stack* const*>(left)).Trace();
        std::atomic_signal_fence(std::memory_order_seq_cst);
        return 0;
    }
};

void TraceThroughTheCRunTime(Stack& stack)
{
    Stack* both[] = {&stack, &stack};
    std::qsort(both, 2, sizeof(both[0]), &Klass::Compare);
    std::atomic_signal_fence(std::memory_order_seq_cst);
}

} // namespace

TEST(StackTest, TextOfAStackWithoutFramesIsHeadAndTail)
{
    EXPECT_EQ(Stack("").AsString(), "\r\nTRACE:\r\n\r\n");
}

TEST(StackTest, TraceGivesTheCallersFromTheInnermostToTheOutermost)
{
    Stack stack("");
    TraceHere(stack);
    const std::string text = stack.AsString();

    const std::vector<Line> lines = Parse(text);
    // The captured address comes twice and goes once; the trace itself stays.
    ASSERT_GE(lines.size(), 3u) << text;
    EXPECT_EQ(lines[0].function, "UtilsLib::Stack::Trace");
    EXPECT_THAT(lines[0].module, StrCaseEq("UtilsLib"));
    EXPECT_EQ(ModuleOf(lines[0].address), GetModuleHandleA("UtilsLib.dll"));
    const Line& here = lines[1];
    EXPECT_EQ(here.function, "TraceHere");
    EXPECT_EQ(here.module, "logging_tests");
    EXPECT_GE(here.line, ms_line); // that of the instruction which the call returns to
    EXPECT_LE(here.line, ms_line + 2);
    EXPECT_EQ(ModuleOf(here.address), GetModuleHandleA(nullptr));
    EXPECT_NE(lines[2].function.find("TestBody"), std::string::npos) << text;
    EXPECT_EQ(lines.back().function, "main") << text;
}

TEST(StackTest, FramesWithoutSymbolsAreLeftOut)
{
    const ImportPatch symbols(kDebugHelp, "SymGetSymFromAddr64", &SymbolsOutsideTheCRunTime);
    ms_missed.clear();
    Stack stack("");
    TraceThroughTheCRunTime(stack);
    const std::string text = stack.AsString();

    const std::vector<Line> lines = Parse(text);
    EXPECT_NE(Find(lines, "Klass::Compare"), nullptr) << text;
    EXPECT_NE(Find(lines, "TraceThroughTheCRunTime"), nullptr) << text;
    EXPECT_FALSE(ms_missed.empty());
    for (const Line& line : lines)
    {
        EXPECT_EQ(std::count(ms_missed.begin(), ms_missed.end(), line.address), 0) << text;
        EXPECT_NE(line.module, "UnknownModule") << text;
    }
}

TEST(StackTest, TraceReplacesTheFramesOfAnEarlierOne)
{
    const MadeUpSession session;
    const ImportPatch symbols(kDebugHelp, "SymGetSymFromAddr64", &MadeUpSymbol);
    Stack stack("");
    stack.Trace();
    ASSERT_EQ(Parse(stack.AsString()).size(), 2u);
    ms_steps = 0;

    stack.Trace();
    EXPECT_EQ(Parse(stack.AsString()).size(), 2u);

    ms_directoryResult = 0;
    const ImportPatch directory("KERNEL32.dll", "GetCurrentDirectoryA", &MadeUpDirectory);
    stack.Trace();
    EXPECT_EQ(stack.AsString(), "\r\nTRACE:\r\n\r\n");
}

TEST(StackTest, TraceLeavesNoSessionAndNoHandles)
{
    Stack stack("");
    stack.Trace();
    const unsigned long before = TestSupport::OpenHandles();

    stack.Trace();

    EXPECT_EQ(TestSupport::OpenHandles(), before);
    // A session of our own would fail if one were left.
    EXPECT_TRUE(SymInitialize(GetCurrentProcess(), nullptr, FALSE));
    EXPECT_TRUE(SymCleanup(GetCurrentProcess()));
}

TEST(StackTest, TraceSetsUpAndCleansUpTheSymbolLibrary)
{
    const MadeUpSession session;
    const ImportPatch symbols(kDebugHelp, "SymGetSymFromAddr64", &NoSymbol);

    Stack stack("C:\\Symbols");
    stack.Trace();

    // 0x30237 before the modules are loaded, so that the first trace has lines, and again.
    EXPECT_THAT(session.Calls(),
                ElementsAre("SymSetOptions 197175", "SymInitialize C:\\Symbols 1", "SymSetOptions 197175",
                            "SymSetSearchPath C:\\Symbols", "SymRefreshModuleList", "SymCleanup"));
    EXPECT_EQ(stack.AsString(), "\r\nTRACE:\r\n\r\n");
}

TEST(StackTest, EmptySearchPathIsTheFolderOfTheProgram)
{
    const MadeUpSession session;
    const std::string folder = UtilsLib::Paths::GetPath(UtilsLib::HelperUtils::GetBinaryPath());
    ASSERT_FALSE(folder.empty());

    Stack("").Trace();

    EXPECT_EQ(session.Calls().at(1), "SymInitialize " + folder + " 1");
    EXPECT_EQ(session.Calls().at(3), "SymSetSearchPath " + folder);
}

TEST(StackTest, CurrentDirectoryThatDoesNotFitEndsTheTrace)
{
    struct
    {
        DWORD result;
        bool traced;
    } const cases[] = {{0, false}, {1, true}, {499, true}, {500, true}, {501, false}};
    const ImportPatch directory("KERNEL32.dll", "GetCurrentDirectoryA", &MadeUpDirectory);
    for (const auto& [result, traced] : cases)
    {
        const MadeUpSession session;
        ms_directoryResult = result;
        Stack("").Trace();
        EXPECT_EQ(!session.Calls().empty(), traced) << result;
    }
}

TEST(StackTest, FramesAreModuleFunctionLineAndAddress)
{
    const MadeUpSession session;
    const ImportPatch bases(kDebugHelp, "SymGetModuleBase64", &ModuleOfOddAddresses);
    const ImportPatch modules(kDebugHelp, "SymGetModuleInfo64", &MadeUpModule);
    const ImportPatch symbols(kDebugHelp, "SymGetSymFromAddr64", &NoSymbolOfTheLibrary);
    const ImportPatch lines(kDebugHelp, "SymGetLineFromAddr64", &MadeUpLine);

    Stack stack("");
    stack.Trace();

    // The library's own frame has no symbol here: then there is no capture point to remove, and no caller is lost.
    EXPECT_EQ(stack.AsString(), "\r\nTRACE:\r\n"
                                "FRAME Lib: module Func: function1 Line: 4000000000 Address: 1001\r\n"
                                "FRAME Lib: UnknownModule Func: function2 Line: 0 Address: 1002\r\n"
                                "\r\n");
}

TEST(StackTest, CapturePointWithASymbolIsRemoved)
{
    const MadeUpSession session;
    const ImportPatch symbols(kDebugHelp, "SymGetSymFromAddr64", &MadeUpSymbol);

    Stack stack("");
    stack.Trace();

    const std::vector<Line> lines = Parse(stack.AsString());
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].address, 1001u);
    EXPECT_EQ(lines[1].address, 1002u);
}

TEST(StackTest, CopiesTakeSearchPathAndFrames)
{
    const MadeUpSession session;
    const ImportPatch symbols(kDebugHelp, "SymGetSymFromAddr64", &MadeUpSymbol);
    Stack stack("C:\\Symbols");
    stack.Trace();

    Stack copy(stack);
    Stack assigned("elsewhere");
    assigned = stack;

    for (Stack* const each : {&copy, &assigned})
    {
        EXPECT_EQ(each->AsString(), stack.AsString());
        each->Trace();
        EXPECT_EQ(session.Calls().at(session.Calls().size() - 3), "SymSetSearchPath C:\\Symbols");
    }
}

TEST(StackTest, FieldsStandInTheirOrder)
{
    struct Frame
    {
        std::string module;
        std::string function;
        unsigned int line;
        unsigned long long address;
    };
    struct Fields
    {
        std::string searchPath;
        std::vector<Frame> frames;
    };
    const MadeUpSession session;
    const ImportPatch bases(kDebugHelp, "SymGetModuleBase64", &ModuleOfOddAddresses);
    const ImportPatch modules(kDebugHelp, "SymGetModuleInfo64", &MadeUpModule);
    const ImportPatch symbols(kDebugHelp, "SymGetSymFromAddr64", &NoSymbolOfTheLibrary);
    const ImportPatch lines(kDebugHelp, "SymGetLineFromAddr64", &MadeUpLine);
    Stack stack("C:\\Symbols");
    stack.Trace();

    const auto& fields = TestSupport::FieldsOf<Fields>(stack);
    EXPECT_EQ(fields.searchPath, "C:\\Symbols");
    ASSERT_EQ(fields.frames.size(), 2u);
    EXPECT_EQ(fields.frames[0].module, "module");
    EXPECT_EQ(fields.frames[0].function, "function1");
    EXPECT_EQ(fields.frames[0].line, 4'000'000'000u);
    EXPECT_EQ(fields.frames[0].address, 1001u);
}

TEST(StackTest, FunctionNamesHaveAtMost255Characters)
{
    const MadeUpSession session;
    const ImportPatch symbols(kDebugHelp, "SymGetSymFromAddr64", &LongestSymbol);

    Steps steps;
    steps.TraceFrame(GetCurrentProcess(), 0xFFFFFFFFFFFFFFFF);

    EXPECT_EQ(steps.AsString(), "\r\nTRACE:\r\nFRAME Lib: UnknownModule Func: " + std::string(255, 'x') +
                                    " Line: 0 Address: 18446744073709551615\r\n\r\n");
}

TEST(StackTest, InitSymbolLookupSetsOptionsAndPathAndReadsTheModules)
{
    const MadeUpSession session;
    Steps steps;

    EXPECT_EQ(steps.InitSymbolLookup(GetCurrentProcess(), "C:\\Symbols"), 1);

    EXPECT_THAT(session.Calls(),
                ElementsAre("SymSetOptions 197175", "SymSetSearchPath C:\\Symbols", "SymRefreshModuleList"));
}

TEST(StackTest, WalkBeginsAtTheCapturedContextAndEndsWhereItFails)
{
    Steps steps;
    const ImportPatch none(kDebugHelp, "StackWalk64", &NoWalk);

    const std::list<unsigned long long> addresses = steps.DumpStackTraceEx(GetCurrentProcess(), GetCurrentThread());

    // The captured context is that of the function that asks.
    ASSERT_EQ(addresses.size(), 1u);
    EXPECT_EQ(ModuleOf(addresses.front()), GetModuleHandleA(nullptr));
}

TEST(StackTest, WalkOfAnotherThreadBeginsAtThatThreadsContext)
{
    Gate begun;
    Gate end;
    DWORD id = 0;
    std::thread other([&] {
        id = GetCurrentThreadId();
        begun.Open();
        EXPECT_TRUE(end.Wait());
    });
    EXPECT_TRUE(begun.Wait());
    const UtilsLib::Platform::UniqueHandle owned(OpenThread(THREAD_ALL_ACCESS, FALSE, id));
    EXPECT_TRUE(owned);
    const HANDLE thread = owned.Get();
    SuspendThread(thread);
    CONTEXT context = {};
    context.ContextFlags = CONTEXT_CONTROL;
    EXPECT_TRUE(GetThreadContext(thread, &context));

    Steps steps;
    std::list<unsigned long long> addresses;
    {
        const ImportPatch none(kDebugHelp, "StackWalk64", &NoWalk);
        addresses = steps.DumpStackTraceEx(GetCurrentProcess(), thread);
    }

    ResumeThread(thread);
    end.Open();
    other.join();
    EXPECT_THAT(addresses, ElementsAre(context.Eip));
    EXPECT_TRUE(steps.DumpStackTraceEx(GetCurrentProcess(), nullptr).empty());
}

namespace
{

std::atomic<int> ms_sessions = 0;
std::atomic<int> ms_mostSessions = 0;

BOOL WINAPI CountedInitialize(HANDLE, PCSTR, BOOL)
{
    const int sessions = ++ms_sessions;
    ms_mostSessions = std::max<int>(ms_mostSessions, sessions);
    Sleep(2);
    return TRUE;
}

BOOL WINAPI CountedCleanup(HANDLE)
{
    --ms_sessions;
    return TRUE;
}

BOOL WINAPI SilentRefresh(HANDLE)
{
    return TRUE;
}

BOOL WINAPI EndOfWalk(DWORD, HANDLE, HANDLE, LPSTACKFRAME64, PVOID, PREAD_PROCESS_MEMORY_ROUTINE64,
                      PFUNCTION_TABLE_ACCESS_ROUTINE64, PGET_MODULE_BASE_ROUTINE64, PTRANSLATE_ADDRESS_ROUTINE64)
{
    return FALSE;
}

} // namespace

TEST(StackTest, TracesOfSeveralThreadsDoNotMeetInTheSymbolLibrary)
{
    const ImportPatch initialize(kDebugHelp, "SymInitialize", &CountedInitialize);
    const ImportPatch cleanup(kDebugHelp, "SymCleanup", &CountedCleanup);
    const ImportPatch refresh(kDebugHelp, "SymRefreshModuleList", &SilentRefresh);
    const ImportPatch walk(kDebugHelp, "StackWalk64", &EndOfWalk);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
    {
        threads.emplace_back([] {
            for (int round = 0; round < 10; ++round)
            {
                Stack("").Trace();
            }
        });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }

    EXPECT_EQ(ms_mostSessions, 1);
    EXPECT_EQ(ms_sessions, 0);
}
