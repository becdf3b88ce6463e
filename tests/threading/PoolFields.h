#pragma once

#include <UtilsLib/WindowsTypes.h>
#include <UtilsLib/threading/TaskQueue.h>
#include <UtilsLib/threading/ThreadPool.h>
#include <tests/support/FieldsOf.h>

#include <deque>
#include <string>
#include <vector>

/// What the queue and the pool keep to themselves, as hosts of long standing know it.
namespace ThreadingTests
{

struct QueueFields
{
    CRITICAL_SECTION section;
    std::deque<UtilsLib::TaskBase*>* tasks;
    HANDLE semaphore;
};

struct PoolFields
{
    std::vector<HANDLE> workers;
    std::string name;
    UtilsLib::TaskQueue* queue;
    CRITICAL_SECTION lock;
    bool shuttingDown;
};

inline const QueueFields& FieldsOf(const UtilsLib::TaskQueue& queue)
{
    return TestSupport::FieldsOf<QueueFields>(queue);
}

inline const PoolFields& FieldsOf(const UtilsLib::ThreadPool& pool)
{
    return TestSupport::FieldsOf<PoolFields>(pool);
}

/// Takes all wake-ups that are owed, and says how many there were.
inline int TakeWakeUps(const UtilsLib::TaskQueue& queue)
{
    int count = 0;
    while (WaitForSingleObject(FieldsOf(queue).semaphore, 0) == WAIT_OBJECT_0)
    {
        ++count;
    }
    return count;
}

} // namespace ThreadingTests
