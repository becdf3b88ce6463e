#include <UtilsLib/time/Time.h>

#include <UtilsLib/WindowsTypes.h>
#include <tests/support/ImportPatch.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <climits>
#include <clocale>
#include <locale>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

using TestSupport::ImportPatch;
using UtilsLib::Time;
using UtilsLib::TimePoint;

static_assert(std::is_same_v<Time::TimePoint, TimePoint>);
static_assert(std::is_same_v<TimePoint::clock, std::chrono::system_clock>);
static_assert(TimePoint::period::num == 1 && TimePoint::period::den == 10'000'000);
static_assert(sizeof(TimePoint::rep) == 8);
static_assert(std::is_same_v<decltype(Time::GetTimeFromYYYY_MM_DD_HH_MM_SS("")), long long>);
static_assert(sizeof(Time) == 2 * sizeof(int));

namespace
{

constexpr long long kSecond = 10'000'000;
constexpr long long kHour = 3600;
constexpr long long kDay = 24 * kHour;

/// Whole days since 1970, by the calendar's own rule: independent of the library and of the C run-time.
long long DaysSince1970(long long year, int month, int day)
{
    const long long shifted = month > 2 ? year : year - 1;
    const long long era = (shifted >= 0 ? shifted : shifted - 399) / 400;
    const long long ofEra = shifted - era * 400;
    const long long ofYear = (153 * (month > 2 ? month - 3 : month + 9) + 2) / 5 + day - 1;
    return era * 146'097 + ofEra * 365 + ofEra / 4 - ofEra / 100 + ofYear - 719'468;
}

TimePoint At(long long seconds, long long ticks = 0)
{
    return TimePoint(TimePoint::duration(seconds * kSecond + ticks));
}

TimePoint Utc(long long year, int month, int day, int hour = 0, int minute = 0, int second = 0)
{
    return At(DaysSince1970(year, month, day) * kDay + hour * kHour + minute * 60 + second);
}

long long SecondsOf(TimePoint timePoint)
{
    return timePoint.time_since_epoch().count() / kSecond;
}

Time MakeTime(int minutes)
{
    Time time;
    time.AddMins(minutes);
    return time;
}

/// The C locale and the C++ locale as they were, at scope end.
class LocaleKeeper
{
public:
    LocaleKeeper() : m_c(std::setlocale(LC_ALL, nullptr))
    {
    }
    ~LocaleKeeper()
    {
        std::locale::global(m_cpp);
        std::setlocale(LC_ALL, m_c.c_str());
    }
    LocaleKeeper(const LocaleKeeper&) = delete;
    LocaleKeeper& operator=(const LocaleKeeper&) = delete;

private:
    std::string m_c;
    std::locale m_cpp;
};

/// A host's facet that reads no time at all.
class DeafTimeReader : public std::time_get<char>
{
    iter_type do_get(iter_type begin, iter_type, std::ios_base&, std::ios_base::iostate& state, std::tm*, char,
                     char) const override
    {
        state |= std::ios_base::failbit;
        return begin;
    }
};

/// A host's facet that writes every conversion as a star.
class StarTimeWriter : public std::time_put<char>
{
    iter_type do_put(iter_type out, std::ios_base&, char, const std::tm*, char, char) const override
    {
        *out++ = '*';
        return out;
    }
};

void WINAPI FixedLocalTime(SYSTEMTIME* time)
{
    *time = SYSTEMTIME{2026, 3, 4, 5, 4, 8, 9, 7}; // 5 March
}

} // namespace

TEST(TimeTest, StartsAtMidnight)
{
    const Time time;

    EXPECT_EQ(time.GetHours(), 0);
    EXPECT_EQ(time.GetMins(), 0);
    EXPECT_EQ(time.GetMinutes(), 0);
    EXPECT_EQ(time.GetTime(), "00:00");
}

TEST(TimeTest, CopiesBothFields)
{
    const Time time = MakeTime(9 * 60 + 5);
    const Time copy(time);
    Time assigned;
    assigned = time;

    EXPECT_EQ(copy.GetTime(), "09:05");
    EXPECT_EQ(assigned.GetTime(), "09:05");
    EXPECT_EQ(assigned.GetMinutes(), 545);
}

