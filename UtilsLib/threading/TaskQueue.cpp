#include <UtilsLib/threading/TaskQueue.h>

#include <climits>

namespace UtilsLib
{

struct TaskQueue::Storage
{
    std::deque<TaskBase*> tasks;
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

TaskQueue::TaskQueue() : m_tasks(nullptr), m_semaphore(nullptr), m_storage(new Storage)
{
    m_tasks = &m_storage->tasks;
    InitializeCriticalSection(&m_section);
    m_semaphore = CreateSemaphoreA(nullptr, 0, LONG_MAX, nullptr);
}

TaskQueue& TaskQueue::operator=(const TaskQueue& other)
{
    ++other.m_storage->queues;
    ReleaseStorage();
    // kept: the section and the semaphore are copied, not duplicated
    m_section = other.m_section;
    m_tasks = other.m_tasks;
    m_semaphore = other.m_semaphore;
    m_storage = other.m_storage;
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
    if (--m_storage->queues == 0)
    {
        delete m_storage;
    }
}

} // namespace UtilsLib
