#pragma once

#include <UtilsLib/Export.h>

#include <chrono>
#include <ctime>
#include <ratio>
#include <string>

namespace UtilsLib
{

/// A moment of the system clock in ticks of 100 ns since 1 January 1970 UTC.
/// `std::chrono::time_point_cast<TimePoint::duration>` makes one from `system_clock::now()` where that clock ticks
/// faster.
using TimePoint =
    std::chrono::time_point<std::chrono::system_clock, std::chrono::duration<long long, std::ratio<1, 10'000'000>>>;

/// A time of day in hours and minutes (a daily start time), and the library's formats and conversions of calendar time.
///
/// Nothing but `AddMins` and `SetTime` keeps the fields in range. The static functions keep no state and may be called
/// from any thread; a value is not guarded. Nothing here throws except for want of memory. "Local" is the C run-time's
/// time zone.
///
/// Breakdowns into calendar fields are right for every time point, before 1970 too. Conversions from local calendar
/// fields are the C run-time's `mktime` and know the years 1970 to 3000: every other date converts to -1 s.
class UTILSLIB_API Time
{
public:
    /// The time point of every function here.
    using TimePoint = UtilsLib::TimePoint;

    /// 0:00.
    Time();
    /// Copies both fields.
    Time(const Time& other);
    ~Time();
    /// Copies both fields.
    Time& operator=(const Time& other);

    /// Hours, 0 to 23 unless `AddMins` made them negative.
    int GetHours() const;
    /// Minutes of the hour, 0 to 59 unless `AddMins` made them negative.
    int GetMins() const;
    /// Minutes since midnight.
    int GetMinutes() const;
    /// Adds `mins`, past midnight into the next day: 23:50 and 20 is 00:10. Meant so: nothing wraps below zero, 00:10
    /// and -30 is 0 hours and -20 minutes.
    void AddMins(const int& mins);
    /// "07:05". A negative field is printed with its sign and not padded: "-5".
    std::string GetTime() const;
    /// Takes a text that `TryParseTime` accepts. False leaves the value as it was.
    bool SetTime(const std::string& time);
    /// Takes the text of `other`, so a time that does not print as "HH:MM" is refused.
    bool SetTime(Time& other);

    /// Local date, "2026-11-15".
    static std::string GetDate();
    /// Local date and time, "15-Nov-2026 04:38:29"; names and the form of the time follow the C locale.
    static std::string GetTimeNow();
    /// Local time of the operating system, "15/11/2026 04:38:29.123". In no locale anything else; one allocation at
    /// most.
    static std::string GetTimeNowToMilliseconds();
    /// Local month and year, "November-2026", in the C locale. The name promises digits; callers rely on the result.
    static std::string GetTimeNowMMYY();
    /// Local hours and minutes; 0:00 where the C locale writes times otherwise than "HH:MM:SS".
    static Time _GetTimeNow();

    /// Whether `text` starts with a date and time, "2026-11-15T04:38:29". What follows is not looked at. Fields may
    /// lack leading zeros and blanks may come first. No check of days against months.
    static bool ValidateYYYY_MM_DD_HH_MM_SS(const std::string& text);
    /// Seconds since 1970 of "2026-11-15T04:38:29" in local standard time, also in summer: then one hour more than the
    /// wall clock's reading. Fields are taken from fixed positions, one that is no number counts 0. 0: the text is not
    /// valid; -1: the date cannot be represented.
    static long long GetTimeFromYYYY_MM_DD_HH_MM_SS(const std::string& text);
    /// "2026-11-15T04:38:29" is "15/11/2026", by fixed positions. Empty: the text is not valid.
    static std::string GetCorvaneDateFromYYYY_MM_DD_HH_MM_SS(const std::string& text);

    /// Writes the local time in `format`: as `std::put_time`, with the global C++ locale's names, every conversion of
    /// C, and every year. Fractions of a second are floored.
    static std::string StringFromTimePoint(const TimePoint& timePoint, const std::string& format);
    /// The same in UTC.
    static std::string StringFromTimePointUTC(const TimePoint& timePoint, const std::string& format);
    /// Reads local standard time in `format` (as `std::get_time`); what follows in `text` is not looked at. A text that
    /// does not fit, or ends before the format does, gives what a record of zeros converts to: -1 s.
    static TimePoint TimePointFromString(const std::string& text, const std::string& format);
    /// Calendar fields in UTC.
    static std::tm TmFromTimePoint(const TimePoint& timePoint);
    /// The fields read as local time. Not the inverse of `TmFromTimePoint`, on purpose: a round trip shifts by the
    /// zone's offset.
    static TimePoint TimePointFromTm(std::tm fields);
    /// The day is taken in UTC, its midnight in local standard time, on purpose.
    static TimePoint GetTimePointStartOfDay(const TimePoint& timePoint);
    /// The same for a clock time "HH:MM"; the day's seconds stay. A text that is none leaves hour and minute too.
    static TimePoint GetTimePointForTimeOfDay(const TimePoint& day, const std::string& clockTime);

    /// Whether `TryParseTime` accepts `text`.
    static bool IsTimeFormat(const std::string& text);
    /// Reads five characters as `GetTime` prints them, up to "23:59". False for every other text: "7:05", "24:00",
    /// "07-05". Both outputs are written before the last checks: any text of five characters with a ":" changes them,
    /// accepted or not. A negative number passes, "-1:05", since it prints as it was read.
    static bool TryParseTime(const std::string& text, int& hours, int& minutes);

    /// Days of the month `monthOffset` months after the time point's (in UTC); a negative offset goes back.
    static unsigned int GetLastDayOfMonth(const TimePoint& timePoint, int monthOffset);
    /// That time of today's date, both in UTC, on purpose. Arguments out of range are simply added: 25 hours are 01:00
    /// tomorrow. What a time point cannot hold becomes the last (first) one.
    static TimePoint GetTodayTimePointAtClockFace(int hours, int minutes, int seconds);
    /// Full English name of the weekday in UTC, "Sunday".
    static std::string GetTimePointDay(const TimePoint& timePoint);

private:
    int m_hours = 0;
    int m_minutes = 0;
};

} // namespace UtilsLib
