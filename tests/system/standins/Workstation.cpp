#include <tests/system/standins/Workstation.h>

namespace
{

const Workstation* g_workstation = nullptr;

} // namespace

extern "C"
{

    void SetWorkstation(const Workstation* workstation)
    {
        g_workstation = workstation;
    }

    NET_API_STATUS WINAPI NetWkstaGetInfo(wchar_t* machine, DWORD level, BYTE** buffer)
    {
        return g_workstation == nullptr ? NERR_WkstaNotStarted : g_workstation->getInfo(machine, level, buffer);
    }

    NET_API_STATUS WINAPI NetApiBufferFree(void* buffer)
    {
        return g_workstation == nullptr ? NERR_WkstaNotStarted : g_workstation->freeBuffer(buffer);
    }

} // extern "C"
