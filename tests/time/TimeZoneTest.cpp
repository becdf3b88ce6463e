#include <UtilsLib/time/Time.h>

#include <UtilsLib/WindowsTypes.h>
#include <tests/support/ImportPatch.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

// Registered once for every zone of the table below; TZ makes it the machine's.

using TestSupport::ImportPatch;
using UtilsLib::Time;
using UtilsLib::TimePoint;

using namespace std::chrono;

namespace
{

/// A change of the offset: the first Sunday on or after `day` of `month` (UTC), at `hour` UTC.
struct Change
{
    int month, day, hour;
};

/// What TZ says before main clears it.
const char* const g_tz = std::getenv("TZ");
const std::string g_zoneName = g_tz ? g_tz : "";

/// Offsets in minutes east of UTC.
struct Zone
{
    const char* name;
    int standard, summer;
    Change summerStarts, summerEnds;
};

constexpr Zone kZones[] = {
    {"UTC", 0, 0, {}, {}},
    {"Europe/London", 0, 60, {3, 25, 1}, {10, 25, 1}},
    {"America/New_York", -300, -240, {3, 8, 7}, {11, 1, 6}},
    {"Asia/Kolkata", 330, 330, {}, {}},
    // The Saturday evening in UTC is the Sunday morning there: counted from the Sunday, eight hours before it.
    {"Australia/Sydney", 600, 660, {10, 1, -8}, {4, 1, -8}},
};

sys_seconds MomentOf(const Change& change, year inYear)
{
    const sys_days first = inYear / change.month / change.day;
    const days toSunday((7 - weekday(first).c_encoding()) % 7);
    return first + toSunday + hours(change.hour);
}

TimePoint Moment(int inYear, int month, int day, int hour = 0, int minute = 0, int second = 0)
{
    return sys_days(year(inYear) / month / day) + hours(hour) + minutes(minute) + seconds(second);
}

/// What the C run-time's clock says while it is patched.
__time64_t g_now = 0;

__time64_t __cdecl FixedTime(__time64_t* time)
{
    if (time)
    {
        *time = g_now;
    }
    return g_now;
}

class TimeZoneTest : public testing::Test
{
protected:
    void SetUp() override
    {
        for (const Zone& zone : kZones)
        {
            m_zone = zone.name == g_zoneName ? &zone : m_zone;
        }
        ASSERT_TRUE(m_zone) << "no expectations for TZ=" << g_zoneName;
    }

    minutes Standard() const
    {
        return minutes(m_zone->standard);
    }

    minutes OffsetAt(TimePoint utc) const
    {
        if (m_zone->standard == m_zone->summer)
        {
            return Standard();
        }
        const year inYear = year_month_day(floor<days>(utc)).year();
        const sys_seconds starts = MomentOf(m_zone->summerStarts, inYear);
        const sys_seconds ends = MomentOf(m_zone->summerEnds, inYear);
        const bool summer = starts < ends ? utc >= starts && utc < ends : utc >= starts || utc < ends;
        return minutes(summer ? m_zone->summer : m_zone->standard);
    }

    const Zone* m_zone = nullptr;
};

std::string Text(TimePoint time)
{
    const sys_days day = floor<days>(time);
    const year_month_day date(day);
    const hh_mm_ss clock(floor<seconds>(time) - day);
    char text[80];
    std::snprintf(text, sizeof(text), "%04d-%02u-%02u %02d:%02d:%02d", static_cast<int>(date.year()),
                  static_cast<unsigned int>(date.month()), static_cast<unsigned int>(date.day()),
                  static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
                  static_cast<int>(clock.seconds().count()));
    return text;
}

constexpr const char* kFormat = "%Y-%m-%d %H:%M:%S";

} // namespace

TEST_F(TimeZoneTest, LocalTextIsRightInEverySeasonAndYear)
{
    for (const int inYear :
         {1, 1583, 1850, 1901, 1968, 1969, 1970, 2000, 2026, 2037, 2038, 2039, 2100, 2999, 3000, 3001, 5000, 9998})
    {
        for (const int month : {1, 7, 12})
        {
            const TimePoint time = Moment(inYear, month, 15, 22, 40, 7) + TimePoint::duration(9'999'999);
            EXPECT_EQ(Time::StringFromTimePoint(time, kFormat), Text(time + OffsetAt(time)));
            EXPECT_EQ(Time::StringFromTimePointUTC(time, kFormat), Text(time));
        }
    }
}

