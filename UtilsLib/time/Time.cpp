#include <UtilsLib/time/Time.h>

#include <UtilsLib/WindowsTypes.h>
#include <UtilsLib/platform/LocalTimeStamp.h>
#include <UtilsLib/platform/TimeFormat.h>

#include <array>
#include <cstdlib>
#include <iomanip>
#include <locale>
#include <sstream>

namespace UtilsLib
{
namespace
{

using Seconds = std::chrono::duration<long long>;

constexpr const char* kDateTimeFormat = "%Y-%m-%dT%H:%M:%S";
constexpr const char* kClockFormat = "%H:%M";

// The calendar repeats, weekdays included, every 400 years.
constexpr int kCycleYears = 400;
constexpr long long kCycleSeconds = 146'097LL * 24 * 60 * 60;

// The C run-time breaks down the years 1970 to 3000 only. It applies the zone's present rule to all of them, so any
// other year is as good as its twin within the cycle that starts with 1970.
std::tm LocalFields(long long seconds)
{
    using Cycles = std::chrono::duration<long long, std::ratio<kCycleSeconds>>;
    const long long cycles = std::chrono::floor<Cycles>(Seconds(seconds)).count();
    const __time64_t twin = seconds - cycles * kCycleSeconds;
    std::tm fields{};
    _localtime64_s(&fields, &twin);
    fields.tm_year += static_cast<int>(cycles) * kCycleYears;
    return fields;
}

long long WholeSeconds(const TimePoint& timePoint)
{
    return std::chrono::floor<Seconds>(timePoint).time_since_epoch().count();
}

TimePoint FromSeconds(long long seconds)
{
    return TimePoint(std::chrono::duration_cast<TimePoint::duration>(Seconds(seconds)));
}

std::string LocalNow(const char* format)
{
    const std::tm fields = LocalFields(_time64(nullptr));
    char text[80];
    return std::string(text, std::strftime(text, sizeof(text), format, &fields));
}

// A byte that no conversion takes follows the text: one library's stream accepts a text that ends where the format goes
// on with a literal character, another's does not.
bool Read(const std::string& text, const char* format, const std::locale& locale, std::tm& fields)
{
    constexpr char kEnd = '\x01';
    std::istringstream stream(text + kEnd);
    stream.imbue(locale);
    std::tm read = fields;
    if (!(stream >> std::get_time(&read, format)))
    {
        return false;
    }
    fields = read;
    return true;
}

// A part outside the text is empty.
std::string Part(const std::string& text, std::size_t position, std::size_t length)
{
    return position < text.size() ? text.substr(position, length) : std::string();
}

int NumberAt(const std::string& text, std::size_t position, std::size_t length)
{
    return std::atoi(Part(text, position, length).c_str());
}

std::string TwoDigits(int number)
{
    const std::string digits = std::to_string(number);
    return digits.size() == 1 ? "0" + digits : digits;
}

std::string ClockText(int hours, int minutes)
{
    return TwoDigits(hours) + ":" + TwoDigits(minutes);
}

bool IsLeapYear(long long year)
{
    return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

} // namespace

Time::Time() = default;
Time::Time(const Time& other) = default;
Time::~Time() = default;
Time& Time::operator=(const Time& other) = default;

int Time::GetHours() const
{
    return m_hours;
}

int Time::GetMins() const
{
    return m_minutes;
}

int Time::GetMinutes() const
{
    return static_cast<int>(m_hours * 60LL + m_minutes);
}

void Time::AddMins(const int& mins)
{
    const long long total = m_hours * 60LL + m_minutes + mins;
    // kept: division towards zero and no wrap below midnight, so a negative total gives negative fields.
    const long long hours = total / 60;
    m_minutes = static_cast<int>(total - hours * 60);
    m_hours = static_cast<int>(hours >= 24 ? hours % 24 : hours);
}

std::string Time::GetTime() const
{
    return ClockText(m_hours, m_minutes);
}

bool Time::SetTime(const std::string& time)
{
    int hours = 0;
    int minutes = 0;
    if (!TryParseTime(time, hours, minutes))
    {
        return false;
    }
    m_hours = hours;
    m_minutes = minutes;
    return true;
}

bool Time::SetTime(Time& other)
{
    return SetTime(other.GetTime());
}

std::string Time::GetDate()
{
    return LocalNow("%Y-%m-%d");
}

std::string Time::GetTimeNow()
{
    return LocalNow("%d-%b-%Y %X");
}

std::string Time::GetTimeNowToMilliseconds()
{
    SYSTEMTIME now;
    GetLocalTime(&now);
    return std::string(Platform::LocalTimeStamp(now).Text());
}

std::string Time::GetTimeNowMMYY()
{
    return LocalNow("%B-%Y"); // kept: the name says digits
}

Time Time::_GetTimeNow()
{
    const std::string now = GetTimeNow();
    Time result;
    result.SetTime(Part(now, now.find(' ') + 1, 5));
    return result;
}

bool Time::ValidateYYYY_MM_DD_HH_MM_SS(const std::string& text)
{
    std::tm fields{};
    return Read(text, kDateTimeFormat, std::locale::classic(), fields);
}

long long Time::GetTimeFromYYYY_MM_DD_HH_MM_SS(const std::string& text)
{
    if (!ValidateYYYY_MM_DD_HH_MM_SS(text))
    {
        return 0;
    }
    std::tm fields{};
    fields.tm_sec = NumberAt(text, 17, 2);
    fields.tm_min = NumberAt(text, 14, 2);
    fields.tm_hour = NumberAt(text, 11, 2);
    fields.tm_mday = NumberAt(text, 8, 2);
    fields.tm_mon = NumberAt(text, 5, 2) - 1;
    fields.tm_year = NumberAt(text, 0, 4) - 1900;
    fields.tm_isdst = 0; // kept: standard time also in summer
    return _mktime64(&fields);
}

std::string Time::GetCorvaneDateFromYYYY_MM_DD_HH_MM_SS(const std::string& text)
{
    if (!ValidateYYYY_MM_DD_HH_MM_SS(text))
    {
        return {};
    }
    return Part(text, 8, 2) + "/" + Part(text, 5, 2) + "/" + Part(text, 0, 4);
}

std::string Time::StringFromTimePoint(const TimePoint& timePoint, const std::string& format)
{
    return Platform::FormatTime(LocalFields(WholeSeconds(timePoint)), format);
}

std::string Time::StringFromTimePointUTC(const TimePoint& timePoint, const std::string& format)
{
    return Platform::FormatTime(TmFromTimePoint(timePoint), format);
}

TimePoint Time::TimePointFromString(const std::string& text, const std::string& format)
{
    std::tm fields{};
    Read(text, Platform::ReadFormat(format).c_str(), std::locale(), fields);
    return TimePointFromTm(fields);
}

std::tm Time::TmFromTimePoint(const TimePoint& timePoint)
{
    using namespace std::chrono;
    const sys_days day = floor<days>(timePoint);
    const year_month_day date(day);
    const hh_mm_ss clock(floor<Seconds>(timePoint) - day);
    std::tm fields{};
    fields.tm_year = static_cast<int>(date.year()) - 1900;
    fields.tm_mon = static_cast<int>(static_cast<unsigned int>(date.month())) - 1;
    fields.tm_mday = static_cast<int>(static_cast<unsigned int>(date.day()));
    fields.tm_hour = static_cast<int>(clock.hours().count());
    fields.tm_min = static_cast<int>(clock.minutes().count());
    fields.tm_sec = static_cast<int>(clock.seconds().count());
    fields.tm_wday = static_cast<int>(weekday(day).c_encoding());
    fields.tm_yday = static_cast<int>((day - sys_days(date.year() / January / 1)).count());
    return fields;
}

TimePoint Time::TimePointFromTm(std::tm fields)
{
    return FromSeconds(_mktime64(&fields)); // kept: local time, although TmFromTimePoint breaks down in UTC
}

TimePoint Time::GetTimePointStartOfDay(const TimePoint& timePoint)
{
    std::tm fields = TmFromTimePoint(timePoint); // kept: the day in UTC, its start in local time
    fields.tm_hour = 0;
    fields.tm_min = 0;
    fields.tm_sec = 0;
    return TimePointFromTm(fields);
}

TimePoint Time::GetTimePointForTimeOfDay(const TimePoint& day, const std::string& clockTime)
{
    std::tm fields = TmFromTimePoint(day); // kept: the day in UTC, the clock time local
    Read(clockTime, kClockFormat, std::locale::classic(), fields);
    return TimePointFromTm(fields);
}

bool Time::IsTimeFormat(const std::string& text)
{
    int hours = 0;
    int minutes = 0;
    return TryParseTime(text, hours, minutes);
}

bool Time::TryParseTime(const std::string& text, int& hours, int& minutes)
{
    if (text.size() != 5 || text.find(':') == std::string::npos)
    {
        return false;
    }
    // kept: written even if the checks below refuse the text.
    hours = NumberAt(text, 0, 2);
    minutes = NumberAt(text, 3, 2);
    return ClockText(hours, minutes) == text && hours < 24 && minutes <= 59;
}

unsigned int Time::GetLastDayOfMonth(const TimePoint& timePoint, int monthOffset)
{
    constexpr std::array<unsigned int, 12> kDays = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    const std::tm fields = TmFromTimePoint(timePoint);
    const long long months = (fields.tm_year + 1900LL) * 12 + fields.tm_mon + monthOffset;
    const long long month = ((months % 12) + 12) % 12;
    const long long year = (months - month) / 12;
    return month == 1 && IsLeapYear(year) ? 29 : kDays[static_cast<std::size_t>(month)];
}

TimePoint Time::GetTodayTimePointAtClockFace(int hours, int minutes, int seconds)
{
    using namespace std::chrono;
    constexpr long long kLimit = TimePoint::duration::max().count() / TimePoint::period::den;
    const long long day = floor<days>(system_clock::now()).time_since_epoch().count();
    // kept: the clock face is UTC's.
    const long long total = ((day * 24 + hours) * 60 + minutes) * 60 + seconds;
    if (total > kLimit)
    {
        return TimePoint::max();
    }
    return total < -kLimit ? TimePoint::min() : FromSeconds(total);
}

std::string Time::GetTimePointDay(const TimePoint& timePoint)
{
    constexpr std::array<const char*, 7> kNames = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                                   "Thursday", "Friday", "Saturday"};
    return kNames[static_cast<std::size_t>(TmFromTimePoint(timePoint).tm_wday)];
}

} // namespace UtilsLib
