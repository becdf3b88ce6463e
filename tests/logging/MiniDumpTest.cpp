#include <UtilsLib/logging/MiniDump.h>

#include <UtilsLib/logging/Stack.h>
#include <UtilsLib/platform/StructuredGuard.h>
#include <UtilsLib/time/Time.h>

#include <tests/logging/DumpFolder.h>
#include <tests/support/ImportPatch.h>
#include <tests/support/OpenHandles.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <fstream>
#include <new>
#include <stdexcept>
#include <thread>
#include <type_traits>

using DumpTests::DumpFile;
using DumpTests::DumpsOnDriveC;
using testing::ElementsAre;
using TestSupport::ImportPatch;
using UtilsLib::Platform::CallGuarded;

static_assert(std::is_same_v<decltype(&CreateMiniDump), DWORD (*)(EXCEPTION_POINTERS*, bool&)>);
static_assert(std::is_same_v<decltype(&LastChanceMiniDumpProcess), LONG(WINAPI*)(EXCEPTION_POINTERS*)>);
static_assert(std::is_same_v<decltype(&LastChanceTerminate), void (*)()>);

namespace
{

constexpr const char* kKernel = "KERNEL32.dll";
constexpr DWORD kCode = 0xE0004321;

using MiniDumpTest = DumpTests::DumpFolder;

/// Seconds since 1970: 15 November 2026, 4:45:23.
long long __cdecl StoppedClock(long long* result)
{
    constexpr long long kNow = 1794717923;
    if (result != nullptr)
    {
        *result = kNow;
    }
    return kNow;
}

/// An exception as a filter would see it, raised by nobody.
struct MadeUpException
{
    MadeUpException()
    {
        context.ContextFlags = CONTEXT_FULL;
        RtlCaptureContext(&context);
        record.ExceptionCode = kCode;
        record.ExceptionAddress = reinterpret_cast<void*>(static_cast<std::uintptr_t>(context.Eip));
    }
    CONTEXT context = {};
    EXCEPTION_RECORD record = {};
    EXCEPTION_POINTERS pointers = {&record, &context};
};

HANDLE WINAPI NoFile(LPCSTR, DWORD, DWORD, LPSECURITY_ATTRIBUTES, DWORD, DWORD, HANDLE)
{
    SetLastError(ERROR_ACCESS_DENIED);
    return INVALID_HANDLE_VALUE;
}

int g_raised = 0;

/// A system that is beyond saving.
HANDLE WINAPI RaisingFile(LPCSTR, DWORD, DWORD, LPSECURITY_ATTRIBUTES, DWORD, DWORD, HANDLE)
{
    ++g_raised;
    RaiseException(kCode + 2, 0, 0, nullptr);
    return INVALID_HANDLE_VALUE;
}

std::string g_created;

HANDLE WINAPI CheckedFile(LPCSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security, DWORD disposition,
                          DWORD flags, HANDLE pattern)
{
    g_created = path;
    EXPECT_EQ(access, static_cast<DWORD>(GENERIC_WRITE));
    EXPECT_EQ(share, 0u);
    EXPECT_EQ(security, nullptr);
    EXPECT_EQ(disposition, static_cast<DWORD>(CREATE_ALWAYS));
    EXPECT_EQ(flags, static_cast<DWORD>(FILE_ATTRIBUTE_NORMAL));
    EXPECT_EQ(pattern, nullptr);
    return CreateFileA(path, access, share, security, disposition, flags, pattern);
}

int g_loads = 0;
int g_unloads = 0;

HMODULE WINAPI CountedLoad(LPCSTR name)
{
    ++g_loads;
    EXPECT_STREQ(name, "dbghelp.dll");
    return LoadLibraryA(name);
}

HMODULE WINAPI NoLibrary(LPCSTR)
{
    SetLastError(ERROR_MOD_NOT_FOUND);
    return nullptr;
}

BOOL WINAPI CountedUnload(HMODULE library)
{
    ++g_unloads;
    EXPECT_EQ(library, GetModuleHandleA("dbghelp.dll"));
    return FreeLibrary(library);
}

decltype(&MiniDumpWriteDump) g_writer = nullptr; // null: there is none

FARPROC WINAPI OwnFunction(HMODULE library, LPCSTR name)
{
    if (std::strcmp(name, "MiniDumpWriteDump") != 0)
    {
        return GetProcAddress(library, name); // the C run-time asks, too
    }
    EXPECT_EQ(library, GetModuleHandleA("dbghelp.dll"));
    return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(g_writer));
}

