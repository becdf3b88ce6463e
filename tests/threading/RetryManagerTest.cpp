#include <UtilsLib/threading/RetryManager.h>

#include <UtilsLib/WindowsTypes.h>
#include <UtilsLib/time/TimeService.h>
#include <tests/support/FieldsOf.h>
#include <tests/support/ImportPatch.h>

#include <gtest/gtest.h>

#include <chrono>
#include <climits>
#include <utility>
#include <vector>

using TestSupport::ImportPatch;

namespace
{

struct RetryFields
{
    unsigned long long startTick;
    int tryCount;
    unsigned int timeLimit;
    unsigned int tryLimit;
    unsigned int retryDelay;
};
static_assert(sizeof(RetryFields) == sizeof(RetryManager));

const RetryFields& FieldsOf(const RetryManager& retry)
{
    return TestSupport::FieldsOf<RetryFields>(retry);
}

unsigned long long ms_tick = 0;
std::vector<DWORD> ms_sleeps;

ULONGLONG WINAPI TickOfTheTest()
{
    return ms_tick;
}

void WINAPI RecordedSleep(DWORD milliseconds)
{
    ms_sleeps.push_back(milliseconds);
}

/// Puts the defaults of the process back.
class RetryManagerTest : public testing::Test
{
protected:
    RetryManagerTest() = default;
    ~RetryManagerTest() override
    {
        RetryManager::SetDefaultTimeLimit(300'000);
        RetryManager::SetDefaultTryLimit(10);
        RetryManager::SetDefaultRetryDelay(500);
    }
};

/// The system's tick count is what the test says.
class RetryManagerTickTest : public RetryManagerTest
{
protected:
    RetryManagerTickTest()
    {
        ms_tick = 0;
    }

