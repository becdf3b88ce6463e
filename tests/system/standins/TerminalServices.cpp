#include <tests/system/standins/TerminalServices.h>

namespace
{

const TerminalServices* g_services = nullptr;

} // namespace

extern "C"
{

    void SetTerminalServices(const TerminalServices* services)
    {
        g_services = services;
    }

    BOOL WINAPI WTSEnumerateSessionsA(HANDLE server, DWORD reserved, DWORD version, PWTS_SESSION_INFOA* sessions,
                                      DWORD* count)
    {
        return g_services != nullptr && g_services->enumerateSessions(server, reserved, version, sessions, count);
    }

    BOOL WINAPI WTSQueryUserToken(ULONG sessionId, PHANDLE token)
    {
        return g_services != nullptr && g_services->queryUserToken(sessionId, token);
    }

    BOOL WINAPI WTSQuerySessionInformationA(HANDLE server, DWORD sessionId, WTS_INFO_CLASS infoClass, LPSTR* buffer,
                                            DWORD* size)
    {
        return g_services != nullptr && g_services->querySessionInformation(server, sessionId, infoClass, buffer, size);
    }

    void WINAPI WTSFreeMemory(PVOID memory)
    {
        if (g_services != nullptr)
        {
            g_services->freeMemory(memory);
        }
    }

} // extern "C"
