#include <UtilsLib/time/TimeServiceImpl.h>

#include <UtilsLib/WindowsTypes.h>

#include <ctime>

namespace UtilsLib
{

void TimeServiceImpl::Sleep(unsigned int milliseconds) const
{
    ::Sleep(milliseconds);
}

void TimeServiceImpl::SleepEx(unsigned int milliseconds, bool alertable)
{
    ::SleepEx(milliseconds, alertable ? TRUE : FALSE);
}

unsigned long long TimeServiceImpl::GetTime() const
{
    return static_cast<unsigned long long>(_time64(nullptr));
}

} // namespace UtilsLib