    const ImportPatch m_tick{"KERNEL32.dll", "GetTickCount64", &TickOfTheTest};
};

void Increment(RetryManager& retry, int times)
{
    for (int i = 0; i < times; ++i)
    {
        retry.IncrementTryCount();
    }
}

} // namespace

TEST_F(RetryManagerTest, FieldsStandInTheirOrderAndStartWithTheDefaults)
{
    const unsigned long long before = GetTickCount64();
    const RetryManager retry;
    const unsigned long long after = GetTickCount64();

    EXPECT_GE(FieldsOf(retry).startTick, before);
    EXPECT_LE(FieldsOf(retry).startTick, after);
    EXPECT_EQ(FieldsOf(retry).tryCount, 0);
    EXPECT_EQ(FieldsOf(retry).timeLimit, 300'000u);
    EXPECT_EQ(FieldsOf(retry).tryLimit, 10u);
    EXPECT_EQ(FieldsOf(retry).retryDelay, 500u);
}

TEST_F(RetryManagerTest, TenthAttemptIsTheLastByDefault)
{
    RetryManager retry;
    for (int tries = 0; tries < 10; ++tries)
    {
        EXPECT_EQ(retry.GetRetryCount(), tries);
        EXPECT_TRUE(retry.CanRetry()) << tries;
        retry.IncrementTryCount();
    }

    EXPECT_EQ(retry.GetRetryCount(), 10);
    EXPECT_FALSE(retry.CanRetry());
}

TEST_F(RetryManagerTest, TimeThatReallyPassesForbidsARetry)
{
    RetryManager retry;
    retry.SetTimeLimit(1);
    retry.SetTryLimit(0);
    Sleep(20);

    EXPECT_FALSE(retry.CanRetry());
}

TEST_F(RetryManagerTest, SettersChangeOnlyTheirValueOfTheirObject)
{
    RetryManager retry;
    const RetryManager other;

    retry.SetTimeLimit(1);
    retry.SetTryLimit(2);
    retry.SetRetryDelay(3);

    EXPECT_EQ(FieldsOf(retry).timeLimit, 1u);
    EXPECT_EQ(FieldsOf(retry).tryLimit, 2u);
    EXPECT_EQ(FieldsOf(retry).retryDelay, 3u);
    EXPECT_EQ(FieldsOf(other).timeLimit, 300'000u);
    EXPECT_EQ(FieldsOf(other).tryLimit, 10u);
    EXPECT_EQ(FieldsOf(other).retryDelay, 500u);
    EXPECT_EQ(FieldsOf(RetryManager()).timeLimit, 300'000u);
}

TEST_F(RetryManagerTest, DefaultsCountForObjectsMadeAfterwards)
{
    const RetryManager before;

    RetryManager::SetDefaultTimeLimit(0xFFFFFFFE);
    RetryManager::SetDefaultTryLimit(7);
    RetryManager::SetDefaultRetryDelay(8);
    const RetryManager after;

    EXPECT_EQ(FieldsOf(after).timeLimit, 0xFFFFFFFEu);
    EXPECT_EQ(FieldsOf(after).tryLimit, 7u);
    EXPECT_EQ(FieldsOf(after).retryDelay, 8u);
    EXPECT_EQ(FieldsOf(before).timeLimit, 300'000u);
    EXPECT_EQ(FieldsOf(before).tryLimit, 10u);
    EXPECT_EQ(FieldsOf(before).retryDelay, 500u);
}

TEST_F(RetryManagerTest, CopiesCountOnTheirOwn)
{
    RetryManager retry;
    retry.IncrementTryCount();
    RetryManager copy = retry;
    copy.IncrementTryCount();

    EXPECT_EQ(retry.GetRetryCount(), 1);
    EXPECT_EQ(copy.GetRetryCount(), 2);
    EXPECT_EQ(FieldsOf(copy).startTick, FieldsOf(retry).startTick);
}

TEST_F(RetryManagerTest, WaitSleepsByTheSystemAndNotByTheTimeService)
{
    int mocked = 0;
    UtilsLib::TimeService::GetMock().SetSleepCallback([&mocked](unsigned long long) { ++mocked; });
    UtilsLib::TimeService::EnableMock(true);
    const ImportPatch sleep("KERNEL32.dll", "Sleep", &RecordedSleep);
    RetryManager retry;

    retry.WaitForNextRetry();
    retry.SetRetryDelay(0);
    retry.WaitForNextRetry();
    retry.SetRetryDelay(0xFFFFFFFF);
    retry.WaitForNextRetry();

    EXPECT_EQ(ms_sleeps, (std::vector<DWORD>{500, 0, 0xFFFFFFFF}));
    EXPECT_EQ(mocked, 0);
    UtilsLib::TimeService::EnableMock(false);
    UtilsLib::TimeService::GetMock().SetSleepCallback({});
}

TEST_F(RetryManagerTest, WaitTakesAsLongAsTheDelay)
{
    RetryManager retry;
    retry.SetRetryDelay(60);
    const auto start = std::chrono::steady_clock::now();

    retry.WaitForNextRetry();

    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(55));
    EXPECT_EQ(retry.GetRetryCount(), 0);
}

TEST_F(RetryManagerTickTest, ReachingTheTimeLimitExactlyForbidsARetry)
{
    ms_tick = 1000;
    RetryManager retry;
    retry.SetTimeLimit(50);

    for (const auto& [tick, allowed] : {std::pair{1000u, true}, {1049u, true}, {1050u, false}, {1051u, false}})
    {
        ms_tick = tick;
        EXPECT_EQ(retry.CanRetry(), allowed) << tick;
    }
}

TEST_F(RetryManagerTickTest, TimeIsCountedIn64Bits)
{
    ms_tick = 0xFFFFFFF0;
    RetryManager retry;
    retry.SetTimeLimit(0xFFFFFFFF);

    ms_tick = 0x1'FFFF'FFEE;
    EXPECT_TRUE(retry.CanRetry());
    ms_tick = 0x1'FFFF'FFEF;
    EXPECT_FALSE(retry.CanRetry());
    EXPECT_EQ(FieldsOf(retry).startTick, 0xFFFFFFF0u);
}

TEST_F(RetryManagerTickTest, TimeLimitOf0IsNone)
{
    ms_tick = 5;
    RetryManager retry;
    retry.SetTimeLimit(0);

    ms_tick = ULLONG_MAX;
    EXPECT_TRUE(retry.CanRetry());
    Increment(retry, 10);
    EXPECT_FALSE(retry.CanRetry()); // the other limit holds
}

TEST_F(RetryManagerTickTest, TryLimitOf0IsNone)
{
    ms_tick = 5;
    RetryManager retry;
    retry.SetTryLimit(0);
    Increment(retry, 1000);

    EXPECT_TRUE(retry.CanRetry());
    ms_tick = 300'005;
    EXPECT_FALSE(retry.CanRetry()); // the other limit holds
}

TEST_F(RetryManagerTickTest, WithoutLimitsARetryIsAlwaysAllowed)
{
    RetryManager retry;
    retry.SetTimeLimit(0);
    retry.SetTryLimit(0);
    Increment(retry, 1000);
    ms_tick = ULLONG_MAX;

    EXPECT_TRUE(retry.CanRetry());
}

TEST_F(RetryManagerTickTest, CountPassesTheEndOfTheNumbersAndIsComparedWithoutSign)
{
    RetryManager retry;
    auto& count = const_cast<int&>(FieldsOf(retry).tryCount);
    count = INT_MAX;
    retry.SetTryLimit(0x80000000);
    EXPECT_TRUE(retry.CanRetry());

    retry.IncrementTryCount();

    EXPECT_EQ(retry.GetRetryCount(), INT_MIN);
    EXPECT_FALSE(retry.CanRetry()); // not less than the limit, although negative
    retry.SetTryLimit(0x80000001);
    EXPECT_TRUE(retry.CanRetry());
    retry.SetTryLimit(UINT_MAX);
    count = -2;
    EXPECT_TRUE(retry.CanRetry());
    count = -1;
    EXPECT_FALSE(retry.CanRetry());
}