TEST(TimeTest, AddMinsPassesMidnightForwardsAndNeverBackwards)
{
    struct
    {
        int start, mins, hours, minutes;
    } const cases[] = {
        {23 * 60 + 50, 20, 0, 10},
        {0, 1500, 1, 0},
        {0, 59, 0, 59},
        {0, 60, 1, 0},
        {0, 1439, 23, 59},
        {0, 1440, 0, 0},
        {10, -30, 0, -20},
        {10, -70, -1, 0},
        {0, -60, -1, 0},
        {0, -61, -1, -1},
        {0, -1500, -25, 0},
        {0, INT_MAX, 2, 7},
        {90, 0, 1, 30},
        {1439, INT_MAX, 2, 6},
        {0, INT_MIN, -35791394, -8},
    };
    for (const auto& test : cases)
    {
        Time time = MakeTime(test.start);
        time.AddMins(test.mins);
        EXPECT_EQ(time.GetHours(), test.hours) << test.start << " and " << test.mins;
        EXPECT_EQ(time.GetMins(), test.minutes) << test.start << " and " << test.mins;
    }
}

TEST(TimeTest, AddMinsOfExtremesLeavesDefinedFields)
{
    Time time;
    for (int i = 0; i < 70; ++i)
    {
        time.AddMins(INT_MIN);
        time.GetMinutes();
    }

    EXPECT_LT(time.GetHours(), 24);
    EXPECT_LT(time.GetMins(), 60);
    EXPECT_GT(time.GetMins(), -60);
}

TEST(TimeTest, GetTimePadsOnlyTextsOfOneCharacter)
{
    EXPECT_EQ(MakeTime(7 * 60 + 5).GetTime(), "07:05");
    EXPECT_EQ(MakeTime(9 * 60).GetTime(), "09:00");
    EXPECT_EQ(MakeTime(23 * 60 + 59).GetTime(), "23:59");
    EXPECT_EQ(MakeTime(-5).GetTime(), "00:-5");
    EXPECT_EQ(MakeTime(-(5 * 60)).GetTime(), "-5:00");
    EXPECT_EQ(MakeTime(-20).GetTime(), "00:-20");
    EXPECT_EQ(MakeTime(-5).GetMinutes(), -5);
}

TEST(TimeTest, TryParseTimeComparesTheTextWithWhatItsNumbersPrint)
{
    struct
    {
        std::string text;
        bool accepted;
        int hours, minutes;
    } const cases[] = {
        {"07:05", true, 7, 5},
        {"00:00", true, 0, 0},
        {"23:59", true, 23, 59},
        {"24:00", false, 24, 0},
        {"07:60", false, 7, 60},
        {"99:99", false, 99, 99},
        {"ab:cd", false, 0, 0},
        {"1a:05", false, 1, 5},
        {":::::", false, 0, 0},
        {"+1:30", false, 1, 30},
        {" 7:05", false, 7, 5},
        {"07: 5", false, 7, 5},
        {"07:5 ", false, 7, 5},
        {"0:005", false, 0, 5},
        {"12345:", false, -99, -99},
        {"-1:05", true, -1, 5},
        {"05:-1", true, 5, -1},
        {"-0:05", false, 0, 5},
        {"07-05", false, -99, -99},
        {"0705 ", false, -99, -99},
        {"7:05", false, -99, -99},
        {"07:5", false, -99, -99},
        {"07:050", false, -99, -99},
        {"", false, -99, -99},
        {std::string("07\0:5", 5), false, 7, 0},
        {std::string("07:0\0", 5), false, 7, 0},
        {"\xFF\xFF:\xFF\xFF", false, 0, 0},
    };
    for (const auto& test : cases)
    {
        int hours = -99;
        int minutes = -99;
        EXPECT_EQ(Time::TryParseTime(test.text, hours, minutes), test.accepted) << test.text;
        EXPECT_EQ(hours, test.hours) << test.text;
        EXPECT_EQ(minutes, test.minutes) << test.text;
        EXPECT_EQ(Time::IsTimeFormat(test.text), test.accepted) << test.text;
    }
}

TEST(TimeTest, SetTimeOfATextReplacesBothFieldsOrNone)
{
    Time time;
    EXPECT_TRUE(time.SetTime("10:30"));
    EXPECT_EQ(time.GetTime(), "10:30");

    for (const char* refused : {"24:00", "11:60", "9:00", "ab:cd", ""})
    {
        EXPECT_FALSE(time.SetTime(refused)) << refused;
        EXPECT_EQ(time.GetTime(), "10:30") << refused;
    }
}

