#include <UtilsLib/time/TimeService.h>

#include <UtilsLib/WindowsTypes.h>

#include <gtest/gtest.h>

#include <atomic>
#include <ctime>
#include <thread>
#include <type_traits>

using UtilsLib::ITimeServiceImpl;
using UtilsLib::MockTimeServiceImpl;
using UtilsLib::TimeService;
using UtilsLib::TimeServiceImpl;

static_assert(std::is_same_v<decltype(TimeService::Get()), ITimeServiceImpl&>);
static_assert(std::is_same_v<decltype(TimeService::GetMock()), MockTimeServiceImpl&>);

namespace
{

/// Leaves the real clock on, and the mock as it was at load.
class TimeServiceTest : public testing::Test
{
protected:
    ~TimeServiceTest() override
    {
        TimeService::EnableMock(false);
        TimeService::GetMock() = MockTimeServiceImpl();
    }
};

} // namespace

TEST_F(TimeServiceTest, BeginsWithTheRealClockAndAMockOfNothing)
{
    EXPECT_FALSE(TimeService::IsMockEnabled());
    EXPECT_NE(dynamic_cast<TimeServiceImpl*>(&TimeService::Get()), nullptr);
    EXPECT_EQ(TimeService::GetMock().GetTime(), 0u);
}

TEST_F(TimeServiceTest, GetGivesTheMockWhileItIsEnabled)
{
    TimeService::GetMock().SetTime(100); // before it is enabled
    TimeService::GetMock().IncTime(5);
    EXPECT_NE(TimeService::Get().GetTime(), 105u);

    TimeService::EnableMock(true);
    EXPECT_TRUE(TimeService::IsMockEnabled());
    EXPECT_EQ(&TimeService::Get(), &TimeService::GetMock());
    EXPECT_EQ(TimeService::Get().GetTime(), 105u);

    TimeService::EnableMock(false);
    EXPECT_FALSE(TimeService::IsMockEnabled());
    EXPECT_GE(TimeService::Get().GetTime() + 60, static_cast<unsigned long long>(std::time(nullptr)));
}

TEST_F(TimeServiceTest, SwitchesBetweenTheSameTwoClocks)
{
    ITimeServiceImpl* const real = &TimeService::Get();
    for (int round = 0; round < 3; ++round)
    {
        TimeService::EnableMock(true);
        EXPECT_EQ(&TimeService::Get(), &TimeService::GetMock());
        TimeService::EnableMock(false);
        EXPECT_EQ(&TimeService::Get(), real);
    }
}

TEST_F(TimeServiceTest, RealSleepsAreBackAtOnceAfterTheMock)
{
    TimeService::EnableMock(true);
    const unsigned long long start = GetTickCount64();
    TimeService::Get().Sleep(30'000); // never blocks
    EXPECT_LT(GetTickCount64() - start, 10'000u);

    TimeService::EnableMock(false);
    const unsigned long long again = GetTickCount64();
    TimeService::Get().Sleep(200);
    EXPECT_GE(GetTickCount64() - again, 100u); // not at once; a coarse clock may miss some of it
}

TEST_F(TimeServiceTest, MaySwitchWhileAnotherThreadReads)
{
    std::atomic<bool> over = false;
    std::thread reader([&] {
        while (!over)
        {
            const ITimeServiceImpl& clock = TimeService::Get();
            EXPECT_TRUE(&clock == &TimeService::GetMock() || clock.GetTime() > 1000);
        }
    });
    for (int round = 0; round < 10'000; ++round)
    {
        TimeService::EnableMock(round % 2 == 0);
    }
    over = true;
    reader.join();
}
