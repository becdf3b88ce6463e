#include <UtilsLib/threading/ThreadMonitor.h>

#include <tests/support/Gate.h>

#include <gtest/gtest.h>

#include <functional>
#include <iterator>
#include <map>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

using TestSupport::Gate;
using UtilsLib::Lock;
using UtilsLib::ThreadMonitor;
using UtilsLib::ThreadState;

static_assert(std::is_aggregate_v<ThreadState>);
static_assert(
    std::is_same_v<decltype(std::declval<ThreadMonitor&>().GetThreadStatus()), std::map<unsigned int, ThreadState>>);
static_assert(!std::is_default_constructible_v<ThreadMonitor> && !std::is_copy_constructible_v<ThreadMonitor>);
static_assert(sizeof(ThreadMonitor) == sizeof(std::map<unsigned int, ThreadState>) + sizeof(UtilsLib::Lock));

namespace
{

/// Ids that no thread of the process can have.
constexpr unsigned int kFirst = 0xFFFFFFF1;
constexpr unsigned int kSecond = 0xFFFFFFF2;

ThreadMonitor& Monitor()
{
    return ThreadMonitor::GetInstance();
}

/// The monitor's own lock: it stands behind the register.
Lock& MonitorLock()
{
    return *reinterpret_cast<Lock*>(reinterpret_cast<char*>(&Monitor()) + sizeof(std::map<unsigned int, ThreadState>));
}

class ThreadMonitorTest : public testing::Test
{
protected:
    ~ThreadMonitorTest() override
    {
        Monitor().ThreadStopped(kFirst);
        Monitor().ThreadStopped(kSecond);
    }
};

void ExpectState(const ThreadState& state, const std::string& description, bool started, long long lastCheck)
{
    EXPECT_EQ(state.description, description);
    EXPECT_EQ(state.started, started);
    EXPECT_EQ(state.lastShutdownCheck, lastCheck);
}

} // namespace

TEST_F(ThreadMonitorTest, IsEmptyWhileNoThreadWasStarted)
{
    EXPECT_EQ(&Monitor(), &ThreadMonitor::GetInstance());
    EXPECT_TRUE(Monitor().GetThreadStatus().empty());
}

TEST_F(ThreadMonitorTest, ThreadStartedMakesAnEntryAndSetsOnlyItsMark)
{
    Monitor().ThreadStarted(kFirst);

    ASSERT_EQ(Monitor().GetThreadStatus().size(), 1u);
    ExpectState(Monitor().GetThreadStatus().at(kFirst), "", true, 0);
}

TEST_F(ThreadMonitorTest, SetThreadDescriptionMakesAnEntryAndSetsOnlyItsText)
{
    Monitor().SetThreadDescription(kFirst, "worker");
    ExpectState(Monitor().GetThreadStatus().at(kFirst), "worker", false, 0);

    Monitor().SetThreadDescription(kFirst, "renamed");

    ASSERT_EQ(Monitor().GetThreadStatus().size(), 1u);
    ExpectState(Monitor().GetThreadStatus().at(kFirst), "renamed", false, 0);
}

TEST_F(ThreadMonitorTest, ThreadCheckedShutdownStatusMakesAnEntryAndSetsOnlyItsTick)
{
    Monitor().ThreadCheckedShutdownStatus(kFirst, 0x7FFFFFFFFFFFFFFF);
    ExpectState(Monitor().GetThreadStatus().at(kFirst), "", false, 0x7FFFFFFFFFFFFFFF);

    Monitor().ThreadCheckedShutdownStatus(kFirst, -5);

    ExpectState(Monitor().GetThreadStatus().at(kFirst), "", false, -5);
}

TEST_F(ThreadMonitorTest, EveryOperationLeavesTheOtherFieldsOfItsEntry)
{
    Monitor().SetThreadDescription(kFirst, "worker");
    Monitor().ThreadStarted(kFirst);
    Monitor().ThreadCheckedShutdownStatus(kFirst, 7);
    ExpectState(Monitor().GetThreadStatus().at(kFirst), "worker", true, 7);

    Monitor().SetThreadDescription(kFirst, "again");
    Monitor().ThreadStarted(kFirst);

    ExpectState(Monitor().GetThreadStatus().at(kFirst), "again", true, 7);
}