TEST(TimeTest, SetTimeOfATimeGoesThroughItsText)
{
    Time time = MakeTime(600);
    Time other = MakeTime(7 * 60 + 5);
    EXPECT_TRUE(time.SetTime(other));
    EXPECT_EQ(time.GetTime(), "07:05");
    EXPECT_TRUE(time.SetTime(time));

    Time shortNegative = MakeTime(-5); // prints as five characters
    EXPECT_TRUE(time.SetTime(shortNegative));
    EXPECT_EQ(time.GetMins(), -5);

    Time longNegative = MakeTime(-20); // prints as six
    EXPECT_FALSE(time.SetTime(longNegative));
    EXPECT_EQ(time.GetMins(), -5);
}

TEST(TimeTest, MillisecondStampIsTheSystemsLocalTimeWithLeadingZeros)
{
    const ImportPatch clock("KERNEL32.dll", "GetLocalTime", &FixedLocalTime);

    EXPECT_EQ(Time::GetTimeNowToMilliseconds(), "05/03/2026 04:08:09.007");
}

TEST(TimeTest, NowIsNotChangedByTheHostsLocale)
{
    const LocaleKeeper keep;
    const std::string date = Time::GetDate();
    if (!std::setlocale(LC_ALL, "German_Germany.1252"))
    {
        FAIL() << "no German locale";
    }
    std::locale::global(std::locale(std::locale(), new DeafTimeReader));

    const std::string stamp = Time::GetTimeNowToMilliseconds();

    ASSERT_EQ(stamp.size(), 23u);
    EXPECT_EQ(stamp[2], '/');
    EXPECT_EQ(stamp[19], '.');
    EXPECT_EQ(Time::GetDate().size(), date.size());
    EXPECT_TRUE(Time::ValidateYYYY_MM_DD_HH_MM_SS("2026-11-15T04:38:29"));
    EXPECT_EQ(Time::GetCorvaneDateFromYYYY_MM_DD_HH_MM_SS("2026-11-15T04:38:29"), "15/11/2026");
    EXPECT_EQ(Time::GetTimePointDay(Utc(2026, 11, 15)), "Sunday");
}

TEST(TimeTest, ValidTextStartsWithADateAndATime)
{
    for (const char* text :
         {"2026-11-15T04:38:29", "2026-11-15T04:38:29Z", "2026-11-15T04:38:29.123+01:00", "2026-02-30T23:59:60",
          "2026-1-5T4:8:9", "26-1-5T4:8:9", "1-1-1T1:1:1", "  2026-11-15T04:38:29", "0000-01-01T00:00:00",
          "9999-12-31T23:59:59", "1969-12-31T23:59:59"})
    {
        EXPECT_TRUE(Time::ValidateYYYY_MM_DD_HH_MM_SS(text)) << text;
    }
}

TEST(TimeTest, TextThatEndsEarlyOrDoesNotFitIsNotValid)
{
    const std::string whole = "2026-11-15T04:38:2";
    for (std::size_t length = 0; length + 1 < whole.size(); ++length)
    {
        EXPECT_FALSE(Time::ValidateYYYY_MM_DD_HH_MM_SS(whole.substr(0, length))) << whole.substr(0, length);
    }
    for (const std::string& text :
         {std::string("2026-11-15 04:38:29"), std::string("2026-13-15T04:38:29"), std::string("2026-00-15T04:38:29"),
          std::string("2026-11-32T04:38:29"), std::string("2026-11-00T04:38:29"), std::string("2026-11-15T24:38:29"),
          std::string("2026-11-15T04:60:29"), std::string("2026-11-15T04:38:61"), std::string("-2026-11-15T04:38:29"),
          std::string("2026/11/15T04:38:29"), std::string("rubbish"), std::string("2026-11-15T04:38\0:29", 20)})
    {
        EXPECT_FALSE(Time::ValidateYYYY_MM_DD_HH_MM_SS(text)) << text;
        EXPECT_EQ(Time::GetTimeFromYYYY_MM_DD_HH_MM_SS(text), 0) << text;
        EXPECT_EQ(Time::GetCorvaneDateFromYYYY_MM_DD_HH_MM_SS(text), "") << text;
    }
}

