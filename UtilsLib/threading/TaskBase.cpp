#include <UtilsLib/threading/TaskBase.h>

#include <UtilsLib/threading/ThreadPool.h>

namespace UtilsLib
{

TaskBase::TaskBase() : m_pool(nullptr)
{
}

TaskBase::TaskBase(const TaskBase& other) = default;
TaskBase& TaskBase::operator=(const TaskBase& other) = default;
TaskBase::~TaskBase() = default;

const bool& TaskBase::ShouldShutDown() const
{
    static const bool ms_never = false;
    return m_pool == nullptr ? ms_never : m_pool->m_shuttingDown;
}

} // namespace UtilsLib
