#include <UtilsLib/platform/LocalTimeStamp.h>

#include <atomic>

namespace UtilsLib::Platform
{
namespace
{

using Ticks = unsigned long long; // 100 ns since 1601

constexpr Ticks kTicksOfATenth = 1'000'000;
constexpr long long kTicksOfAMinute = 600'000'000;

// The tenth of a second in which the zone's offset was asked for, and the offset in minutes (biased): one word, so that
// threads need no lock. The rules of summer time change offsets at whole minutes, so no tenth sees two of them; a zone
// that the user sets anew shows in the next tenth.
constexpr int kOffsetBits = 16;
constexpr Ticks kOffsetMask = (Ticks(1) << kOffsetBits) - 1;
constexpr long long kOffsetBias = 1 << (kOffsetBits - 1);
std::atomic<Ticks> g_tenthAndOffset = 0;

Ticks ToTicks(const FILETIME& time)
{
    return (Ticks(time.dwHighDateTime) << 32) | time.dwLowDateTime;
}

long long AskForOffset(const FILETIME& utc)
{
    FILETIME local = utc;
    FileTimeToLocalFileTime(&utc, &local);
    return (static_cast<long long>(ToTicks(local)) - static_cast<long long>(ToTicks(utc))) / kTicksOfAMinute;
}

long long OffsetInMinutes(const FILETIME& utc)
{
    const Ticks tenth = ToTicks(utc) / kTicksOfATenth;
    const Ticks known = g_tenthAndOffset.load(std::memory_order_relaxed);
    if (known >> kOffsetBits == tenth)
    {
        return static_cast<long long>(known & kOffsetMask) - kOffsetBias;
    }
    const long long offset = AskForOffset(utc);
    g_tenthAndOffset.store((tenth << kOffsetBits) | static_cast<Ticks>(offset + kOffsetBias),
                           std::memory_order_relaxed);
    return offset;
}

SYSTEMTIME LocalNow()
{
    FILETIME utc;
    GetSystemTimeAsFileTime(&utc);
    const Ticks ticks = ToTicks(utc) + static_cast<Ticks>(OffsetInMinutes(utc) * kTicksOfAMinute);
    const FILETIME local = {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
    SYSTEMTIME time{};
    FileTimeToSystemTime(&local, &time);
    return time;
}

char* Put(char* position, unsigned int number, int digits, char next)
{
    for (int i = digits - 1; i >= 0; --i)
    {
        position[i] = static_cast<char>('0' + number % 10);
        number /= 10;
    }
    position[digits] = next;
    return position + digits + 1;
}

} // namespace

LocalTimeStamp::LocalTimeStamp() : LocalTimeStamp(LocalNow())
{
}

LocalTimeStamp::LocalTimeStamp(const SYSTEMTIME& time)
{
    char* position = m_text.data();
    position = Put(position, time.wDay, 2, '/');
    position = Put(position, time.wMonth, 2, '/');
    position = Put(position, time.wYear, 4, ' ');
    position = Put(position, time.wHour, 2, ':');
    position = Put(position, time.wMinute, 2, ':');
    position = Put(position, time.wSecond, 2, '.');
    Put(position, time.wMilliseconds / 10, 2, static_cast<char>('0' + time.wMilliseconds % 10));
}

std::string_view LocalTimeStamp::Text() const
{
    return std::string_view(m_text.data(), m_text.size());
}

} // namespace UtilsLib::Platform
