#include <UtilsLib/platform/TimeFormat.h>

#include <array>
#include <chrono>
#include <iomanip>
#include <locale>
#include <sstream>

namespace UtilsLib::Platform
{
namespace
{

constexpr std::array<const char*, 7> kDays = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                              "Thursday", "Friday", "Saturday"};
constexpr std::array<const char*, 12> kMonths = {"January", "February", "March",     "April",   "May",      "June",
                                                 "July",    "August",   "September", "October", "November", "December"};
constexpr std::size_t kShortName = 3;

std::string Padded(int number, std::size_t width, char pad = '0')
{
    const std::string digits = std::to_string(number);
    return digits.size() < width ? std::string(width - digits.size(), pad) + digits : digits;
}

std::string Year(int year)
{
    return year < 0 ? std::to_string(year) : Padded(year, 4);
}

int Century(int year)
{
    return (year - ((year % 100) + 100) % 100) / 100;
}

std::string YearOfCentury(int year)
{
    return Padded(year - Century(year) * 100, 2);
}

std::string HourOfTwelve(int hour)
{
    return Padded(hour % 12 == 0 ? 12 : hour % 12, 2);
}

/// Days since the last `firstDay` (0: Sunday).
int DaysIntoWeek(const std::tm& fields, int firstDay)
{
    return (fields.tm_wday + 7 - firstDay) % 7;
}

/// The number of week starts in the year so far.
std::string WeekOfYear(const std::tm& fields, int firstDay)
{
    return Padded((fields.tm_yday + 7 - DaysIntoWeek(fields, firstDay)) / 7, 2);
}

int DaysOfYear(int year)
{
    return std::chrono::year(year).is_leap() ? 366 : 365;
}

struct IsoWeek
{
    int year;
    int week;
};

// A week belongs to the year that has its Thursday.
IsoWeek IsoWeekOf(const std::tm& fields)
{
    const int year = fields.tm_year + 1900;
    const int thursday = fields.tm_yday - DaysIntoWeek(fields, 1) + 3;
    if (thursday < 0)
    {
        return {year - 1, (thursday + DaysOfYear(year - 1)) / 7 + 1};
    }
    if (thursday >= DaysOfYear(year))
    {
        return {year + 1, 1};
    }
    return {year, thursday / 7 + 1};
}

std::string ByStream(const std::tm& fields, char conversion)
{
    const char format[] = {'%', conversion, '\0'};
    std::ostringstream stream;
    stream << std::put_time(&fields, format);
    return stream.str();
}

bool HostHasNames()
{
    using Facet = std::time_put<char>;
    return &std::use_facet<Facet>(std::locale()) != &std::use_facet<Facet>(std::locale::classic());
}

/// The conversions whose text a locale decides.
std::string Localized(const std::tm& fields, char conversion)
{
    if (HostHasNames())
    {
        return ByStream(fields, conversion);
    }
    switch (conversion)
    {
    case 'a':
        return std::string(kDays.at(static_cast<std::size_t>(fields.tm_wday)), kShortName);
    case 'A':
        return kDays.at(static_cast<std::size_t>(fields.tm_wday));
    case 'b':
        return std::string(kMonths.at(static_cast<std::size_t>(fields.tm_mon)), kShortName);
    case 'B':
        return kMonths.at(static_cast<std::size_t>(fields.tm_mon));
    case 'c':
        return FormatTime(fields, "%m/%d/%y %H:%M:%S");
    case 'p':
        return fields.tm_hour < 12 ? "AM" : "PM";
    case 'x':
        return FormatTime(fields, "%m/%d/%y");
    default:
        return FormatTime(fields, "%H:%M:%S"); // X
    }
}

/// The conversions that stand for others.
std::string Composed(const std::tm& fields, char conversion)
{
    switch (conversion)
    {
    case 'D':
        return FormatTime(fields, "%m/%d/%y");
    case 'F':
        return FormatTime(fields, "%Y-%m-%d");
    case 'h':
        return FormatTime(fields, "%b");
    case 'r':
        return FormatTime(fields, "%I:%M:%S %p");
    case 'R':
        return FormatTime(fields, "%H:%M");
    case 'T':
        return FormatTime(fields, "%H:%M:%S");
    default:
        return ByStream(fields, conversion);
    }
}

std::string Convert(const std::tm& fields, char conversion)
{
    const int year = fields.tm_year + 1900;
    switch (conversion)
    {
    case 'a':
    case 'A':
    case 'b':
    case 'B':
    case 'c':
    case 'p':
    case 'x':
    case 'X':
        return Localized(fields, conversion);
    case 'C':
        return Padded(Century(year), 2);
    case 'd':
        return Padded(fields.tm_mday, 2);
    case 'e':
        return Padded(fields.tm_mday, 2, ' ');
    case 'g':
        return YearOfCentury(IsoWeekOf(fields).year);
    case 'G':
        return Year(IsoWeekOf(fields).year);
    case 'H':
        return Padded(fields.tm_hour, 2);
    case 'I':
        return HourOfTwelve(fields.tm_hour);
    case 'j':
        return Padded(fields.tm_yday + 1, 3);
    case 'm':
        return Padded(fields.tm_mon + 1, 2);
    case 'M':
        return Padded(fields.tm_min, 2);
    case 'n':
        return "\n";
    case 'S':
        return Padded(fields.tm_sec, 2);
    case 't':
        return "\t";
    case 'u':
        return std::to_string(DaysIntoWeek(fields, 1) + 1);
    case 'U':
        return WeekOfYear(fields, 0);
    case 'V':
        return Padded(IsoWeekOf(fields).week, 2);
    case 'w':
        return std::to_string(fields.tm_wday);
    case 'W':
        return WeekOfYear(fields, 1);
    case 'y':
        return YearOfCentury(year);
    case 'Y':
        return Year(year);
    case '%':
        return "%";
    default:
        return Composed(fields, conversion);
    }
}

} // namespace

std::string FormatTime(const std::tm& fields, const std::string& format)
{
    std::string result;
    for (std::size_t i = 0; i < format.size(); ++i)
    {
        if (format[i] != '%')
        {
            result += format[i];
            continue;
        }
        ++i;
        // E and O ask for a locale's other digits and eras; without such a locale they change nothing.
        if (i + 1 < format.size() && (format[i] == 'E' || format[i] == 'O'))
        {
            ++i;
        }
        if (i < format.size())
        {
            result += Convert(fields, format[i]);
        }
    }
    return result;
}

std::string ReadFormat(const std::string& format)
{
    std::string result;
    for (std::size_t i = 0; i < format.size(); ++i)
    {
        result += format[i];
        if (format[i] != '%' || i + 1 == format.size())
        {
            continue;
        }
        ++i;
        result += format[i] == 'F' ? std::string("Y-%m-%d") : std::string(1, format[i]);
    }
    return result;
}

} // namespace UtilsLib::Platform
