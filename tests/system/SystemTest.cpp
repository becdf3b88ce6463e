#include <UtilsLib/system/System.h>

#include <tests/support/ImportPatch.h>

#include <gtest/gtest.h>

#include <limits>
#include <type_traits>

using TestSupport::ImportPatch;
using UtilsLib::System;

namespace
{

ULONGLONG g_ticks = 0;

ULONGLONG WINAPI GivenTicks()
{
    return g_ticks;
}

int UptimeAtTicks(ULONGLONG ticks)
{
    const ImportPatch clock("KERNEL32.dll", "GetTickCount64", &GivenTicks);
    g_ticks = ticks;
    return System::GetMachineUptimeSeconds();
}

} // namespace

TEST(SystemTest, UptimeIsThatOfTheMachineInSeconds)
{
    static_assert(std::is_same_v<decltype(System::GetMachineUptimeSeconds()), int>);

    const ULONGLONG before = GetTickCount64() / 1000;
    const int uptime = System::GetMachineUptimeSeconds();
    const ULONGLONG after = GetTickCount64() / 1000;

    EXPECT_GE(uptime, static_cast<int>(before));
    EXPECT_LE(uptime, static_cast<int>(after));
}

TEST(SystemTest, UptimeCountsWholeSeconds)
{
    EXPECT_EQ(UptimeAtTicks(0), 0);
    EXPECT_EQ(UptimeAtTicks(999), 0);
    EXPECT_EQ(UptimeAtTicks(1000), 1);
    EXPECT_EQ(UptimeAtTicks(86'399'999), 86'399);
}

TEST(SystemTest, UptimeCountsOnPastThe32BitsOfMilliseconds)
{
    EXPECT_EQ(UptimeAtTicks(0xFFFF'FFFF), 4'294'967);
    EXPECT_EQ(UptimeAtTicks(0x1'0000'0000), 4'294'967);
    EXPECT_EQ(UptimeAtTicks(0x1'0000'0000 + 1000), 4'294'968);
    EXPECT_EQ(UptimeAtTicks(400ULL * 86'400'000), 400 * 86'400);
}

TEST(SystemTest, UptimeGetsNegativeAfter68Years)
{
    EXPECT_EQ(UptimeAtTicks(2'147'483'647'999), std::numeric_limits<int>::max());
    EXPECT_EQ(UptimeAtTicks(2'147'483'648'000), std::numeric_limits<int>::min());
    EXPECT_EQ(UptimeAtTicks(4'294'967'295'000), -1);
}
