#include <UtilsLib/system/System.h>

#include <UtilsLib/WindowsTypes.h>

namespace UtilsLib
{

namespace
{

constexpr ULONGLONG kTicksPerSecond = 1000;

} // namespace

int System::GetMachineUptimeSeconds()
{
    return static_cast<int>(GetTickCount64() / kTicksPerSecond);
}

} // namespace UtilsLib
