#include <UtilsLib/progress/ProgressHandlerContainer.h>

#include <UtilsLib/threading/ScopedLock.h>

#include <utility>

namespace UtilsLib
{

namespace
{

constexpr unsigned int kNoStage = 0xFFFFFFFF;

/// The description of every container's default handler. In a function, so that a container may be a static of any
/// module.
const Progress::Data& DefaultData()
{
    static const Progress::Data data;
    return data;
}

} // namespace

ProgressHandlerContainer::ProgressHandlerContainer(const ProgressHandlerData* stages, unsigned int count)
    : m_default(DefaultData()), m_activeId(kNoStage)
{
    for (unsigned int i = 0; stages != nullptr && i < count; ++i)
    {
        m_handlers.insert_or_assign(stages[i].id, std::make_shared<ProgressHandler>(stages[i].data));
    }
}

ProgressHandlerContainer::~ProgressHandlerContainer() = default;

ProgressHandler& ProgressHandlerContainer::GetProgressHandler(unsigned int id)
{
    const ScopedLock hold(m_lock);
    const auto found = m_handlers.find(id);
    return found == m_handlers.end() ? m_default : *found->second;
}

ProgressHandler& ProgressHandlerContainer::GetActiveProgressHandler()
{
    const ScopedLock hold(m_lock);
    return GetProgressHandler(m_activeId);
}

unsigned int ProgressHandlerContainer::GetActiveProgressHandlerId() const
{
    const ScopedLock hold(m_lock);
    return m_activeId;
}

void ProgressHandlerContainer::SetActiveProgressHandler(unsigned int id)
{
    const ScopedLock hold(m_lock);
    m_activeId = id;
}

void ProgressHandlerContainer::ResetActiveProgressHandler()
{
    const ScopedLock hold(m_lock);
    SetActiveProgressHandler(kNoStage); // kept: it takes the lock a second time
}

bool ProgressHandlerContainer::IsValid() const
{
    const ScopedLock hold(m_lock);
    return m_activeId != kNoStage && ActiveView().IsValid();
}

unsigned long long ProgressHandlerContainer::GetProgressEnd() const
{
    const ScopedLock hold(m_lock);
    return m_activeId == kNoStage ? 0 : ActiveView().GetProgressEnd();
}

unsigned long long ProgressHandlerContainer::GetProgressCurrent() const
{
    const ScopedLock hold(m_lock);
    return m_activeId == kNoStage ? 0 : ActiveView().GetProgressCurrent();
}

const Progress::Data& ProgressHandlerContainer::GetData() const
{
    const ScopedLock hold(m_lock);
    return ActiveView().GetData();
}

std::string ProgressHandlerContainer::GetSubMessage()
{
    const ScopedLock hold(m_lock);
    return GetActiveProgressHandler().GetSubMessage();
}

// Both look and change under one hold of the lock: a switch by another thread in between would be lost.

unsigned int ProgressHandlerContainer::ExchangeActiveId(unsigned int id)
{
    const ScopedLock hold(m_lock);
    return std::exchange(m_activeId, id);
}

void ProgressHandlerContainer::ReplaceActiveId(unsigned int expected, unsigned int id)
{
    const ScopedLock hold(m_lock);
    if (m_activeId == expected)
    {
        m_activeId = id;
    }
}

const ProgressHandler& ProgressHandlerContainer::ActiveView() const
{
    const ScopedLock hold(m_lock);
    const auto found = m_handlers.find(m_activeId);
    return found == m_handlers.end() ? m_default : *found->second;
}

} // namespace UtilsLib
