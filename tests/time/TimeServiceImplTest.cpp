#include <UtilsLib/time/TimeServiceImpl.h>

#include <UtilsLib/WindowsTypes.h>
#include <tests/support/ImportPatch.h>
#include <tests/support/SlotOf.h>

#include <gtest/gtest.h>

#include <ctime>
#include <type_traits>

using TestSupport::ImportPatch;
using TestSupport::SlotOf;
using UtilsLib::ITimeServiceImpl;
using UtilsLib::TimeServiceImpl;

static_assert(std::is_abstract_v<ITimeServiceImpl> && std::has_virtual_destructor_v<ITimeServiceImpl>);
static_assert(std::is_base_of_v<ITimeServiceImpl, TimeServiceImpl>);
static_assert(sizeof(TimeServiceImpl) == sizeof(void*), "no data");
static_assert(std::is_same_v<decltype(std::declval<const ITimeServiceImpl&>().GetTime()), unsigned long long>);

namespace
{

DWORD ms_milliseconds = 0;
int ms_alertable = -1;

void WINAPI RecordedSleep(DWORD milliseconds)
{
    ms_milliseconds = milliseconds;
}

DWORD WINAPI RecordedSleepEx(DWORD milliseconds, BOOL alertable)
{
    ms_milliseconds = milliseconds;
    ms_alertable = alertable;
    return 0;
}

bool ms_called = false;

void CALLBACK NoteCall(ULONG_PTR)
{
    ms_called = true;
}

} // namespace

TEST(TimeServiceImplTest, SleepIsTheSystemsPlainSleep)
{
    const ImportPatch sleep("KERNEL32.dll", "Sleep", &RecordedSleep);
    const TimeServiceImpl clock; // a const operation

    clock.Sleep(4'294'967'295u);

    EXPECT_EQ(ms_milliseconds, 4'294'967'295u);
}

TEST(TimeServiceImplTest, SleepExIsTheSystemsAlertableSleep)
{
    const ImportPatch sleep("KERNEL32.dll", "SleepEx", &RecordedSleepEx);
    TimeServiceImpl clock;

    clock.SleepEx(123, true);
    EXPECT_EQ(ms_milliseconds, 123u);
    EXPECT_EQ(ms_alertable, TRUE);

    clock.SleepEx(456, false);
    EXPECT_EQ(ms_milliseconds, 456u);
    EXPECT_EQ(ms_alertable, FALSE);
}

TEST(TimeServiceImplTest, OnlyAnAlertableSleepRunsQueuedCalls)
{
    TimeServiceImpl clock;
    QueueUserAPC(&NoteCall, GetCurrentThread(), 0);

    clock.Sleep(1);
    clock.SleepEx(1, false);
    EXPECT_FALSE(ms_called);
    clock.SleepEx(10'000, true);

    EXPECT_TRUE(ms_called);
}

TEST(TimeServiceImplTest, GetTimeIsTheCalendarTimeInSeconds)
{
    const TimeServiceImpl clock;
    const auto before = static_cast<unsigned long long>(std::time(nullptr));

    const unsigned long long now = clock.GetTime();

    EXPECT_GE(now, before);
    EXPECT_LE(now, static_cast<unsigned long long>(std::time(nullptr)));
}

#if defined(__GNUC__)
TEST(TimeServiceImplTest, SlotsAreSleepSleepExGetTime)
{
    EXPECT_EQ(SlotOf(&ITimeServiceImpl::Sleep), 0u);
    EXPECT_EQ(SlotOf(&ITimeServiceImpl::SleepEx), 1u);
    EXPECT_EQ(SlotOf(&ITimeServiceImpl::GetTime), 2u);
}
#endif