/// Puts a stand-in in the place of MiniDumpWriteDump.
class Writer
{
public:
    explicit Writer(decltype(&MiniDumpWriteDump) writer)
    {
        g_writer = writer;
    }

private:
    const ImportPatch m_function{kKernel, "GetProcAddress", &OwnFunction};
};

EXCEPTION_POINTERS* g_pointers = nullptr;

BOOL WINAPI CheckedWriter(HANDLE process, DWORD id, HANDLE file, MINIDUMP_TYPE type,
                          PMINIDUMP_EXCEPTION_INFORMATION exception, PMINIDUMP_USER_STREAM_INFORMATION streams,
                          PMINIDUMP_CALLBACK_INFORMATION callback)
{
    EXPECT_EQ(process, GetCurrentProcess());
    EXPECT_EQ(id, GetCurrentProcessId());
    EXPECT_EQ(static_cast<int>(type), 5);
    EXPECT_EQ(exception->ThreadId, GetCurrentThreadId());
    EXPECT_EQ(exception->ExceptionPointers, g_pointers);
    EXPECT_EQ(exception->ClientPointers, TRUE);
    EXPECT_EQ(streams, nullptr);
    EXPECT_EQ(callback, nullptr);
    DWORD written = 0;
    return WriteFile(file, "checked", 7, &written, nullptr);
}

BOOL WINAPI FailingWriter(HANDLE, DWORD, HANDLE file, MINIDUMP_TYPE, PMINIDUMP_EXCEPTION_INFORMATION,
                          PMINIDUMP_USER_STREAM_INFORMATION, PMINIDUMP_CALLBACK_INFORMATION)
{
    DWORD written = 0;
    WriteFile(file, "half a dump", 11, &written, nullptr);
    return FALSE;
}

BOOL WINAPI CrashingWriter(HANDLE, DWORD, HANDLE file, MINIDUMP_TYPE, PMINIDUMP_EXCEPTION_INFORMATION,
                           PMINIDUMP_USER_STREAM_INFORMATION, PMINIDUMP_CALLBACK_INFORMATION)
{
    DWORD written = 0;
    WriteFile(file, "half a dump", 11, &written, nullptr);
    RaiseException(kCode + 1, 0, 0, nullptr);
    return TRUE;
}

BOOL WINAPI CheckedWriterOfAnyException(HANDLE, DWORD, HANDLE, MINIDUMP_TYPE, PMINIDUMP_EXCEPTION_INFORMATION exception,
                                        PMINIDUMP_USER_STREAM_INFORMATION, PMINIDUMP_CALLBACK_INFORMATION)
{
    EXPECT_NE(exception->ExceptionPointers, nullptr);
    return TRUE;
}

void* __cdecl NoMemory(std::size_t)
{
    throw std::bad_alloc();
}

std::atomic<int> g_inside = 0;
std::atomic<int> g_most = 0;

void Stay()
{
    const int inside = ++g_inside;
    g_most = std::max<int>(g_most, inside);
    Sleep(30);
}

BOOL WINAPI SlowWriter(HANDLE, DWORD, HANDLE, MINIDUMP_TYPE, PMINIDUMP_EXCEPTION_INFORMATION,
                       PMINIDUMP_USER_STREAM_INFORMATION, PMINIDUMP_CALLBACK_INFORMATION)
{
    Stay();
    --g_inside;
    return TRUE;
}

BOOL WINAPI EnterSession(HANDLE, PCSTR, BOOL)
{
    Stay();
    return TRUE;
}

BOOL WINAPI LeaveSession(HANDLE)
{
    --g_inside;
    return TRUE;
}

/// What a caller of its own around CreateMiniDump(nullptr) sees of a fault that is passed on.
struct Outer
{
    bool written = false;
    bool cameBack = false;
    int filtered = 0;
    EXCEPTION_RECORD record = {};
};

void CreateWithoutException(void* argument) noexcept
{
    auto& outer = *static_cast<Outer*>(argument);
    CreateMiniDump(nullptr, outer.written);
    outer.cameBack = true;
}

LONG TakeFault(EXCEPTION_POINTERS* exception, void* argument) noexcept
{
    auto& outer = *static_cast<Outer*>(argument);
    ++outer.filtered;
    outer.record = *exception->ExceptionRecord;
    return EXCEPTION_EXECUTE_HANDLER;
}

