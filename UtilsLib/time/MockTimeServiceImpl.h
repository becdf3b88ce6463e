#pragma once

#include <UtilsLib/time/ITimeServiceImpl.h>

#include <functional>

namespace UtilsLib
{

/// A clock for tests: its sleeps never block and never advance its time by themselves. Nothing is locked; set it up
/// before threads use it.
class UTILSLIB_API MockTimeServiceImpl : public ITimeServiceImpl
{
public:
    /// Calls the sleep callback with `milliseconds`, if one is set.
    void Sleep(unsigned int milliseconds) const override;
    /// As `Sleep`; then an operating-system sleep of 0 ms, so that queued asynchronous calls still run when
    /// `alertable`.
    void SleepEx(unsigned int milliseconds, bool alertable) override;
    /// Seconds, as set; 0 at first.
    unsigned long long GetTime() const override;

    /// Makes it `seconds` after the start of the clock.
    void SetTime(unsigned long long seconds);
    /// Adds `seconds`, wrapping round at 64 bits.
    void IncTime(unsigned long long seconds);
    /// Replaces the callback; an empty one removes it. It runs on the sleeping thread.
    void SetSleepCallback(std::function<void(unsigned long long)> callback);

private:
    std::function<void(unsigned long long)> m_sleepCallback; // gets milliseconds
    unsigned long long m_time = 0;                           // seconds
};

} // namespace UtilsLib
