// A library of a host that uses the live settings and leaves them running.
#include <UtilsLib/registry/LiveRegSettings.h>

extern "C" __declspec(dllexport) void StartLiveSettings()
{
    UtilsLib::LiveRegSettings::GetInstance().Start();
}
