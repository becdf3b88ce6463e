#include <tests/system/ServiceCalls.h>

#include <tests/support/ImportPatch.h>

#include <algorithm>
#include <cstdio>

namespace
{

using TestSupport::ImportPatch;

ServiceCalls* g_calls = nullptr;
std::size_t g_open = 0;

std::string Hex(DWORD value)
{
    char text[16] = "";
    std::snprintf(text, sizeof(text), "%lX", value);
    return text;
}

/// Writes a call down; false when it must fail.
bool Call(const char* name, const std::string& arguments)
{
    g_calls->calls.push_back(std::string(name) + " " + arguments);
    if (g_calls->failing == name)
    {
        SetLastError(ServiceCalls::kRefused);
        return false;
    }
    return true;
}

SC_HANDLE Opened(SC_HANDLE handle)
{
    if (handle != nullptr)
    {
        g_calls->opened.push_back(handle);
        ++g_open;
    }
    return handle;
}

std::string NameOf(SC_HANDLE handle)
{
    const auto place = std::find(g_calls->opened.begin(), g_calls->opened.end(), handle);
    return "handle " + std::to_string(place - g_calls->opened.begin());
}

SC_HANDLE WINAPI OpenManager(const char* machine, const char* database, DWORD access)
{
    const std::string where = machine == nullptr && database == nullptr ? "here " : "elsewhere ";
    return Call("OpenSCManagerA", where + Hex(access)) ? Opened(OpenSCManagerA(machine, database, access)) : nullptr;
}

SC_HANDLE WINAPI OpenOneService(SC_HANDLE manager, const char* name, DWORD access)
{
    return Call("OpenServiceA", name + (" " + Hex(access))) ? Opened(OpenServiceA(manager, name, access)) : nullptr;
}

BOOL WINAPI CloseHandleOfService(SC_HANDLE handle)
{
    Call("CloseServiceHandle", NameOf(handle));
    const BOOL closed = CloseServiceHandle(handle);
    g_open -= closed ? 1 : 0;
    SetLastError(ERROR_GEN_FAILURE); // for the library to keep from its caller
    return closed;
}

BOOL WINAPI StartOneService(SC_HANDLE service, DWORD count, const char** arguments)
{
    const std::string how = count == 0 && arguments == nullptr ? " without arguments" : " with arguments";
    return Call("StartServiceA", NameOf(service) + how) && StartServiceA(service, count, arguments);
}

BOOL WINAPI ControlOneService(SC_HANDLE service, DWORD control, SERVICE_STATUS* status)
{
    return Call("ControlService", NameOf(service) + " " + Hex(control)) && ControlService(service, control, status);
}

BOOL WINAPI QueryStatus(SC_HANDLE service, SERVICE_STATUS* status)
{
    ++g_calls->queries;
    if (!g_calls->state)
    {
        return QueryServiceStatus(service, status);
    }
    const DWORD state = g_calls->state(g_calls->queries);
    if (state == 0)
    {
        SetLastError(ServiceCalls::kRefused);
        return FALSE;
    }
    status->dwCurrentState = state;
    return TRUE;
}

void WINAPI TakeNoTime(DWORD milliseconds)
{
    g_calls->sleeps.push_back(milliseconds);
    if (g_calls->onSleep)
    {
        g_calls->onSleep();
    }
}

} // namespace

struct ServiceCalls::Patches
{
    ImportPatch openManager{"ADVAPI32.dll", "OpenSCManagerA", &OpenManager};
    ImportPatch openService{"ADVAPI32.dll", "OpenServiceA", &OpenOneService};
    ImportPatch close{"ADVAPI32.dll", "CloseServiceHandle", &CloseHandleOfService};
    ImportPatch start{"ADVAPI32.dll", "StartServiceA", &StartOneService};
    ImportPatch control{"ADVAPI32.dll", "ControlService", &ControlOneService};
    ImportPatch query{"ADVAPI32.dll", "QueryServiceStatus", &QueryStatus};
    ImportPatch sleep{"KERNEL32.dll", "Sleep", &TakeNoTime};
};

ServiceCalls::ServiceCalls()
{
    g_calls = this;
    g_open = 0;
    m_patches = std::make_unique<Patches>();
}

ServiceCalls::~ServiceCalls() = default;

std::size_t ServiceCalls::Open() const
{
    return g_open;
}

int ServiceCalls::Count(const std::string& call) const
{
    return static_cast<int>(std::count_if(calls.begin(), calls.end(),
                                          [&](const std::string& made) { return made.starts_with(call + " "); }));
}
