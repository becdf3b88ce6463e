#include <tests/system/standins/NetworkProvider.h>

#include <winnetwk.h>

namespace
{

const NetworkProvider* g_provider = nullptr;

} // namespace

extern "C"
{

    void SetNetworkProvider(const NetworkProvider* provider)
    {
        g_provider = provider;
    }

    DWORD WINAPI WNetGetUniversalNameA(LPCSTR path, DWORD level, LPVOID buffer, LPDWORD size)
    {
        return g_provider != nullptr ? g_provider->getUniversalName(path, level, buffer, size) : ERROR_NO_NETWORK;
    }

} // extern "C"
