#include <windows.h>

// A service that does nothing until it is stopped.

namespace
{

SERVICE_STATUS_HANDLE g_status = nullptr;
HANDLE g_stop = nullptr;

void Report(DWORD state)
{
    SERVICE_STATUS status = {};
    status.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
    status.dwCurrentState = state;
    status.dwControlsAccepted = SERVICE_ACCEPT_STOP;
    SetServiceStatus(g_status, &status);
}

DWORD WINAPI OnControl(DWORD control, DWORD, void*, void*)
{
    if (control == SERVICE_CONTROL_STOP)
    {
        SetEvent(g_stop);
    }
    return NO_ERROR;
}

void WINAPI ServiceMain(DWORD, char**)
{
    g_status = RegisterServiceCtrlHandlerExA("", &OnControl, nullptr);
    Report(SERVICE_RUNNING);
    WaitForSingleObject(g_stop, INFINITE);
    Report(SERVICE_STOPPED);
}

} // namespace

int main()
{
    g_stop = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    char name[] = "";
    const SERVICE_TABLE_ENTRYA services[] = {{name, &ServiceMain}, {nullptr, nullptr}};
    return StartServiceCtrlDispatcherA(services) ? 0 : 1;
}