TEST(TimeTest, CorvaneDateIsTakenFromFixedPositions)
{
    EXPECT_EQ(Time::GetCorvaneDateFromYYYY_MM_DD_HH_MM_SS("2026-11-15T04:38:29"), "15/11/2026");
    EXPECT_EQ(Time::GetCorvaneDateFromYYYY_MM_DD_HH_MM_SS("0987-01-02T04:38:29 and more"), "02/01/0987");
    EXPECT_EQ(Time::GetCorvaneDateFromYYYY_MM_DD_HH_MM_SS("2026-1-5T4:8:9"), "T4/1-/2026");
    EXPECT_EQ(Time::GetCorvaneDateFromYYYY_MM_DD_HH_MM_SS("1-1-1T1:2:3"), "2:/T1/1-1-");
}

TEST(TimeTest, FieldsOutsideTheTextCountZeroAndNothingThrows)
{
    // The hour is "4:", the minute ":9", the second lies outside.
    EXPECT_EQ(Time::GetTimeFromYYYY_MM_DD_HH_MM_SS("2026-11-15T4:8:9"),
              Time::GetTimeFromYYYY_MM_DD_HH_MM_SS("2026-11-15T04:00:00"));
    // The month is "1-", the day "T4", which is the day before the first; the hour is "8", the minute none.
    EXPECT_EQ(Time::GetTimeFromYYYY_MM_DD_HH_MM_SS("2026-1-5T4:8:9"),
              Time::GetTimeFromYYYY_MM_DD_HH_MM_SS("2025-12-31T08:00:00"));
    EXPECT_EQ(Time::GetTimeFromYYYY_MM_DD_HH_MM_SS("1-1-1T1:2:3"), -1);
}

TEST(TimeTest, BreakdownInUtcIsRightForEveryTime)
{
    struct
    {
        long long year;
        int month, day, hour, minute, second, weekday, dayOfYear;
        const char* name;
    } const cases[] = {
        {1970, 1, 1, 0, 0, 0, 4, 0, "Thursday"},       {2026, 11, 15, 4, 38, 29, 0, 318, "Sunday"},
        {2038, 1, 19, 3, 14, 8, 2, 18, "Tuesday"},     {2100, 3, 1, 0, 0, 0, 1, 59, "Monday"},
        {2000, 2, 29, 23, 59, 59, 2, 59, "Tuesday"},   {3000, 12, 31, 23, 59, 59, 3, 364, "Wednesday"},
        {3001, 1, 1, 0, 0, 0, 4, 0, "Thursday"},       {1969, 12, 31, 23, 59, 59, 3, 364, "Wednesday"},
        {1900, 2, 28, 12, 0, 0, 3, 58, "Wednesday"},   {1600, 2, 29, 0, 0, 1, 2, 59, "Tuesday"},
        {0, 1, 1, 0, 0, 0, 6, 0, "Saturday"},          {-27000, 1, 1, 0, 0, 0, 3, 0, "Wednesday"},
        {30000, 12, 31, 23, 59, 59, 0, 365, "Sunday"},
    };
    for (const auto& test : cases)
    {
        const TimePoint time = Utc(test.year, test.month, test.day, test.hour, test.minute, test.second);
        for (const TimePoint& moment : {time, time + TimePoint::duration(kSecond - 1)})
        {
            const std::tm fields = Time::TmFromTimePoint(moment);
            EXPECT_EQ(fields.tm_year + 1900, test.year);
            EXPECT_EQ(fields.tm_mon + 1, test.month) << test.year;
            EXPECT_EQ(fields.tm_mday, test.day) << test.year;
            EXPECT_EQ(fields.tm_hour, test.hour) << test.year;
            EXPECT_EQ(fields.tm_min, test.minute) << test.year;
            EXPECT_EQ(fields.tm_sec, test.second) << test.year;
            EXPECT_EQ(fields.tm_wday, test.weekday) << test.year;
            EXPECT_EQ(fields.tm_yday, test.dayOfYear) << test.year;
            EXPECT_EQ(fields.tm_isdst, 0) << test.year;
            EXPECT_EQ(Time::GetTimePointDay(moment), test.name) << test.year;
        }
    }
}

