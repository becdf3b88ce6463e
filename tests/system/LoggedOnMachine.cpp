#include <tests/system/LoggedOnMachine.h>

#include <tests/support/ImportPatch.h>
#include <tests/system/standins/TerminalServices.h>
#include <tests/system/standins/UserProfiles.h>

#include <algorithm>
#include <iterator>
#include <list>
#include <stdexcept>

const std::vector<std::string> kLoadCalls = {
    "OpenSCManagerA: all access",
    "OpenServiceA: start, stop, query",
    "QueryServiceStatus: service",
    "WTSEnumerateSessionsA: local",
    "WTSQueryUserToken: session 3",
    "DuplicateTokenEx: user token, all access, impersonation, primary",
    "LookupPrivilegeValueA: SeBackupPrivilege",
    "AdjustTokenPrivileges: duplicate, SeBackupPrivilege on",
    "LookupPrivilegeValueA: SeRestorePrivilege",
    "AdjustTokenPrivileges: duplicate, SeRestorePrivilege on",
    "WTSQuerySessionInformationA: session 3, user name",
    "LoadUserProfileA: duplicate",
    "CloseServiceHandle: service",
    "CloseServiceHandle: manager",
};

const std::vector<std::string> kCleanupCalls = {
    "UnloadUserProfile: duplicate, hive",
    "CloseHandle: duplicate",
    "CloseHandle: user token",
};

