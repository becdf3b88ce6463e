#include <UtilsLib/platform/LocalTimeStamp.h>

#include <tests/support/ImportPatch.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

using UtilsLib::Platform::LocalTimeStamp;

namespace
{

std::string Printed(const SYSTEMTIME& time)
{
    char text[40];
    std::snprintf(text, sizeof(text), "%02d/%02d/%4d %02d:%02d:%02d.%03d", time.wDay, time.wMonth, time.wYear,
                  time.wHour, time.wMinute, time.wSecond, time.wMilliseconds);
    return text;
}

SYSTEMTIME LocalTime()
{
    SYSTEMTIME time;
    GetLocalTime(&time);
    return time;
}

bool Before(const SYSTEMTIME& left, const SYSTEMTIME& right)
{
    FILETIME leftTime, rightTime;
    SystemTimeToFileTime(&left, &leftTime);
    SystemTimeToFileTime(&right, &rightTime);
    return CompareFileTime(&leftTime, &rightTime) < 0;
}

SYSTEMTIME Parsed(std::string_view text)
{
    SYSTEMTIME time{};
    std::sscanf(std::string(text).c_str(), "%2hu/%2hu/%4hu %2hu:%2hu:%2hu.%3hu", &time.wDay, &time.wMonth, &time.wYear,
                &time.wHour, &time.wMinute, &time.wSecond, &time.wMilliseconds);
    return time;
}

/// The local time of a zone that the user has just chosen: far from any real one.
BOOL WINAPI ToFarZone(const FILETIME* utc, FILETIME* local)
{
    const unsigned long long ticks =
        ((static_cast<unsigned long long>(utc->dwHighDateTime) << 32) | utc->dwLowDateTime) - 20ULL * 3600 * 10'000'000;
    *local = FILETIME{static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
    return TRUE;
}

} // namespace

TEST(LocalTimeStampTest, PrintsEveryFieldWithItsLeadingZeros)
{
    for (const SYSTEMTIME& time : {SYSTEMTIME{2026, 11, 0, 15, 4, 38, 29, 123}, SYSTEMTIME{2026, 1, 0, 2, 3, 4, 5, 6},
                                   SYSTEMTIME{9999, 12, 0, 31, 23, 59, 59, 999},
                                   SYSTEMTIME{1601, 10, 0, 10, 0, 0, 0, 0}, SYSTEMTIME{2000, 9, 0, 9, 10, 20, 30, 90}})
    {
        EXPECT_EQ(LocalTimeStamp(time).Text(), Printed(time));
    }
}

TEST(LocalTimeStampTest, NowIsTheSystemsLocalTimeAlsoWhenTheOffsetIsKnown)
{
    // Longer than the offset is kept.
    for (const unsigned long long end = GetTickCount64() + 250; GetTickCount64() < end;)
    {
        const SYSTEMTIME before = LocalTime();
        const LocalTimeStamp stamp;
        const SYSTEMTIME after = LocalTime();

        const SYSTEMTIME now = Parsed(stamp.Text());
        ASSERT_FALSE(Before(now, before)) << stamp.Text() << " after " << Printed(before);
        ASSERT_FALSE(Before(after, now)) << stamp.Text() << " before " << Printed(after);
        ASSERT_EQ(stamp.Text(), Printed(now));
    }
}

TEST(LocalTimeStampTest, ThreadsThatMeetAtANewTenthGetWholeTexts)
{
    std::atomic<int> wrong = 0;
    std::vector<std::jthread> threads;
    for (int i = 0; i < 4; ++i)
    {
        threads.emplace_back([&wrong] {
            for (const unsigned long long end = GetTickCount64() + 500; GetTickCount64() < end;)
            {
                const SYSTEMTIME before = LocalTime();
                const SYSTEMTIME now = Parsed(LocalTimeStamp().Text());
                wrong += Before(now, before) || Before(LocalTime(), now) ? 1 : 0;
            }
        });
    }
    threads.clear(); // waits for them

    EXPECT_EQ(wrong, 0);
}

TEST(LocalTimeStampTest, AZoneThatTheUserChoosesShowsAfterATenthOfASecond)
{
    constexpr DWORD kUntilAskedAgain = 150;
    const LocalTimeStamp before;
    SYSTEMTIME utc;
    {
        const TestSupport::ImportPatch zone("KERNEL32.dll", "FileTimeToLocalFileTime", &ToFarZone,
                                            "platform_tests.exe");
        Sleep(kUntilAskedAgain);
        GetSystemTime(&utc);
        const LocalTimeStamp after;

        EXPECT_EQ(Parsed(after.Text()).wHour, (utc.wHour + 4) % 24);
        EXPECT_NE(Parsed(before.Text()).wHour, Parsed(after.Text()).wHour);
    }
    Sleep(kUntilAskedAgain); // leaves no far offset to the next test
}