TEST(TimeTest, BreakdownOfTheFirstAndLastTimePointIsFloored)
{
    const std::tm first = Time::TmFromTimePoint(TimePoint::min());
    EXPECT_EQ(first.tm_year + 1900, -27258);
    EXPECT_EQ(first.tm_hour * 10000 + first.tm_min * 100 + first.tm_sec, 211154);

    const std::tm last = Time::TmFromTimePoint(TimePoint::max());
    EXPECT_EQ(last.tm_year + 1900, 31197);
    EXPECT_EQ(last.tm_hour * 10000 + last.tm_min * 100 + last.tm_sec, 24805);
}

TEST(TimeTest, EveryWeekdayHasItsFullName)
{
    const char* const names[] = {"Thursday", "Friday", "Saturday", "Sunday", "Monday", "Tuesday", "Wednesday"};
    for (int day = -14; day < 14; ++day)
    {
        EXPECT_EQ(Time::GetTimePointDay(At(day * kDay)), names[(day + 14) % 7]) << day;
    }
}

TEST(TimeTest, TextInUtcFollowsTheFormat)
{
    const TimePoint time = Utc(2026, 11, 5, 16, 8, 9);
    struct
    {
        const char *format, *text;
    } const cases[] = {
        {"%Y-%m-%dT%H:%M:%S", "2026-11-05T16:08:09"},
        {"%d/%m/%y %I:%M %p", "05/11/26 04:08 PM"},
        {"%c|%x|%U|%W", "11/05/26 16:08:09|11/05/26|44|44"},
        {"%Q%", ""},
        {"%A %a %B %b %j %w %X", "Thursday Thu November Nov 309 4 16:08:09"},
        {"%F|%T|%D|%R|%h|%e|%C|%n|%t|%r", "2026-11-05|16:08:09|11/05/26|16:08|Nov| 5|20|\n|\t|04:08:09 PM"},
        {"%u %V %G %g", "4 45 2026 26"},
        {"%Ey %Od %EY", "26 05 2026"},
        {"100%% plain", "100% plain"},
        {"%%F", "%F"},
        {"", ""},
    };
    for (const auto& test : cases)
    {
        EXPECT_EQ(Time::StringFromTimePointUTC(time, test.format), test.text) << test.format;
    }
    EXPECT_EQ(Time::StringFromTimePointUTC(time, std::string("%Y\0%m", 5)), std::string("2026\00011", 7));
}

TEST(TimeTest, WeeksOfTheYearStartOnMondayAndBelongToTheYearOfTheirThursday)
{
    EXPECT_EQ(Time::StringFromTimePointUTC(Utc(2021, 1, 3), "%G-%V-%u"), "2020-53-7");
    EXPECT_EQ(Time::StringFromTimePointUTC(Utc(2021, 1, 4), "%G-%V-%u"), "2021-01-1");
    EXPECT_EQ(Time::StringFromTimePointUTC(Utc(2024, 12, 29), "%G-%V-%u"), "2024-52-7");
    EXPECT_EQ(Time::StringFromTimePointUTC(Utc(2024, 12, 30), "%G-%V-%u %g"), "2025-01-1 25");
    EXPECT_EQ(Time::StringFromTimePointUTC(Utc(2000, 1, 1), "%G-%V-%u %g"), "1999-52-6 99");
}

TEST(TimeTest, TextInUtcIsRightFarFromNow)
{
    const char* const format = "%Y-%m-%d %H:%M:%S";
    EXPECT_EQ(Time::StringFromTimePointUTC(At(0, -1), format), "1969-12-31 23:59:59");
    EXPECT_EQ(Time::StringFromTimePointUTC(At(2147483648LL), format), "2038-01-19 03:14:08");
    EXPECT_EQ(Time::StringFromTimePointUTC(Utc(2100, 2, 28, 23, 59, 59), format), "2100-02-28 23:59:59");
    EXPECT_EQ(Time::StringFromTimePointUTC(Utc(3000, 6, 1), format), "3000-06-01 00:00:00");
    EXPECT_EQ(Time::StringFromTimePointUTC(Utc(1583, 10, 9), format), "1583-10-09 00:00:00");
    EXPECT_EQ(Time::StringFromTimePointUTC(Utc(12026, 1, 2), "%F %C"), "12026-01-02 120");
    EXPECT_EQ(Time::StringFromTimePointUTC(Utc(-44, 3, 15), "%Y-%m-%d"), "-44-03-15");
}

TEST(TimeTest, NamesFollowTheHostsTimeFacet)
{
    const LocaleKeeper keep;
    std::locale::global(std::locale(std::locale(), new StarTimeWriter));

    EXPECT_EQ(Time::StringFromTimePointUTC(Utc(2026, 12, 5), "%d %B %A %p %X"), "05 * * * *");
}