namespace
{

using TestSupport::ImportPatch;

const std::string kOdd = "unexpected arguments";
// What failing calls leave in their results: nobody may follow or close it.
void* const kRubbish = reinterpret_cast<void*>(0xBAD0);

LoggedOnMachine* g_machine = nullptr;
bool g_realServices = false;
SC_HANDLE g_manager = nullptr;
SC_HANDLE g_service = nullptr;
// Never given back, as those of the terminal services.
std::list<std::vector<WTS_SESSION_INFOA>> g_sessionLists;
std::list<std::string> g_userNames;

std::string NameOf(const void* handle)
{
    if (handle == g_machine->userToken)
    {
        return "user token";
    }
    if (handle == g_machine->duplicateToken)
    {
        return "duplicate";
    }
    if (handle == g_machine->hive)
    {
        return "hive";
    }
    return "unknown handle";
}

std::string NameOfService(SC_HANDLE handle)
{
    return handle == g_service ? "service" : handle == g_manager ? "manager" : "unknown handle";
}

std::string PrivilegeName(LUID luid)
{
    char name[64] = "";
    DWORD size = sizeof(name);
    return LookupPrivilegeNameA(nullptr, &luid, name, &size) ? name : "no privilege";
}

/// Writes a call down; false when it must fail.
bool Call(const std::string& name, const std::string& arguments)
{
    g_machine->calls.push_back(name + ": " + arguments);
    if (g_machine->failing == name)
    {
        SetLastError(LoggedOnMachine::kRefused);
        return false;
    }
    return true;
}

SC_HANDLE WINAPI OpenManager(const char* machine, const char* database, DWORD access)
{
    const bool usual = machine == nullptr && database == nullptr && access == SC_MANAGER_ALL_ACCESS;
    if (!Call("OpenSCManagerA", usual ? "all access" : kOdd))
    {
        return nullptr;
    }
    g_manager = g_realServices ? OpenSCManagerA(machine, database, access) : reinterpret_cast<SC_HANDLE>(0x5C1);
    return g_manager;
}

SC_HANDLE WINAPI OpenOneService(SC_HANDLE manager, const char* name, DWORD access)
{
    const bool usual = manager == g_manager && access == (SERVICE_START | SERVICE_STOP | SERVICE_QUERY_STATUS) &&
                       (g_realServices || name == std::string("hx41svc"));
    if (!Call("OpenServiceA", usual ? "start, stop, query" : kOdd))
    {
        return nullptr;
    }
    g_service = g_realServices ? OpenServiceA(manager, name, access) : reinterpret_cast<SC_HANDLE>(0x5C2);
    return g_service;
}

BOOL WINAPI QueryStatus(SC_HANDLE service, SERVICE_STATUS* status)
{
    if (!Call("QueryServiceStatus", NameOfService(service)))
    {
        status->dwCurrentState = SERVICE_RUNNING;
        return FALSE;
    }
    if (g_realServices)
    {
        return QueryServiceStatus(service, status);
    }
    status->dwCurrentState = g_machine->serviceState;
    return TRUE;
}

BOOL WINAPI CloseService(SC_HANDLE handle)
{
    Call("CloseServiceHandle", NameOfService(handle));
    const BOOL closed = !g_realServices || CloseServiceHandle(handle);
    SetLastError(ERROR_SUCCESS);
    return closed;
}

BOOL WINAPI EnumerateSessions(HANDLE server, DWORD reserved, DWORD version, WTS_SESSION_INFOA** sessions, DWORD* count)
{
    const bool usual = server == WTS_CURRENT_SERVER_HANDLE && reserved == 0 && version == 1;
    if (!Call("WTSEnumerateSessionsA", usual ? "local" : kOdd))
    {
        *sessions = static_cast<WTS_SESSION_INFOA*>(kRubbish);
        *count = 5;
        return FALSE;
    }
    g_sessionLists.push_back(g_machine->sessions);
    *sessions = g_sessionLists.back().data();
    *count = static_cast<DWORD>(g_sessionLists.back().size());
    return TRUE;
}

BOOL WINAPI QueryUserToken(ULONG sessionId, HANDLE* token)
{
    if (!Call("WTSQueryUserToken", "session " + std::to_string(sessionId)))
    {
        *token = kRubbish;
        return FALSE;
    }
    const BOOL opened = OpenProcessToken(GetCurrentProcess(), TOKEN_ALL_ACCESS, token);
    g_machine->userToken = *token;
    return opened;
}

BOOL WINAPI DuplicateOneToken(HANDLE token, DWORD access, SECURITY_ATTRIBUTES* attributes,
                              SECURITY_IMPERSONATION_LEVEL level, TOKEN_TYPE type, HANDLE* duplicate)
{
    const bool usual =
        access == TOKEN_ALL_ACCESS && attributes == nullptr && level == SecurityImpersonation && type == TokenPrimary;
    if (!Call("DuplicateTokenEx", NameOf(token) + (usual ? ", all access, impersonation, primary" : ", " + kOdd)))
    {
        *duplicate = kRubbish;
        return FALSE;
    }
    const BOOL made = DuplicateTokenEx(token, access, attributes, level, type, duplicate);
    g_machine->duplicateToken = *duplicate;
    return made;
}

BOOL WINAPI LookupPrivilege(const char* system, const char* name, LUID* luid)
{
    return Call("LookupPrivilegeValueA", system == nullptr ? name : kOdd) && LookupPrivilegeValueA(system, name, luid);
}

BOOL WINAPI AdjustPrivileges(HANDLE token, BOOL disableAll, TOKEN_PRIVILEGES* state, DWORD size,
                             TOKEN_PRIVILEGES* previous, DWORD* previousSize)
{
    const bool one = !disableAll && state->PrivilegeCount == 1;
    const LUID_AND_ATTRIBUTES& privilege = state->Privileges[0];
    const std::string change =
        PrivilegeName(privilege.Luid) + (privilege.Attributes == SE_PRIVILEGE_ENABLED ? " on" : " other");
    return Call("AdjustTokenPrivileges", NameOf(token) + ", " + (one ? change : kOdd)) &&
           AdjustTokenPrivileges(token, disableAll, state, size, previous, previousSize);
}

BOOL WINAPI QuerySessionInformation(HANDLE server, DWORD sessionId, WTS_INFO_CLASS infoClass, char** buffer,
                                    DWORD* size)
{
    const bool usual = server == WTS_CURRENT_SERVER_HANDLE && infoClass == WTSUserName;
    if (!Call("WTSQuerySessionInformationA",
              "session " + std::to_string(sessionId) + ", " + (usual ? "user name" : kOdd)))
    {
        *buffer = static_cast<char*>(kRubbish);
        return FALSE;
    }
    *buffer = g_userNames.emplace_back(g_machine->userName).data();
    *size = static_cast<DWORD>(g_machine->userName.size() + 1);
    return TRUE;
}

void WINAPI FreeBuffer(void*)
{
    Call("WTSFreeMemory", "a buffer");
}

BOOL WINAPI LoadProfile(HANDLE token, PROFILEINFOA* info)
{
    g_machine->profile = *info;
    g_machine->profileUserName = info->lpUserName;
    if (!Call("LoadUserProfileA", NameOf(token)))
    {
        info->hProfile = kRubbish;
        return FALSE;
    }
    RegOpenKeyExA(HKEY_CURRENT_USER, "Software", 0, KEY_ALL_ACCESS, &g_machine->hive);
    info->hProfile = g_machine->hive;
    return TRUE;
}

BOOL WINAPI UnloadProfile(HANDLE token, HANDLE profile)
{
    const bool unloaded = Call("UnloadUserProfile", NameOf(token) + ", " + NameOf(profile));
    if (profile == g_machine->hive)
    {
        RegCloseKey(g_machine->hive);
    }
    SetLastError(ERROR_SUCCESS);
    return unloaded;
}

BOOL WINAPI CloseOne(HANDLE handle)
{
    Call("CloseHandle", NameOf(handle));
    const BOOL closed = CloseHandle(handle);
    SetLastError(ERROR_SUCCESS);
    return closed;
}

const TerminalServices kTerminalServices = {&EnumerateSessions, &QueryUserToken, &QuerySessionInformation, &FreeBuffer};
const UserProfiles kUserProfiles = {&LoadProfile, &UnloadProfile};

/// Asked for by name, so that a program that got the system's own DLL says so instead of not starting.
template <typename Function>
Function* StandInFunction(const char* dll, const char* name)
{
    const HMODULE module = GetModuleHandleA(dll);
    auto* const function = reinterpret_cast<void*>(GetProcAddress(module, name));
    if (function == nullptr)
    {
        throw std::runtime_error(std::string(dll) + " is not the stand-in: it has no " + name);
    }
    return reinterpret_cast<Function*>(function);
}

} // namespace