TEST_F(TimeZoneTest, LocalTextIsRightAroundTheYearsEnds)
{
    for (const int inYear : {1600, 1969, 1970, 1971, 2000, 2369, 2370, 2371, 3000, 3001})
    {
        for (const auto away : {-26h, -1h, 0h, 1h, 26h})
        {
            const TimePoint time = Moment(inYear, 1, 1) + away - 1s;
            EXPECT_EQ(Time::StringFromTimePoint(time, kFormat), Text(time + OffsetAt(time)));
        }
    }
}

TEST_F(TimeZoneTest, LocalTextChangesWithSummerTime)
{
    for (const int inYear : {2026, 2027, 2100})
    {
        for (const Change& change : {m_zone->summerStarts, m_zone->summerEnds})
        {
            if (change.month == 0)
            {
                continue;
            }
            const TimePoint moment = MomentOf(change, year(inYear));
            EXPECT_EQ(Time::StringFromTimePoint(moment - 1s, kFormat), Text(moment - 1s + OffsetAt(moment - 1s)));
            EXPECT_EQ(Time::StringFromTimePoint(moment, kFormat), Text(moment + OffsetAt(moment)));
            EXPECT_NE(OffsetAt(moment - 1s), OffsetAt(moment));
        }
    }
}

TEST_F(TimeZoneTest, DateTimeTextIsReadAsStandardTimeInEverySeason)
{
    for (const int inYear : {1971, 2026, 2038, 2100, 2999})
    {
        for (const int month : {1, 4, 7, 11})
        {
            const TimePoint expected = Moment(inYear, month, 15, 4, 38, 29) - Standard();
            char text[40];
            std::snprintf(text, sizeof(text), "%04d-%02d-15T04:38:29", inYear, month);
            EXPECT_EQ(Time::GetTimeFromYYYY_MM_DD_HH_MM_SS(text), floor<seconds>(expected.time_since_epoch()).count())
                << text;
            EXPECT_EQ(Time::TimePointFromString(text, "%Y-%m-%dT%H:%M:%S"), expected) << text;
        }
    }
}

TEST_F(TimeZoneTest, DateTimeTextNormalisesItsFields)
{
    EXPECT_EQ(Time::GetTimeFromYYYY_MM_DD_HH_MM_SS("2026-02-30T23:59:60"),
              floor<seconds>((Moment(2026, 3, 3) - Standard()).time_since_epoch()).count());
}

TEST_F(TimeZoneTest, RecordIsReadAsItsSummerTimeFlagSays)
{
    const TimePoint summer = Moment(2026, 7, 15, 12);
    const TimePoint winter = Moment(2026, 1, 15, 12);
    for (const TimePoint& time : {summer, winter})
    {
        std::tm fields = Time::TmFromTimePoint(time);
        EXPECT_EQ(Time::TimePointFromTm(fields), time - Standard());

        fields.tm_isdst = -1; // not known: the wall clock's reading
        EXPECT_EQ(Time::TimePointFromTm(fields), time - OffsetAt(time));
    }
}

TEST_F(TimeZoneTest, RoundTripThroughARecordShiftsByTheStandardOffset)
{
    for (const int month : {1, 7})
    {
        const TimePoint time = Moment(2026, month, 15, 22, 40, 7);
        EXPECT_EQ(Time::TimePointFromTm(Time::TmFromTimePoint(time)), time - Standard());
    }
}

TEST_F(TimeZoneTest, StartOfDayIsLocalMidnightOfTheDayInUtc)
{
    for (const int month : {1, 7})
    {
        const TimePoint expected = Moment(2026, month, 15) - Standard();
        EXPECT_EQ(Time::GetTimePointStartOfDay(Moment(2026, month, 15)), expected);
        EXPECT_EQ(Time::GetTimePointStartOfDay(Moment(2026, month, 15, 23, 59, 59) + TimePoint::duration(9'999'999)),
                  expected);
    }
}

