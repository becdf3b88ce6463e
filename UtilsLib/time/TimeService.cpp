#include <UtilsLib/time/TimeService.h>

#include <atomic>

namespace UtilsLib
{

bool TimeService::ms_mockEnabled = false;
TimeServiceImpl TimeService::ms_real;
MockTimeServiceImpl TimeService::ms_mock;

ITimeServiceImpl& TimeService::Get()
{
    if (IsMockEnabled())
    {
        return ms_mock;
    }
    return ms_real;
}

void TimeService::EnableMock(bool enable)
{
    std::atomic_ref<bool>(ms_mockEnabled).store(enable);
}

bool TimeService::IsMockEnabled()
{
    return std::atomic_ref<bool>(ms_mockEnabled).load();
}

MockTimeServiceImpl& TimeService::GetMock()
{
    return ms_mock;
}

} // namespace UtilsLib
