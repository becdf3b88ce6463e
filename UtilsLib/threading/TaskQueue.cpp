#include <UtilsLib/threading/TaskQueue.h>

#include <climits>

namespace UtilsLib
{

/// The container, and how many queues share it since one was assigned to another.
struct TaskQueue::Storage : std::deque<TaskBase*>
{
    unsigned int queues = 1;
};

namespace
{

class SectionHold
{
public:
    explicit SectionHold(CRITICAL_SECTION& section) : m_section(section)
    {
        EnterCriticalSection(&m_section);
    }
    ~SectionHold()
    {
        LeaveCriticalSection(&m_section);
    }
    SectionHold(const SectionHold&) = delete;
    SectionHold& operator=(const SectionHold&) = delete;

private:
    CRITICAL_SECTION& m_section;
};

} // namespace

TaskQueue::TaskQueue() : m_tasks(new Storage), m_semaphore(CreateSemaphoreA(nullptr, 0, LONG_MAX, nullptr))
{
    InitializeCriticalSection(&m_section);
}

TaskQueue& TaskQueue::operator=(const TaskQueue& other)
{
    if (this != &other)
    {
        ++static_cast<Storage*>(other.m_tasks)->queues; // first, because the two may share it already
        ReleaseStorage();
        // kept: the section and the semaphore are copied, not duplicated
        m_section = other.m_section;
        m_tasks = other.m_tasks;
        m_semaphore = other.m_semaphore;
    }
    return *this;
}

TaskQueue::~TaskQueue()
{
    // kept: neither the tasks nor the semaphore nor the section end here
    ReleaseStorage();
}

void TaskQueue::Push(TaskBase* task)
{
    {
        const SectionHold hold(m_section);
        m_tasks->push_front(task);
    }
    Signal(); // outside, so that the consumer does not wake only to wait for the lock
}

bool TaskQueue::Pop(TaskBase** task, unsigned int timeoutMs)
{
    *task = nullptr;
    if (WaitForSingleObject(m_semaphore, timeoutMs) != WAIT_OBJECT_0)
    {
        return false;
    }
    const SectionHold hold(m_section);
    if (!m_tasks->empty())
    {
        *task = m_tasks->back();
        m_tasks->pop_back();
    }
    return true; // kept: also without a task
}

void TaskQueue::Signal()
{
    ReleaseSemaphore(m_semaphore, 1, nullptr);
}

void TaskQueue::ReleaseStorage()
{
    auto* const storage = static_cast<Storage*>(m_tasks);
    if (--storage->queues == 0)
    {
        delete storage;
    }
}

} // namespace UtilsLib
