#include <UtilsLib/threading/Lock.h>

#include <tests/support/Gate.h>

#include <gtest/gtest.h>

#include <cstring>
#include <thread>
#include <type_traits>

using TestSupport::Eventually;
using TestSupport::Gate;
using UtilsLib::Lock;

static_assert(sizeof(Lock) == sizeof(CRITICAL_SECTION), "a lock is its critical section and nothing else");
static_assert(!std::is_copy_constructible_v<Lock> && !std::is_copy_assignable_v<Lock>);
static_assert(std::is_same_v<decltype(std::declval<Lock&>().GetOwningThreadId()), unsigned long>);

TEST(LockTest, IsFreeAfterAsManyReleasesAsAcquires)
{
    Lock lock;
    EXPECT_EQ(lock.GetOwningThreadId(), 0u);
    lock.Acquire();
    lock.Acquire();
    lock.Release();
    EXPECT_EQ(lock.GetOwningThreadId(), GetCurrentThreadId());

    lock.Release();

    EXPECT_EQ(lock.GetOwningThreadId(), 0u);
}

TEST(LockTest, AnotherThreadEntersOnlyAfterTheLastRelease)
{
    Lock lock;
    lock.Acquire();
    lock.Acquire();
    Gate entered;
    Gate leave;
    unsigned long otherId = 0;
    std::thread other([&] {
        otherId = GetCurrentThreadId();
        lock.Acquire();
        entered.Open();
        EXPECT_TRUE(leave.Wait());
        lock.Release();
    });

    lock.Release();
    EXPECT_FALSE(entered.Wait(std::chrono::milliseconds(50)));
    lock.Release();

    EXPECT_TRUE(entered.Wait());
    EXPECT_EQ(lock.GetOwningThreadId(), otherId); // read without taking the lock, which another thread holds
    leave.Open();
    other.join();
    EXPECT_EQ(lock.GetOwningThreadId(), 0u);
}

TEST(LockTest, HasNoSpinCount)
{
    const Lock lock;
    CRITICAL_SECTION section;
    std::memcpy(&section, &lock, sizeof(section));

    EXPECT_EQ(section.SpinCount & 0x00FFFFFFu, 0u); // the upper byte holds flags of the system
}
