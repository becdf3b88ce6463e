#pragma once

#include <UtilsLib/time/ITimeServiceImpl.h>

namespace UtilsLib
{

/// The real clock: the operating system's sleeps and the calendar time. Any thread.
class UTILSLIB_API TimeServiceImpl : public ITimeServiceImpl
{
public:
    /// The system's plain sleep.
    void Sleep(unsigned int milliseconds) const override;
    void SleepEx(unsigned int milliseconds, bool alertable) override;
    unsigned long long GetTime() const override;
};

} // namespace UtilsLib