TEST_F(TimeZoneTest, TimeOfDayIsLocalOnTheDayInUtcAndKeepsTheSeconds)
{
    for (const int month : {1, 7})
    {
        const TimePoint day = Moment(2026, month, 15, 23, 40, 7) + TimePoint::duration(5);
        EXPECT_EQ(Time::GetTimePointForTimeOfDay(day, "06:30"), Moment(2026, month, 15, 6, 30, 7) - Standard());
        EXPECT_EQ(Time::GetTimePointForTimeOfDay(day, "7:5 and more"), Moment(2026, month, 15, 7, 5, 7) - Standard());
        for (const char* const unreadable : {"", "rubbish", "24:00", "07", "07:", "07:xx", "07:60"})
        {
            EXPECT_EQ(Time::GetTimePointForTimeOfDay(day, unreadable), Moment(2026, month, 15, 23, 40, 7) - Standard())
                << unreadable;
        }
    }
}

TEST_F(TimeZoneTest, ClockFaceIsThatOfUtc)
{
    const TimePoint before = floor<days>(system_clock::now());
    const TimePoint face = Time::GetTodayTimePointAtClockFace(4, 38, 29);
    const TimePoint after = floor<days>(system_clock::now());

    const TimePoint::duration clock = 4h + 38min + 29s;
    EXPECT_TRUE(face == before + clock || face == after + clock) << Text(face);
}

TEST_F(TimeZoneTest, WeekdayAndMonthAreThoseOfUtc)
{
    EXPECT_EQ(Time::GetTimePointDay(Moment(2026, 11, 15, 23, 59)), "Sunday");
    EXPECT_EQ(Time::GetTimePointDay(Moment(2026, 11, 16, 0, 0)), "Monday");
    EXPECT_EQ(Time::GetLastDayOfMonth(Moment(2026, 2, 28, 23, 59), 0), 28u);
    EXPECT_EQ(Time::GetLastDayOfMonth(Moment(2026, 3, 1, 0, 0), 0), 31u);
}

TEST_F(TimeZoneTest, DateAndTimeOfNowAreLocal)
{
    const ImportPatch clock("msvcrt.dll", "_time64", &FixedTime);
    for (const TimePoint& now : {Moment(2026, 11, 15, 4, 38, 29), Moment(2026, 7, 31, 23, 10, 5),
                                 Moment(2026, 1, 1, 2, 0, 0), Moment(2040, 6, 30, 14, 45, 0)})
    {
        g_now = floor<seconds>(now.time_since_epoch()).count();
        const std::string local = Text(now + OffsetAt(now));
        const char* const names[] = {"January", "February", "March",     "April",   "May",      "June",
                                     "July",    "August",   "September", "October", "November", "December"};
        const std::string month = names[std::atoi(local.substr(5, 2).c_str()) - 1];

        EXPECT_EQ(Time::GetDate(), local.substr(0, 10));
        EXPECT_EQ(Time::GetTimeNow(),
                  local.substr(8, 2) + "-" + month.substr(0, 3) + "-" + local.substr(0, 4) + " " + local.substr(11));
        EXPECT_EQ(Time::GetTimeNowMMYY(), month + "-" + local.substr(0, 4));
        EXPECT_EQ(Time::_GetTimeNow().GetTime(), local.substr(11, 5));
    }
}

TEST_F(TimeZoneTest, MillisecondStampIsTheLocalTimeOfNow)
{
    const TimePoint before = time_point_cast<TimePoint::duration>(system_clock::now());
    const std::string stamp = Time::GetTimeNowToMilliseconds();
    const TimePoint after = time_point_cast<TimePoint::duration>(system_clock::now());

    ASSERT_EQ(stamp.size(), 23u);
    const std::string read =
        stamp.substr(6, 4) + "-" + stamp.substr(3, 2) + "-" + stamp.substr(0, 2) + " " + stamp.substr(11, 8);
    EXPECT_GE(read, Text(before + OffsetAt(before)));
    EXPECT_LE(read, Text(after + OffsetAt(after)));
}
