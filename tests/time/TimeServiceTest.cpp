#include <UtilsLib/time/TimeService.h>

#include <gtest/gtest.h>

using UtilsLib::TimeService;

TEST(TimeServiceTest, GetGivesTheMockWhileItIsEnabled)
{
    EXPECT_FALSE(TimeService::IsMockEnabled());
    TimeService::GetMock().SetTime(100);
    TimeService::GetMock().IncTime(5);

    TimeService::EnableMock(true);
    EXPECT_EQ(TimeService::Get().GetTime(), 105u);

    TimeService::EnableMock(false);
    EXPECT_GT(TimeService::Get().GetTime(), 1'700'000'000u);
}
