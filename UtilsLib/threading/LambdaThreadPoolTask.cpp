#include <UtilsLib/threading/LambdaThreadPoolTask.h>

#include <utility>

namespace UtilsLib
{

LambdaThreadPoolTask::LambdaThreadPoolTask(std::function<void()> work) : m_work(std::move(work))
{
}

LambdaThreadPoolTask::LambdaThreadPoolTask(const LambdaThreadPoolTask& other) = default;

// The standard lets a moved-from function keep its work; ours is empty.
LambdaThreadPoolTask::LambdaThreadPoolTask(LambdaThreadPoolTask&& other) noexcept
    : TaskBase(other), m_work(std::exchange(other.m_work, nullptr))
{
}

LambdaThreadPoolTask& LambdaThreadPoolTask::operator=(const LambdaThreadPoolTask& other) = default;

LambdaThreadPoolTask& LambdaThreadPoolTask::operator=(LambdaThreadPoolTask&& other) noexcept
{
    TaskBase::operator=(other);
    // Through a value of its own, so that moving a task onto itself keeps its work.
    std::function<void()> work = std::exchange(other.m_work, nullptr);
    m_work.swap(work);
    return *this;
}

LambdaThreadPoolTask::~LambdaThreadPoolTask() = default;

void LambdaThreadPoolTask::Run()
{
    // kept: a task without work is no error
    if (m_work)
    {
        m_work();
    }
}

} // namespace UtilsLib
