#include <UtilsLib/time/Time.h>

#include <gtest/gtest.h>

using UtilsLib::Time;

TEST(TimeTest, MillisecondsStampHasItsFixedForm)
{
    const std::string stamp = Time::GetTimeNowToMilliseconds();
    ASSERT_EQ(stamp.size(), 23u) << stamp;
    EXPECT_EQ(Time::GetTimeNow().size(), 20u) << Time::GetTimeNow();
    EXPECT_EQ(Time::GetDate().size(), 10u) << Time::GetDate();
    EXPECT_EQ(Time::GetDate().substr(0, 4), stamp.substr(6, 4));
}
