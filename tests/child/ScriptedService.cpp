// scripted_service [run | slow-start MS | slow-stop MS | refuse-stop | ignore-stop | never-start]: a service that does
// nothing until it is stopped, or behaves badly. One that does not end by itself is ended with its process.
#include <windows.h>

#include <cstdlib>
#include <string>

namespace
{

std::string g_script = "run";
DWORD g_delay = 0; // ms
SERVICE_STATUS_HANDLE g_status = nullptr;
HANDLE g_stop = nullptr;

void Report(DWORD state)
{
    SERVICE_STATUS status = {};
    status.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
    status.dwCurrentState = state;
    status.dwControlsAccepted = state == SERVICE_RUNNING && g_script != "refuse-stop" ? SERVICE_ACCEPT_STOP : 0;
    status.dwWaitHint = state == SERVICE_RUNNING || state == SERVICE_STOPPED ? 0 : 60'000;
    SetServiceStatus(g_status, &status);
}

DWORD WINAPI OnControl(DWORD control, DWORD, void*, void*)
{
    if (control == SERVICE_CONTROL_STOP && g_script != "ignore-stop")
    {
        Report(SERVICE_STOP_PENDING);
        SetEvent(g_stop);
    }
    return NO_ERROR;
}

void WINAPI ServiceMain(DWORD, char**)
{
    g_status = RegisterServiceCtrlHandlerExA("", &OnControl, nullptr);
    Report(SERVICE_START_PENDING);
    if (g_script == "never-start")
    {
        Sleep(INFINITE);
    }
    if (g_script == "slow-start")
    {
        Sleep(g_delay);
    }
    Report(SERVICE_RUNNING);
    WaitForSingleObject(g_stop, INFINITE);
    if (g_script == "slow-stop")
    {
        Sleep(g_delay);
    }
    Report(SERVICE_STOPPED);
}

} // namespace

int main(int argc, char** argv)
{
    g_script = argc > 1 ? argv[1] : g_script;
    g_delay = argc > 2 ? std::strtoul(argv[2], nullptr, 10) : g_delay;
    g_stop = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    char name[] = "";
    const SERVICE_TABLE_ENTRYA services[] = {{name, &ServiceMain}, {nullptr, nullptr}};
    return StartServiceCtrlDispatcherA(services) ? 0 : 1;
}
