#include <UtilsLib/threading/ScopedLock.h>

#include <gtest/gtest.h>

#include <stdexcept>

using UtilsLib::Lock;
using UtilsLib::ScopedLock;

TEST(LockTest, IsFreeAfterAsManyReleasesAsAcquires)
{
    Lock lock;
    lock.Acquire();
    lock.Acquire();
    lock.Release();
    EXPECT_EQ(lock.GetOwningThreadId(), GetCurrentThreadId());

    lock.Release();

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
