#include <UtilsLib/threading/TaskQueue.h>

#include <climits>

namespace UtilsLib
{

namespace
{

// A type of this file, because GCC would export what the library instantiates with an exported one.
struct Storage
{
    std::deque<TaskBase*> tasks;
};

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

TaskQueue::TaskQueue() : m_tasks(nullptr), m_semaphore(nullptr)
{
    const auto storage = std::make_shared<Storage>();
    m_tasks = &storage->tasks;
    m_storage = storage;
    InitializeCriticalSection(&m_section);
    m_semaphore = CreateSemaphoreA(nullptr, 0, LONG_MAX, nullptr);
}

TaskQueue& TaskQueue::operator=(const TaskQueue& other) = default;

// kept: neither the tasks nor the semaphore nor the critical section end here; a consumer that was woken last may still
// be about to use the latter two
TaskQueue::~TaskQueue() = default;

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

} // namespace UtilsLib
