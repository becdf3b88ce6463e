#include <UtilsLib/logging/Stack.h>

#include <UtilsLib/files/Paths.h>
#include <UtilsLib/platform/DebugHelpTurn.h>
#include <UtilsLib/system/HelperUtils.h>

#include <dbghelp.h>

namespace UtilsLib
{

namespace
{

constexpr DWORD kSymbolOptions = SYMOPT_CASE_INSENSITIVE | SYMOPT_UNDNAME | SYMOPT_DEFERRED_LOADS | SYMOPT_LOAD_LINES |
                                 SYMOPT_OMAP_FIND_NEAREST | SYMOPT_FAIL_CRITICAL_ERRORS | SYMOPT_AUTO_PUBLICS |
                                 SYMOPT_NO_IMAGE_SEARCH;
static_assert(kSymbolOptions == 0x30237);

constexpr DWORD kContextFlags = 0x10007; // control, integer and segment registers of the x86
constexpr DWORD kDirectorySize = 500;    // characters with the terminator
constexpr DWORD kTurnLimit = 60'000;     // ms of waiting for traces and dumps of other threads
constexpr DWORD kNameLength = 255;       // characters of a function's name without the terminator

/// The debug-help library's knowledge of this process for one trace.
class SymbolSession
{
public:
    SymbolSession(HANDLE process, const std::string& searchPath) : m_process(process)
    {
        // Before the modules are loaded, so that the first trace of a process has lines, too.
        SymSetOptions(kSymbolOptions);
        SymInitialize(m_process, searchPath.c_str(), TRUE);
    }
    SymbolSession(const SymbolSession&) = delete;
    SymbolSession& operator=(const SymbolSession&) = delete;
    ~SymbolSession()
    {
        SymCleanup(m_process);
    }

private:
    HANDLE m_process;
};

bool CurrentDirectoryIsShort()
{
    char directory[kDirectorySize] = "";
    const DWORD length = GetCurrentDirectoryA(kDirectorySize, directory);
    return length != 0 && length <= kDirectorySize;
}

std::string ModuleOf(HANDLE process, unsigned long long address)
{
    IMAGEHLP_MODULE64 module = {};
    module.SizeOfStruct = sizeof(module);
    if (SymGetModuleBase64(process, address) != 0 && SymGetModuleInfo64(process, address, &module))
    {
        return module.ModuleName;
    }
    return "UnknownModule";
}

/// False when no symbol is found.
bool FunctionOf(HANDLE process, unsigned long long address, std::string& name)
{
    // The record's last member is the first character of the name.
    alignas(IMAGEHLP_SYMBOL64) char buffer[sizeof(IMAGEHLP_SYMBOL64) + kNameLength] = {};
    auto* const symbol = reinterpret_cast<IMAGEHLP_SYMBOL64*>(buffer);
    symbol->SizeOfStruct = sizeof(IMAGEHLP_SYMBOL64);
    symbol->MaxNameLength = kNameLength;
    DWORD64 displacement = 0;
    if (!SymGetSymFromAddr64(process, address, &displacement, symbol))
    {
        return false;
    }
    symbol->Name[kNameLength] = '\0'; // a name that fills the record comes without
    name = symbol->Name;
    return true;
}

unsigned int LineOf(HANDLE process, unsigned long long address)
{
    IMAGEHLP_LINE64 line = {};
    line.SizeOfStruct = sizeof(line);
    DWORD displacement = 0;
    return SymGetLineFromAddr64(process, address, &displacement, &line) ? line.LineNumber : 0;
}

void SetFlat(ADDRESS64& address, DWORD offset)
{
    address.Offset = offset;
    address.Mode = AddrModeFlat;
}

} // namespace

Stack::Stack(const std::string& searchPath)
    : m_searchPath(searchPath.empty() ? Paths::GetPath(HelperUtils::GetBinaryPath()) : searchPath)
{
}

Stack::Stack(const Stack& other) = default;
Stack& Stack::operator=(const Stack& other) = default;
Stack::~Stack() = default;

void Stack::Trace()
{
    m_frames.clear();
    // kept: the directory itself is of no use, but a trace in one that long has always been empty.
    if (!CurrentDirectoryIsShort())
    {
        return;
    }
    const HANDLE process = GetCurrentProcess();
    // Limited: the other thread's trace may itself wait for the loader's lock, which this thread has in a DllMain.
    const Platform::DebugHelpTurn turn(kTurnLimit);
    if (turn.TimedOut())
    {
        return;
    }
    const SymbolSession session(process, m_searchPath);
    InitSymbolLookup(process, m_searchPath.c_str());
    const std::list<unsigned long long> addresses = DumpStackTraceEx(process, GetCurrentThread());
    for (const unsigned long long address : addresses)
    {
        TraceFrame(process, address);
    }
    // The first address is the capture point. Where this library has no symbols it has no frame, and the first frame
    // is the caller's.
    if (!m_frames.empty() && m_frames.front().address == addresses.front())
    {
        m_frames.erase(m_frames.begin());
    }
}

std::string Stack::AsString()
{
    std::string text = "\r\nTRACE:\r\n";
    for (const Frame& frame : m_frames)
    {
        text += "FRAME Lib: " + frame.module + " Func: " + frame.function + " Line: " + std::to_string(frame.line) +
                " Address: " + std::to_string(frame.address) + "\r\n";
    }
    return text + "\r\n";
}

int Stack::InitSymbolLookup(HANDLE process, const char* searchPath)
{
    SymSetOptions(kSymbolOptions);
    SymSetSearchPath(process, searchPath);
    SymRefreshModuleList(process);
    return 1;
}

std::list<unsigned long long> Stack::DumpStackTraceEx(HANDLE process, HANDLE thread)
{
    std::list<unsigned long long> addresses;
    CONTEXT context = {};
    context.ContextFlags = kContextFlags;
    if (::GetThreadId(thread) == GetCurrentThreadId())
    {
        // Gives the context of the function that called this one, which must not have returned when we walk.
        RtlCaptureContext(&context);
    }
    else if (!GetThreadContext(thread, &context))
    {
        return addresses;
    }
    STACKFRAME64 frame = {};
    SetFlat(frame.AddrPC, context.Eip);
    SetFlat(frame.AddrFrame, context.Ebp);
    SetFlat(frame.AddrStack, context.Esp);
    do
    {
        addresses.push_back(frame.AddrPC.Offset);
    } while (StackWalk64(IMAGE_FILE_MACHINE_I386, process, thread, &frame, &context, nullptr, &SymFunctionTableAccess64,
                         &SymGetModuleBase64, nullptr));
    return addresses;
}

void Stack::TraceFrame(HANDLE process, unsigned long long address)
{
    Frame frame;
    if (!FunctionOf(process, address, frame.function))
    {
        return;
    }
    frame.module = ModuleOf(process, address);
    frame.line = LineOf(process, address);
    frame.address = address;
    m_frames.push_back(frame);
}

} // namespace UtilsLib
