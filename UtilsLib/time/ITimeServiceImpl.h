#pragma once

#include <UtilsLib/Export.h>

namespace UtilsLib
{

/// A clock that can be read and slept by.
class UTILSLIB_API ITimeServiceImpl
{
public:
    /// Sleeps for `milliseconds`.
    virtual void Sleep(unsigned int milliseconds) const = 0;
    /// With `alertable`, queued asynchronous calls may run and end the sleep.
    virtual void SleepEx(unsigned int milliseconds, bool alertable) = 0;
    /// Whole seconds since 1 January 1970 UTC.
    virtual unsigned long long GetTime() const = 0;
    virtual ~ITimeServiceImpl() = default;
};

} // namespace UtilsLib