bool IsOwnFault(const EXCEPTION_RECORD& record)
{
    return record.ExceptionCode == EXCEPTION_ACCESS_VIOLATION && record.NumberParameters == 2 &&
           record.ExceptionInformation[0] == 1 && record.ExceptionInformation[1] == 0;
}

void* HeadOfChain()
{
    return reinterpret_cast<NT_TIB*>(NtCurrentTeb())->ExceptionList;
}

} // namespace

TEST_F(MiniDumpTest, DumpWithoutAnExceptionShowsTheLibrarysOwnFault)
{
    const void* const chain = HeadOfChain();
    bool written = false;
    EXPECT_EQ(CreateMiniDump(nullptr, written), 1u);
    EXPECT_TRUE(written);
    EXPECT_EQ(HeadOfChain(), chain);

    const DumpFile dump(OnlyDump());
    const MINIDUMP_EXCEPTION_STREAM& exception = dump.Exception();
    EXPECT_EQ(exception.ThreadId, GetCurrentThreadId());
    EXPECT_EQ(exception.ExceptionRecord.ExceptionCode, static_cast<DWORD>(EXCEPTION_ACCESS_VIOLATION));
    ASSERT_EQ(exception.ExceptionRecord.NumberParameters, 2u);
    EXPECT_EQ(exception.ExceptionRecord.ExceptionInformation[0], 1u); // a write
    EXPECT_EQ(exception.ExceptionRecord.ExceptionInformation[1], 0u); // to address 0
    EXPECT_EQ(dump.ModuleAt(exception.ExceptionRecord.ExceptionAddress), "utilslib.dll");
    EXPECT_EQ(dump.Registers().Eip, exception.ExceptionRecord.ExceptionAddress);
}

TEST_F(MiniDumpTest, DumpShowsTheGivenException)
{
    MadeUpException exception;
    bool written = false;
    EXPECT_EQ(CreateMiniDump(&exception.pointers, written), 1u);
    EXPECT_TRUE(written);

    const DumpFile dump(OnlyDump());
    EXPECT_EQ(dump.Exception().ExceptionRecord.ExceptionCode, kCode);
    EXPECT_EQ(dump.Exception().ExceptionRecord.ExceptionAddress, exception.context.Eip);
    EXPECT_EQ(dump.Exception().ThreadId, GetCurrentThreadId());
    EXPECT_EQ(dump.Registers().Esp, exception.context.Esp);
}

TEST_F(MiniDumpTest, AnotherReaderOpensTheDump)
{
    bool written = false;
    CreateMiniDump(nullptr, written);
    ASSERT_TRUE(written);

    std::string bytes = ReadOnlyDump();
    for (const MINIDUMP_STREAM_TYPE type :
         {SystemInfoStream, ThreadListStream, ModuleListStream, MemoryListStream, ExceptionStream})
    {
        MINIDUMP_DIRECTORY* entry = nullptr;
        void* stream = nullptr;
        ULONG size = 0;
        EXPECT_TRUE(MiniDumpReadDumpStream(bytes.data(), type, &entry, &stream, &size)) << type;
        EXPECT_GT(size, 0u) << type;
    }
}

TEST_F(MiniDumpTest, FileIsNamedAfterTheLocalTimeWithHyphens)
{
    const ImportPatch clock("msvcrt.dll", "_time64", &StoppedClock);
    const ImportPatch create(kKernel, "CreateFileA", &CheckedFile);
    std::string time = UtilsLib::Time::GetTimeNow();
    ASSERT_EQ(std::count(time.begin(), time.end(), ':'), 2);
    std::replace(time.begin(), time.end(), ':', '-');

    MadeUpException exception;
    bool written = false;
    CreateMiniDump(&exception.pointers, written);

    EXPECT_TRUE(written);
    EXPECT_EQ(g_created, "c:\\hx41svc crashdump " + time + ".dmp");
    EXPECT_THAT(g_created, testing::MatchesRegex("c:.hx41svc crashdump 1.-Nov-2026 ..-..-23.dmp"));
    EXPECT_THAT(DumpsOnDriveC(), ElementsAre(g_created));
}