TEST_F(ThreadMonitorTest, ThreadStoppedRemovesItsEntryAndNoOther)
{
    Monitor().ThreadStarted(kFirst);
    Monitor().SetThreadDescription(kSecond, "stays");

    Monitor().ThreadStopped(kFirst);

    ASSERT_EQ(Monitor().GetThreadStatus().size(), 1u);
    ExpectState(Monitor().GetThreadStatus().at(kSecond), "stays", false, 0);
}

TEST_F(ThreadMonitorTest, ThreadStoppedForAnUnknownIdChangesNothing)
{
    Monitor().SetThreadDescription(kSecond, "stays");

    Monitor().ThreadStopped(kFirst);

    ASSERT_EQ(Monitor().GetThreadStatus().size(), 1u);
    ExpectState(Monitor().GetThreadStatus().at(kSecond), "stays", false, 0);
}

TEST_F(ThreadMonitorTest, AStoppedThreadComesBackAsANewEntry)
{
    Monitor().SetThreadDescription(kFirst, "worker");
    Monitor().ThreadStarted(kFirst);
    Monitor().ThreadStopped(kFirst);

    Monitor().ThreadCheckedShutdownStatus(kFirst, 3);

    ExpectState(Monitor().GetThreadStatus().at(kFirst), "", false, 3);
}

TEST_F(ThreadMonitorTest, SnapshotsAreCopies)
{
    Monitor().SetThreadDescription(kFirst, "worker");
    std::map<unsigned int, ThreadState> snapshot = Monitor().GetThreadStatus();

    snapshot.at(kFirst).description = "changed";
    snapshot.erase(kFirst);
    Monitor().ThreadStarted(kFirst);

    EXPECT_TRUE(snapshot.empty());
    ExpectState(Monitor().GetThreadStatus().at(kFirst), "worker", true, 0);
}

TEST_F(ThreadMonitorTest, EveryOperationOfAnotherThreadWaitsForTheLock)
{
    const std::function<void()> operations[] = {
        [] { Monitor().ThreadStarted(kFirst); },
        [] { Monitor().ThreadStopped(kFirst); },
        [] { Monitor().SetThreadDescription(kFirst, "worker"); },
        [] { Monitor().ThreadCheckedShutdownStatus(kFirst, 1); },
        [] { Monitor().GetThreadStatus(); },
    };
    for (std::size_t i = 0; i < std::size(operations); ++i)
    {
        Gate begun;
        Gate over;
        MonitorLock().Acquire();
        std::thread other([&, i] {
            begun.Open();
            operations[i]();
            over.Open();
        });
        EXPECT_TRUE(begun.Wait());
        EXPECT_FALSE(over.Wait(std::chrono::milliseconds(50))) << i;
        operations[i](); // the holder itself does not wait
        MonitorLock().Release();
        EXPECT_TRUE(over.Wait()) << i;
        other.join();
        EXPECT_EQ(MonitorLock().GetOwningThreadId(), 0u) << i;
    }
}

TEST_F(ThreadMonitorTest, ServesManyThreadsAtOnce)
{
    constexpr unsigned int kThreads = 8;
    constexpr unsigned int kRounds = 2000;
    std::vector<std::thread> threads;
    for (unsigned int i = 0; i < kThreads; ++i)
    {
        threads.emplace_back([id = 0xFFFF0001 + i] {
            for (unsigned int round = 0; round < kRounds; ++round)
            {
                Monitor().SetThreadDescription(id, "a name that does not fit into a short string's own buffer");
                Monitor().ThreadStarted(id);
                Monitor().ThreadCheckedShutdownStatus(id, round);
                EXPECT_EQ(Monitor().GetThreadStatus().at(id).lastShutdownCheck, round);
                Monitor().ThreadStopped(id);
            }
        });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }

    EXPECT_TRUE(Monitor().GetThreadStatus().empty());
}