TEST(TimeTest, FormattingLeavesTheHostsCLocaleAlone)
{
    const LocaleKeeper keep;
    ASSERT_TRUE(std::setlocale(LC_ALL, "German_Germany.1252"));
    const std::string before = std::setlocale(LC_ALL, nullptr);
    std::atomic<bool> stop = false;
    std::atomic<int> changed = 0;
    std::thread watcher([&] {
        while (!stop)
        {
            changed += std::setlocale(LC_ALL, nullptr) != before ? 1 : 0;
        }
    });

    for (int i = 0; i < 2000; ++i)
    {
        EXPECT_EQ(Time::StringFromTimePointUTC(Utc(2026, 12, 5), "%A %d %B %Y %%"), "Saturday 05 December 2026 %");
    }

    stop = true;
    watcher.join();
    EXPECT_EQ(changed, 0);
}

TEST(TimeTest, UnreadableTextIsTheRecordOfZeros)
{
    const TimePoint zeros = At(-1);
    EXPECT_EQ(Time::TimePointFromString("rubbish", "%Y-%m-%d"), zeros);
    EXPECT_EQ(Time::TimePointFromString("", "%Y"), zeros);
    EXPECT_EQ(Time::TimePointFromString("2026-11-15", "%Y-%m-%dT%H:%M:%S"), zeros);
    EXPECT_EQ(Time::TimePointFromString("2026-11-15 10:xx", "%Y-%m-%d %H:%M"), zeros);
    EXPECT_EQ(Time::TimePointFromString("2026-11-15 10", "%Y-%m-%d %H:%M"), zeros);
}

TEST(TimeTest, ReadingKnowsTheShortFormOfADate)
{
    EXPECT_EQ(Time::TimePointFromString("2026-11-15 04:38", "%F %R"),
              Time::TimePointFromString("2026-11-15 04:38", "%Y-%m-%d %H:%M"));
    EXPECT_NE(Time::TimePointFromString("2026-11-15 04:38", "%F %R"), At(-1));
    EXPECT_EQ(Time::TimePointFromString("%F 2026-11-15", "%%F %Y-%m-%d"),
              Time::TimePointFromString("2026-11-15", "%Y-%m-%d"));
}

TEST(TimeTest, DatesThatTheRunTimeCannotConvertAreMinusOneSecond)
{
    EXPECT_EQ(Time::TimePointFromTm(std::tm{}), At(-1));
    EXPECT_EQ(Time::GetTimeFromYYYY_MM_DD_HH_MM_SS("1960-11-15T04:38:29"), -1);
    EXPECT_EQ(Time::GetTimeFromYYYY_MM_DD_HH_MM_SS("9999-11-15T04:38:29"), -1);
    EXPECT_EQ(Time::GetTimePointStartOfDay(Utc(1960, 1, 1)), At(-1));

    std::tm extreme{};
    extreme.tm_year = INT_MAX;
    extreme.tm_mon = INT_MAX;
    EXPECT_EQ(Time::TimePointFromTm(extreme), At(-1));
}

TEST(TimeTest, LastDayOfMonthFollowsTheOffset)
{
    const unsigned int days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    for (int offset = -36; offset <= 36; ++offset)
    {
        const int month = (offset + 36) % 12;
        const int year = 2026 + (offset + 36) / 12 - 3;
        const unsigned int expected = month == 1 && year % 4 == 0 ? 29 : days[month];
        EXPECT_EQ(Time::GetLastDayOfMonth(Utc(2026, 1, 31, 23, 59, 59), offset), expected) << offset;
    }
}

