#include <UtilsLib/logging/MiniDump.h>

#include <UtilsLib/platform/DebugHelpTurn.h>
#include <UtilsLib/platform/LoaderLock.h>
#include <UtilsLib/platform/StructuredGuard.h>
#include <UtilsLib/platform/UniqueFileHandle.h>
#include <UtilsLib/platform/UniqueHandle.h>
#include <UtilsLib/platform/UniqueModule.h>
#include <UtilsLib/time/Time.h>

#include <dbghelp.h>

#include <algorithm>
#include <string>

namespace
{

namespace Platform = UtilsLib::Platform;

constexpr int kDumpType = MiniDumpWithDataSegs | MiniDumpWithHandleData;
static_assert(kDumpType == 5);

constexpr DWORD kTurnLimit = 30'000;       // ms of waiting for a trace or a dump of another thread
constexpr DWORD kLoaderLimit = 10'000;     // ms of waiting for a DllMain of another thread
constexpr DWORD kOtherStackLimit = 30'000; // ms for a dump that another thread writes
constexpr DWORD kTimeToEnd = 2'000;        // ms for a thread that has written its dump to end the process

std::string DumpPath()
{
    std::string time = UtilsLib::Time::GetTimeNow();
    std::replace(time.begin(), time.end(), ':', '-');
    return "c:\\hx41svc crashdump " + time + ".dmp";
}

struct DumpCall
{
    decltype(&MiniDumpWriteDump) function;
    HANDLE file;
    DWORD threadId;
    EXCEPTION_POINTERS* exception;
    BOOL result;
};

void MakeDumpCall(void* argument) noexcept
{
    auto& call = *static_cast<DumpCall*>(argument);
    MINIDUMP_EXCEPTION_INFORMATION information = {};
    information.ThreadId = call.threadId;
    information.ExceptionPointers = call.exception;
    information.ClientPointers = TRUE;
    call.result = call.function(GetCurrentProcess(), GetCurrentProcessId(), call.file,
                                static_cast<MINIDUMP_TYPE>(kDumpType), &information, nullptr, nullptr);
}

LONG GiveUp(EXCEPTION_POINTERS*, void*) noexcept
{
    return EXCEPTION_EXECUTE_HANDLER;
}

/// The function is looked up by name: where a host brings a library too old to have it, there is no dump, but
/// the host starts.
BOOL WriteDumpTo(HANDLE file, DWORD threadId, EXCEPTION_POINTERS* exception)
{
    const Platform::UniqueModule library(LoadLibraryA("dbghelp.dll"));
    if (!library)
    {
        return FALSE;
    }
    DumpCall call = {};
    // By way of void*, since the two function types have nothing in common.
    call.function = reinterpret_cast<decltype(call.function)>(
        reinterpret_cast<void*>(GetProcAddress(library.Get(), "MiniDumpWriteDump")));
    call.file = file;
    call.threadId = threadId;
    call.exception = exception;
    if (call.function == nullptr)
    {
        return FALSE;
    }
    // In a process that is damaged enough the library crashes, too: that is a dump which cannot be written.
    return Platform::CallGuarded(&MakeDumpCall, &GiveUp, &call) ? call.result : FALSE;
}

BOOL WriteDumpFile(DWORD threadId, EXCEPTION_POINTERS* exception)
{
    const std::string path = DumpPath();
    Platform::UniqueFileHandle file(
        CreateFileA(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file)
    {
        return FALSE;
    }
    const BOOL result = WriteDumpTo(file.Get(), threadId, exception);
    file.Reset();
    if (!result)
    {
        DeleteFileA(path.c_str());
    }
    return result;
}

bool TryWriteDumpFile(DWORD threadId, EXCEPTION_POINTERS* exception) noexcept
{
    try
    {
        return WriteDumpFile(threadId, exception) == TRUE;
    }
    catch (...)
    {
        return false; // no memory for the file's name
    }
}

struct WriteRequest
{
    DWORD threadId;
    EXCEPTION_POINTERS* exception;
    bool written;
};

void WriteOnThisStack(void* argument) noexcept
{
    auto& request = *static_cast<WriteRequest*>(argument);
    request.written = TryWriteDumpFile(request.threadId, request.exception);
}

/// Not on the stack of the thread that asks: when that one stops waiting, the other still has it. Belongs to the thread
/// whose turn it is.
WriteRequest g_otherStack;

DWORD WINAPI WriteDumpOnThread(void*)
{
    // The guard of the thread that asks does not reach here.
    Platform::CallGuarded(&WriteOnThisStack, &GiveUp, &g_otherStack);
    return 0;
}

/// For a thread whose own stack is full.
bool WriteDumpOnOtherStack(const WriteRequest& request)
{
    g_otherStack = request;
    const Platform::UniqueHandle thread(CreateThread(nullptr, 0, &WriteDumpOnThread, nullptr, 0, nullptr));
    return thread && WaitForSingleObject(thread.Get(), kOtherStackLimit) == WAIT_OBJECT_0 && g_otherStack.written;
}

bool IsStackFull(const EXCEPTION_POINTERS& exception)
{
    return exception.ExceptionRecord != nullptr && exception.ExceptionRecord->ExceptionCode == EXCEPTION_STACK_OVERFLOW;
}

void WriteOnFittingStack(void* argument) noexcept
{
    // A DllMain often waits for a thread's end: for that of this thread, it would wait for ever.
    if (!Platform::WaitForLoader(kLoaderLimit))
    {
        return;
    }
    auto& request = *static_cast<WriteRequest*>(argument);
    if (IsStackFull(*request.exception))
    {
        request.written = WriteDumpOnOtherStack(request);
        return;
    }
    WriteOnThisStack(argument);
}

/// Waits `turnLimit` ms at most for other threads. A fault on the way is a dump that cannot be written: it must neither
/// hide the first one nor keep the turn.
bool WriteDump(EXCEPTION_POINTERS* exception, DWORD turnLimit) noexcept
{
    const Platform::DebugHelpTurn turn(turnLimit);
    WriteRequest request = {GetCurrentThreadId(), exception, false};
    return Platform::CallGuarded(&WriteOnFittingStack, &GiveUp, &request) && request.written;
}

struct DumpRequest
{
    EXCEPTION_POINTERS* exception;
    bool& written;
    DWORD turnLimit;
};

void DumpOrFault(void* argument) noexcept
{
    auto& request = *static_cast<DumpRequest*>(argument);
    if (request.exception != nullptr)
    {
        request.written = WriteDump(request.exception, request.turnLimit);
        return;
    }
    // kept: only a real exception has real exception pointers. The filter below gets them.
    Platform::WriteToAddressZero();
}

LONG DumpOfFault(EXCEPTION_POINTERS* exception, void* argument) noexcept
{
    const auto& request = *static_cast<DumpRequest*>(argument);
    return WriteDump(exception, request.turnLimit) ? EXCEPTION_EXECUTE_HANDLER : EXCEPTION_CONTINUE_SEARCH;
}

void CreateDump(EXCEPTION_POINTERS* exception, bool& written, DWORD turnLimit)
{
    DumpRequest request{exception, written, turnLimit};
    if (!Platform::CallGuarded(&DumpOrFault, &DumpOfFault, &request))
    {
        written = true;
    }
}

void BreakIntoDebugger()
{
    if (IsDebuggerPresent())
    {
        DebugBreak();
    }
}

/// A thread that is about to end the process. One that comes while another has the turn, most likely to write its dump,
/// lets that one end the process: a second dump in the same second would overwrite the first and be cut off by the end.
struct LastChance
{
    explicit LastChance(EXCEPTION_POINTERS* pointers) : exception(pointers), turn(kTurnLimit)
    {
        if (turn.Waited() && !turn.TimedOut())
        {
            Sleep(kTimeToEnd);
        }
    }

    EXCEPTION_POINTERS* exception;
    Platform::DebugHelpTurn turn;
};

void DumpOfLastChance(void* argument) noexcept
{
    bool written = false;
    CreateDump(static_cast<LastChance*>(argument)->exception, written, 0); // it has waited already
}

/// Handlers outside may take the fault of a dump that cannot be written, and no destructor would run: the turn must not
/// stay with a thread that goes on.
LONG GiveTurnBack(EXCEPTION_POINTERS*, void* argument) noexcept
{
    static_cast<LastChance*>(argument)->turn.GiveBack();
    return EXCEPTION_CONTINUE_SEARCH;
}

DWORD CodeOf(const EXCEPTION_POINTERS* exception)
{
    return exception != nullptr && exception->ExceptionRecord != nullptr ? exception->ExceptionRecord->ExceptionCode
                                                                         : EXCEPTION_ACCESS_VIOLATION;
}

} // namespace

DWORD CreateMiniDump(EXCEPTION_POINTERS* exception, bool& written)
{
    CreateDump(exception, written, kTurnLimit);
    return 1;
}

LONG WINAPI LastChanceMiniDumpProcess(EXCEPTION_POINTERS* exception)
{
    BreakIntoDebugger();
    LastChance chance(exception); // kept to the end, so that no other thread begins a dump that would be cut off
    Platform::CallGuarded(&DumpOfLastChance, &GiveUp, &chance);
    TerminateProcess(GetCurrentProcess(), CodeOf(exception));
    return EXCEPTION_EXECUTE_HANDLER;
}

void LastChanceTerminate()
{
    BreakIntoDebugger();
    LastChance chance(nullptr);
    Platform::CallGuarded(&DumpOfLastChance, &GiveTurnBack, &chance);
}