struct LoggedOnMachine::Parts
{
    ImportPatch openManager{"ADVAPI32.dll", "OpenSCManagerA", &OpenManager};
    ImportPatch openService{"ADVAPI32.dll", "OpenServiceA", &OpenOneService};
    ImportPatch queryStatus{"ADVAPI32.dll", "QueryServiceStatus", &QueryStatus};
    ImportPatch closeService{"ADVAPI32.dll", "CloseServiceHandle", &CloseService};
    ImportPatch duplicateToken{"ADVAPI32.dll", "DuplicateTokenEx", &DuplicateOneToken};
    ImportPatch lookupPrivilege{"ADVAPI32.dll", "LookupPrivilegeValueA", &LookupPrivilege};
    ImportPatch adjustPrivileges{"ADVAPI32.dll", "AdjustTokenPrivileges", &AdjustPrivileges};
    ImportPatch closeHandle{"KERNEL32.dll", "CloseHandle", &CloseOne};
};

LoggedOnMachine::LoggedOnMachine(Services services) : m_parts(std::make_unique<Parts>())
{
    StandInFunction<SetTerminalServicesFunction>("wtsapi32.dll", "SetTerminalServices")(&kTerminalServices);
    StandInFunction<SetUserProfilesFunction>("userenv.dll", "SetUserProfiles")(&kUserProfiles);
    AddSession(0, WTSDisconnected);
    AddSession(3, WTSActive);
    g_realServices = services == Services::Real;
    g_manager = nullptr;
    g_service = nullptr;
    g_machine = this;
}

LoggedOnMachine::~LoggedOnMachine()
{
    StandInFunction<SetTerminalServicesFunction>("wtsapi32.dll", "SetTerminalServices")(nullptr);
    StandInFunction<SetUserProfilesFunction>("userenv.dll", "SetUserProfiles")(nullptr);
    g_machine = nullptr;
}

void LoggedOnMachine::Forget()
{
    calls.clear();
    userToken = nullptr;
    duplicateToken = nullptr;
    hive = nullptr;
    profile = {};
    profileUserName.clear();
}

int LoggedOnMachine::Count(const std::string& name) const
{
    return static_cast<int>(std::count_if(calls.begin(), calls.end(),
                                          [&](const std::string& call) { return call.starts_with(name + ":"); }));
}

void LoggedOnMachine::AddSession(DWORD id, WTS_CONNECTSTATE_CLASS state)
{
    WTS_SESSION_INFOA session = {};
    session.SessionId = id;
    session.State = state;
    sessions.push_back(session);
}