TEST(TimeTest, LastDayOfFebruaryKnowsLeapYears)
{
    EXPECT_EQ(Time::GetLastDayOfMonth(Utc(2026, 1, 1), 1), 28u);
    EXPECT_EQ(Time::GetLastDayOfMonth(Utc(2028, 1, 1), 1), 29u);
    EXPECT_EQ(Time::GetLastDayOfMonth(Utc(2100, 1, 1), 1), 28u);
    EXPECT_EQ(Time::GetLastDayOfMonth(Utc(2000, 1, 1), 1), 29u);
    EXPECT_EQ(Time::GetLastDayOfMonth(Utc(1600, 3, 31), -1), 29u);
    EXPECT_EQ(Time::GetLastDayOfMonth(Utc(1968, 12, 31, 23, 59, 59), -10), 29u);
    EXPECT_EQ(Time::GetLastDayOfMonth(Utc(2000, 1, 1), 12 * 100 + 1), 28u);
    EXPECT_EQ(Time::GetLastDayOfMonth(Utc(2000, 1, 1), -12 * 2000 + 1), 29u); // the year 0
    EXPECT_EQ(Time::GetLastDayOfMonth(Utc(2000, 1, 1), -12 * 2004 + 1), 29u); // the year -4
    EXPECT_EQ(Time::GetLastDayOfMonth(Utc(2000, 1, 1), -12 * 2100 + 1), 28u); // the year -100
}

TEST(TimeTest, LastDayOfMonthOfAnyOffsetIsDefined)
{
    // 2^31 months are 178,956,970 years and 8 months: from January 2026 back to May, on to August (less one).
    EXPECT_EQ(Time::GetLastDayOfMonth(Utc(2026, 1, 1), INT_MIN), 31u);
    EXPECT_EQ(Time::GetLastDayOfMonth(Utc(2026, 2, 1), INT_MIN), 30u);
    EXPECT_EQ(Time::GetLastDayOfMonth(Utc(2026, 1, 1), INT_MAX), 31u);
    EXPECT_EQ(Time::GetLastDayOfMonth(Utc(2026, 2, 1), INT_MAX), 30u);
    EXPECT_GE(Time::GetLastDayOfMonth(TimePoint::min(), INT_MIN), 28u);
    EXPECT_GE(Time::GetLastDayOfMonth(TimePoint::max(), INT_MAX), 28u);
}

TEST(TimeTest, BorderOfAMonthIsThatOfUtc)
{
    EXPECT_EQ(Time::GetLastDayOfMonth(Utc(2026, 2, 28, 23, 59, 59), 0), 28u);
    EXPECT_EQ(Time::GetLastDayOfMonth(Utc(2026, 3, 1), 0), 31u);
    EXPECT_EQ(Time::GetLastDayOfMonth(At(0, -1), 0), 31u);
    EXPECT_EQ(Time::GetLastDayOfMonth(At(0, -1), -1), 30u);
}

TEST(TimeTest, ClockFaceOfArgumentsOutOfRangeIsTheirSum)
{
    const TimePoint noon = Time::GetTodayTimePointAtClockFace(12, 0, 0);
    EXPECT_EQ(SecondsOf(noon) % kDay, 12 * kHour);
    EXPECT_EQ(Time::GetTodayTimePointAtClockFace(13, -60, 0), noon);
    EXPECT_EQ(Time::GetTodayTimePointAtClockFace(36, 0, 0), noon + TimePoint::duration(kDay * kSecond));
    EXPECT_EQ(Time::GetTodayTimePointAtClockFace(11, 59, 60), noon);
    EXPECT_EQ(Time::GetTodayTimePointAtClockFace(0, INT_MAX, INT_MIN).time_since_epoch().count() -
                  Time::GetTodayTimePointAtClockFace(0, 0, 0).time_since_epoch().count(),
              (60LL * INT_MAX + INT_MIN) * kSecond);
}

TEST(TimeTest, ClockFaceBeyondTheTimePointsIsTheLastOrFirst)
{
    EXPECT_EQ(Time::GetTodayTimePointAtClockFace(INT_MAX, INT_MAX, INT_MAX), TimePoint::max());
    EXPECT_EQ(Time::GetTodayTimePointAtClockFace(INT_MIN, INT_MIN, INT_MIN), TimePoint::min());
}

TEST(TimeTest, BreakdownsOfSeveralThreadsDoNotMix)
{
    std::atomic<int> wrong = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
    {
        threads.emplace_back([i, &wrong] {
            const TimePoint time = Utc(2000 + i, 1 + i, 10 + i, 12);
            const std::string expected = Time::StringFromTimePoint(time, "%Y-%m-%d %H");
            for (int n = 0; n < 2000; ++n)
            {
                wrong += Time::StringFromTimePoint(time, "%Y-%m-%d %H") != expected ? 1 : 0;
                wrong += Time::TmFromTimePoint(time).tm_mday != 10 + i ? 1 : 0;
            }
        });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }

    EXPECT_EQ(wrong, 0);
}
