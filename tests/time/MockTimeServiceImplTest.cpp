#include <UtilsLib/time/MockTimeServiceImpl.h>

#include <UtilsLib/WindowsTypes.h>
#include <tests/support/ImportPatch.h>

#include <gtest/gtest.h>

#include <string>
#include <type_traits>
#include <utility>
#include <vector>

using TestSupport::ImportPatch;
using UtilsLib::ITimeServiceImpl;
using UtilsLib::MockTimeServiceImpl;

static_assert(std::is_base_of_v<ITimeServiceImpl, MockTimeServiceImpl>);

namespace
{

using Calls = std::vector<unsigned long long>;

std::function<void(unsigned long long)> RecordIn(Calls& calls)
{
    return [&calls](unsigned long long milliseconds) { calls.push_back(milliseconds); };
}

std::vector<std::string>* ms_order = nullptr;

DWORD WINAPI RecordedSleepEx(DWORD milliseconds, BOOL alertable)
{
    ms_order->push_back("SleepEx " + std::to_string(milliseconds) + " " + std::to_string(alertable));
    return 0;
}

void WINAPI RecordedSleep(DWORD milliseconds)
{
    ms_order->push_back("Sleep " + std::to_string(milliseconds));
}

bool ms_called = false;

void CALLBACK NoteCall(ULONG_PTR)
{
    ms_called = true;
}

} // namespace

TEST(MockTimeServiceImplTest, BeginsAtZeroWithoutACallback)
{
    MockTimeServiceImpl mock;

    mock.Sleep(30'000);
    mock.SleepEx(30'000, false);

    EXPECT_EQ(mock.GetTime(), 0u);
}

TEST(MockTimeServiceImplTest, SleepCallsTheCallbackAndNothingElse)
{
    std::vector<std::string> order;
    ms_order = &order;
    const ImportPatch sleep("KERNEL32.dll", "Sleep", &RecordedSleep);
    const ImportPatch sleepEx("KERNEL32.dll", "SleepEx", &RecordedSleepEx);
    Calls calls;
    MockTimeServiceImpl mock;
    mock.SetTime(7);
    mock.SetSleepCallback(RecordIn(calls));

    const MockTimeServiceImpl& constant = mock; // a const operation
    constant.Sleep(0);
    constant.Sleep(4'294'967'295u);

    EXPECT_EQ(calls, (Calls{0, 4'294'967'295u}));
    EXPECT_EQ(mock.GetTime(), 7u); // sleeping does not advance it
    EXPECT_TRUE(order.empty());
}

TEST(MockTimeServiceImplTest, SleepExCallsTheCallbackThenSleepsZeroAlertablyAsAsked)
{
    std::vector<std::string> order;
    ms_order = &order;
    const ImportPatch sleepEx("KERNEL32.dll", "SleepEx", &RecordedSleepEx);
    MockTimeServiceImpl mock;
    mock.SetSleepCallback(
        [&](unsigned long long milliseconds) { order.push_back("callback " + std::to_string(milliseconds)); });

    mock.SleepEx(500, true);
    mock.SleepEx(600, false);
    mock.SetSleepCallback({});
    mock.SleepEx(700, true);

    EXPECT_EQ(order,
              (std::vector<std::string>{"callback 500", "SleepEx 0 1", "callback 600", "SleepEx 0 0", "SleepEx 0 1"}));
}

TEST(MockTimeServiceImplTest, QueuedCallsRunInAnAlertableSleepOnly)
{
    MockTimeServiceImpl mock;
    QueueUserAPC(&NoteCall, GetCurrentThread(), 0);

    mock.Sleep(100);
    mock.SleepEx(100, false);
    EXPECT_FALSE(ms_called);
    mock.SleepEx(100, true);

    EXPECT_TRUE(ms_called);
}

TEST(MockTimeServiceImplTest, IncTimeAddsAndWrapsRoundAt64Bits)
{
    MockTimeServiceImpl mock;
    mock.SetTime(100);
    mock.IncTime(5);
    EXPECT_EQ(mock.GetTime(), 105u);

    mock.SetTime(0xFFFFFFFFFFFFFFFF);
    EXPECT_EQ(mock.GetTime(), 0xFFFFFFFFFFFFFFFF);
    mock.IncTime(3);

    EXPECT_EQ(mock.GetTime(), 2u);
}

TEST(MockTimeServiceImplTest, CallbackMayAdvanceTheTimeAndIsReplacedWhole)
{
    Calls calls;
    MockTimeServiceImpl mock;
    mock.SetSleepCallback([&](unsigned long long milliseconds) { mock.IncTime(milliseconds / 1000); });
    mock.Sleep(3000);
    EXPECT_EQ(mock.GetTime(), 3u);

    mock.SetSleepCallback(RecordIn(calls));
    mock.Sleep(1000);

    EXPECT_EQ(mock.GetTime(), 3u);
    EXPECT_EQ(calls, Calls{1000});
}

TEST(MockTimeServiceImplTest, CopiesAndMovesTakeBothFields)
{
    Calls calls;
    MockTimeServiceImpl mock;
    mock.SetTime(42);
    mock.SetSleepCallback(RecordIn(calls));

    const MockTimeServiceImpl copy(mock);
    MockTimeServiceImpl assigned;
    assigned = mock;
    const MockTimeServiceImpl moved(std::move(mock));
    MockTimeServiceImpl moveAssigned;
    moveAssigned = std::move(assigned);

    unsigned int expected = 0;
    for (const MockTimeServiceImpl* each : {&copy, &moved, static_cast<const MockTimeServiceImpl*>(&moveAssigned)})
    {
        EXPECT_EQ(each->GetTime(), 42u);
        each->Sleep(++expected);
        EXPECT_EQ(calls.size(), expected);
    }
}