TEST_F(MiniDumpTest, LaterDumpOfTheSameSecondOverwritesTheEarlierOne)
{
    const ImportPatch clock("msvcrt.dll", "_time64", &StoppedClock);
    MadeUpException exception;
    bool written = false;
    CreateMiniDump(&exception.pointers, written);
    ASSERT_TRUE(written);
    const std::string path = OnlyDump();
    std::ofstream(path, std::ios::binary | std::ios::app) << std::string(1'000'000, 'x');

    CreateMiniDump(nullptr, written);

    EXPECT_TRUE(written);
    EXPECT_EQ(OnlyDump(), path);
    EXPECT_EQ(ReadOnlyDump().find("xxxxxxxx"), std::string::npos);
    EXPECT_EQ(DumpFile(path).Exception().ExceptionRecord.ExceptionCode, static_cast<DWORD>(EXCEPTION_ACCESS_VIOLATION));
}

TEST_F(MiniDumpTest, WriterIsAskedForDataAndHandlesOfThisProcess)
{
    const Writer writer(&CheckedWriter);
    MadeUpException exception;
    g_pointers = &exception.pointers;
    bool written = false;

    CreateMiniDump(&exception.pointers, written);

    EXPECT_TRUE(written);
    EXPECT_EQ(ReadOnlyDump(), "checked");
}

TEST_F(MiniDumpTest, DebugHelpIsLoadedAndUnloaded)
{
    const ImportPatch load(kKernel, "LoadLibraryA", &CountedLoad);
    const ImportPatch unload(kKernel, "FreeLibrary", &CountedUnload);
    const Writer writer(&FailingWriter);
    MadeUpException exception;
    bool written = true;

    CreateMiniDump(&exception.pointers, written);

    EXPECT_FALSE(written);
    EXPECT_EQ(g_loads, 1);
    EXPECT_EQ(g_unloads, 1);
}

TEST_F(MiniDumpTest, DumpThatCannotBeWrittenLeavesNoFileAndNoHandle)
{
    MadeUpException exception;
    const auto fails = [&exception] {
        bool written = true;
        EXPECT_EQ(CreateMiniDump(&exception.pointers, written), 1u);
        return !written && DumpsOnDriveC().empty();
    };
    {
        const Writer warmUp(&FailingWriter);
        fails();
    }
    const unsigned long before = TestSupport::OpenHandles();
    {
        const ImportPatch none(kKernel, "CreateFileA", &NoFile);
        EXPECT_TRUE(fails());
    }
    {
        const ImportPatch none(kKernel, "LoadLibraryA", &NoLibrary);
        EXPECT_TRUE(fails());
    }
    {
        const Writer none(nullptr);
        EXPECT_TRUE(fails());
    }
    {
        const Writer writer(&FailingWriter);
        EXPECT_TRUE(fails());
    }
    {
        const Writer writer(&CrashingWriter);
        EXPECT_TRUE(fails());
    }
    EXPECT_EQ(TestSupport::OpenHandles(), before);
}

TEST_F(MiniDumpTest, FaultOfADumpThatCannotBeWrittenReachesTheCallersHandlers)
{
    const void* const chain = HeadOfChain();
    const ImportPatch none(kKernel, "CreateFileA", &NoFile);
    for (const bool before : {false, true})
    {
        Outer outer;
        outer.written = before;
        EXPECT_FALSE(CallGuarded(&CreateWithoutException, &TakeFault, &outer));

        EXPECT_EQ(outer.filtered, 1);
        EXPECT_TRUE(IsOwnFault(outer.record));
        EXPECT_EQ(outer.written, before); // as it was
        EXPECT_FALSE(outer.cameBack);
        EXPECT_EQ(HeadOfChain(), chain);
    }
    EXPECT_THAT(DumpsOnDriveC(), ElementsAre());
}

TEST_F(MiniDumpTest, FaultOfACrashingWriterReachesTheCallersHandlersToo)
{
    const Writer writer(&CrashingWriter);
    Outer outer;
    EXPECT_FALSE(CallGuarded(&CreateWithoutException, &TakeFault, &outer));

    EXPECT_EQ(outer.filtered, 1);
    EXPECT_TRUE(IsOwnFault(outer.record));
    EXPECT_THAT(DumpsOnDriveC(), ElementsAre());
}

