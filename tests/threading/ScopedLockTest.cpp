#include <UtilsLib/threading/ScopedLock.h>

#include <gtest/gtest.h>

#include <stdexcept>
#include <type_traits>

using UtilsLib::Lock;
using UtilsLib::ScopedLock;

static_assert(sizeof(ScopedLock) == sizeof(Lock*), "a scoped lock is a reference and nothing else");
static_assert(!std::is_copy_constructible_v<ScopedLock> && !std::is_copy_assignable_v<ScopedLock>);

TEST(ScopedLockTest, HoldsTheLockForItsScope)
{
    Lock lock;
    {
        const ScopedLock hold(lock);
        EXPECT_EQ(lock.GetOwningThreadId(), GetCurrentThreadId());
        {
            const ScopedLock again(lock);
        }
        EXPECT_EQ(lock.GetOwningThreadId(), GetCurrentThreadId());
    }

    EXPECT_EQ(lock.GetOwningThreadId(), 0u);
}

TEST(ScopedLockTest, LeavesTheLockWhenAnExceptionLeavesTheScope)
{
    Lock lock;
    try
    {
        const ScopedLock hold(lock);
        EXPECT_EQ(lock.GetOwningThreadId(), GetCurrentThreadId());
        throw std::runtime_error("leave");
    }
    catch (const std::runtime_error&)
    {
    }

    EXPECT_EQ(lock.GetOwningThreadId(), 0u);
}
