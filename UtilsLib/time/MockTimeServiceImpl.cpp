#include <UtilsLib/time/MockTimeServiceImpl.h>

#include <UtilsLib/WindowsTypes.h>

#include <utility>

namespace UtilsLib
{

void MockTimeServiceImpl::Sleep(unsigned int milliseconds) const
{
    if (m_sleepCallback)
    {
        m_sleepCallback(milliseconds);
    }
}

void MockTimeServiceImpl::SleepEx(unsigned int milliseconds, bool alertable)
{
    Sleep(milliseconds);
    ::SleepEx(0, alertable ? TRUE : FALSE);
}

unsigned long long MockTimeServiceImpl::GetTime() const
{
    return m_time;
}

void MockTimeServiceImpl::SetTime(unsigned long long seconds)
{
    m_time = seconds;
}

void MockTimeServiceImpl::IncTime(unsigned long long seconds)
{
    m_time += seconds;
}

void MockTimeServiceImpl::SetSleepCallback(std::function<void(unsigned long long)> callback)
{
    m_sleepCallback = std::move(callback);
}

} // namespace UtilsLib
