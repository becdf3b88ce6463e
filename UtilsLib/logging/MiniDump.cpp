#include <UtilsLib/logging/MiniDump.h>

#include <UtilsLib/platform/DebugHelpTurn.h>
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

constexpr DWORD kTurnLimit = 30'000; // ms of waiting for a trace or a dump of another thread; last chances wait twice
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

/// Loaded by name at this moment: a host may bring a newer library than the system's.
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

/// Not on the stack of the thread that asks: when it stops waiting, the other one still has it.
struct OtherStack
{
    DWORD threadId;
    EXCEPTION_POINTERS* exception;
    bool written;
};
OtherStack g_otherStack; // belongs to the thread whose turn it is

DWORD WINAPI WriteDumpOnThread(void*)
{
    g_otherStack.written = TryWriteDumpFile(g_otherStack.threadId, g_otherStack.exception);
    return 0;
}

/// For a thread whose own stack is full.
bool WriteDumpOnOtherStack(EXCEPTION_POINTERS* exception)
{
    g_otherStack = {GetCurrentThreadId(), exception, false};
    const Platform::UniqueHandle thread(CreateThread(nullptr, 0, &WriteDumpOnThread, nullptr, 0, nullptr));
    return thread && WaitForSingleObject(thread.Get(), kOtherStackLimit) == WAIT_OBJECT_0 && g_otherStack.written;
}

bool IsStackFull(const EXCEPTION_POINTERS& exception)
{
    return exception.ExceptionRecord != nullptr && exception.ExceptionRecord->ExceptionCode == EXCEPTION_STACK_OVERFLOW;
}

struct WriteRequest
{
    EXCEPTION_POINTERS* exception;
    bool written;
};

void WriteOnFittingStack(void* argument) noexcept
{
    auto& request = *static_cast<WriteRequest*>(argument);
    request.written = IsStackFull(*request.exception) ? WriteDumpOnOtherStack(request.exception)
                                                      : TryWriteDumpFile(GetCurrentThreadId(), request.exception);
}

/// A fault on the way is a dump that cannot be written: it must neither hide the first one nor keep the turn.
bool WriteDump(EXCEPTION_POINTERS* exception) noexcept
{
    const Platform::DebugHelpTurn turn(kTurnLimit);
    WriteRequest request = {exception, false};
    return Platform::CallGuarded(&WriteOnFittingStack, &GiveUp, &request) && request.written;
}

struct DumpRequest
{
    EXCEPTION_POINTERS* exception;
    bool& written;
};

#if defined(__GNUC__)
__attribute__((no_sanitize("undefined"))) // the write is meant
#endif
void WriteToAddressZero()
{
    // Read at run time, so that no compiler sees the null pointer.
    int* volatile nowhere = nullptr;
    *static_cast<volatile int*>(nowhere) = 0;
}

void DumpOrFault(void* argument) noexcept
{
    auto& request = *static_cast<DumpRequest*>(argument);
    if (request.exception != nullptr)
    {
        request.written = WriteDump(request.exception);
        return;
    }
    // kept: only a real exception has real exception pointers. The filter below gets them.
    WriteToAddressZero();
}

LONG DumpOfFault(EXCEPTION_POINTERS* exception, void*) noexcept
{
    return WriteDump(exception) ? EXCEPTION_EXECUTE_HANDLER : EXCEPTION_CONTINUE_SEARCH;
}

void BreakIntoDebugger()
{
    if (IsDebuggerPresent())
    {
        DebugBreak();
    }
}

/// The turn of a thread that is about to end the process. One that comes while another writes its dump lets that one
/// end the process: a second dump in the same second would overwrite the first and be cut off by the end.
class LastTurn
{
public:
    LastTurn() : m_turn(kTurnLimit)
    {
        if (m_turn.Waited())
        {
            Sleep(kTimeToEnd);
        }
    }

private:
    Platform::DebugHelpTurn m_turn;
};

void DumpOfLastChance(void* argument) noexcept
{
    bool written = false;
    CreateMiniDump(static_cast<EXCEPTION_POINTERS*>(argument), written);
}

DWORD CodeOf(const EXCEPTION_POINTERS* exception)
{
    return exception != nullptr && exception->ExceptionRecord != nullptr ? exception->ExceptionRecord->ExceptionCode
                                                                         : EXCEPTION_ACCESS_VIOLATION;
}

} // namespace

DWORD CreateMiniDump(EXCEPTION_POINTERS* exception, bool& written)
{
    DumpRequest request{exception, written};
    if (!Platform::CallGuarded(&DumpOrFault, &DumpOfFault, &request))
    {
        written = true;
    }
    return 1;
}

LONG WINAPI LastChanceMiniDumpProcess(EXCEPTION_POINTERS* exception)
{
    BreakIntoDebugger();
    const LastTurn turn; // kept to the end, so that no other thread begins a dump that would be cut off
    Platform::CallGuarded(&DumpOfLastChance, &GiveUp, exception);
    TerminateProcess(GetCurrentProcess(), CodeOf(exception));
    return EXCEPTION_EXECUTE_HANDLER;
}

void LastChanceTerminate()
{
    BreakIntoDebugger();
    const LastTurn turn;
    bool written = false;
    CreateMiniDump(nullptr, written);
}
