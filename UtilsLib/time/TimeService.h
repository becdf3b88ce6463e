#pragma once

#include <UtilsLib/Export.h>
#include <UtilsLib/time/MockTimeServiceImpl.h>
#include <UtilsLib/time/TimeServiceImpl.h>

namespace UtilsLib
{

/// The one switch point through which threads sleep and read the clock, so that a test host can put a mock in place.
/// Nothing is locked; both clocks live as long as the library is loaded.
class UTILSLIB_API TimeService
{
public:
    /// The mock while it is enabled, else the real clock; chosen on every call, so that switching takes effect at the
    /// next sleep of every thread.
    static ITimeServiceImpl& Get();
    /// Puts the mock in place of the real clock, or the real clock back.
    static void EnableMock(bool enable);
    /// Whether the mock is in place.
    static bool IsMockEnabled();
    /// The mock, enabled or not.
    static MockTimeServiceImpl& GetMock();

private:
    static bool ms_mockEnabled;
    static TimeServiceImpl ms_real;
    static MockTimeServiceImpl ms_mock;
};

} // namespace UtilsLib