TEST_F(MiniDumpTest, FaultWhileTheFaultIsDumpedDoesNotHideIt)
{
    g_raised = 0;
    const ImportPatch raising(kKernel, "CreateFileA", &RaisingFile);
    Outer outer;
    EXPECT_FALSE(CallGuarded(&CreateWithoutException, &TakeFault, &outer));

    EXPECT_EQ(g_raised, 1);
    EXPECT_EQ(outer.filtered, 1);
    EXPECT_TRUE(IsOwnFault(outer.record));
    EXPECT_FALSE(outer.written);
    std::thread([] { UtilsLib::Stack("").Trace(); }).join(); // does not wait for ever
}

TEST_F(MiniDumpTest, FaultWhileAFullStackIsDumpedIsADumpThatCannotBeWritten)
{
    g_raised = 0;
    const ImportPatch raising(kKernel, "CreateFileA", &RaisingFile); // on a thread that nobody guards from outside
    MadeUpException exception;
    exception.record.ExceptionCode = EXCEPTION_STACK_OVERFLOW;
    bool written = true;

    CreateMiniDump(&exception.pointers, written);

    EXPECT_EQ(g_raised, 1);
    EXPECT_FALSE(written);
}

TEST_F(MiniDumpTest, CallersHandlersDoNotSeeTheFaultOfAWrittenDump)
{
    const Writer writer(&CheckedWriterOfAnyException);
    Outer outer;
    EXPECT_TRUE(CallGuarded(&CreateWithoutException, &TakeFault, &outer));

    EXPECT_EQ(outer.filtered, 0);
    EXPECT_TRUE(outer.written);
    EXPECT_TRUE(outer.cameBack);
}

TEST_F(MiniDumpTest, DumpIsWrittenWithinAFilterAndWithinACatchBlock)
{
    const auto raise = [](void*) noexcept { RaiseException(kCode, 0, 0, nullptr); };
    const auto dumpInFilter = [](EXCEPTION_POINTERS*, void* argument) noexcept -> LONG {
        CreateMiniDump(nullptr, *static_cast<bool*>(argument));
        return EXCEPTION_EXECUTE_HANDLER;
    };
    const Writer writer(&CheckedWriterOfAnyException);
    bool inFilter = false;
    bool inCatch = false;

    EXPECT_FALSE(CallGuarded(raise, dumpInFilter, &inFilter));
    try
    {
        throw std::runtime_error("outer");
    }
    catch (const std::runtime_error& error)
    {
        CreateMiniDump(nullptr, inCatch);
        EXPECT_STREQ(error.what(), "outer");
    }
    EXPECT_THROW(throw 1, int);

    EXPECT_TRUE(inFilter);
    EXPECT_TRUE(inCatch);
}

TEST_F(MiniDumpTest, ShortageOfMemoryIsADumpThatCannotBeWritten)
{
    const ImportPatch noMemory("libstdc++-6.dll", "_Znwj", &NoMemory);
    MadeUpException exception;
    bool written = true;
    EXPECT_EQ(CreateMiniDump(&exception.pointers, written), 1u);

    EXPECT_FALSE(written);
}

TEST_F(MiniDumpTest, DumpsAndTracesOfSeveralThreadsTakeTurns)
{
    g_inside = 0;
    g_most = 0;
    const Writer writer(&SlowWriter);
    const ImportPatch initialize("dbghelp.dll", "SymInitialize", &EnterSession);
    const ImportPatch cleanup("dbghelp.dll", "SymCleanup", &LeaveSession);
    std::vector<std::thread> threads;
    for (int i = 0; i < 6; ++i)
    {
        threads.emplace_back([i] {
            bool written = false;
            MadeUpException exception;
            if (i % 3 == 0)
            {
                UtilsLib::Stack("").Trace();
                return;
            }
            CreateMiniDump(i % 3 == 1 ? nullptr : &exception.pointers, written);
            EXPECT_TRUE(written);
        });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }

    EXPECT_EQ(g_most, 1);
}

TEST_F(MiniDumpTest, LibraryIsAllowedHandlersOfStructuredExceptions)
{
    // Windows calls no handler of a module that is marked as having none.
    const auto* const base = reinterpret_cast<const unsigned char*>(GetModuleHandleA("UtilsLib.dll"));
    const auto* const headers =
        reinterpret_cast<const IMAGE_NT_HEADERS*>(base + reinterpret_cast<const IMAGE_DOS_HEADER*>(base)->e_lfanew);

    EXPECT_EQ(headers->OptionalHeader.DllCharacteristics & IMAGE_DLLCHARACTERISTICS_NO_SEH, 0);
}
