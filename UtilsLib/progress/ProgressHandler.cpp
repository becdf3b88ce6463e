#include <UtilsLib/progress/ProgressHandler.h>

#include <UtilsLib/threading/ScopedLock.h>

#include <algorithm>
#include <limits>

namespace UtilsLib
{

namespace
{

void Update(unsigned long long& count, unsigned long long value, ProgressHandler::UpdateType type)
{
    if (type == ProgressHandler::Absolute)
    {
        count = value;
    }
    else if (type == ProgressHandler::Relative)
    {
        count += value;
        if (count < value) // the sum has passed 64 bits
        {
            count = std::numeric_limits<unsigned long long>::max();
        }
    }
}

} // namespace

ProgressHandler::ProgressHandler(const Progress::Data& data) : m_data(data)
{
}

ProgressHandler::~ProgressHandler() = default;

void ProgressHandler::Begin(unsigned long long end, unsigned long long current)
{
    const ScopedLock hold(m_lock);
    m_end = end;
    m_current = current;
}

void ProgressHandler::Reset()
{
    const ScopedLock hold(m_lock);
    m_end = 0;
    m_current = 0;
}

void ProgressHandler::UpdateProgressEnd(unsigned long long value, UpdateType type)
{
    const ScopedLock hold(m_lock);
    Update(m_end, value, type); // kept: the current count may be past the end now
}

void ProgressHandler::UpdateProgressCurrent(unsigned long long value, UpdateType type)
{
    const ScopedLock hold(m_lock);
    Update(m_current, value, type);
    m_current = std::min(m_current, m_end); // kept: also when the type is neither of the two
}

void ProgressHandler::UpdateSubMessage(const std::string& message)
{
    const ScopedLock hold(m_lock);
    if (&message != &m_subMessage)
    {
        m_subMessage = message;
    }
}

bool ProgressHandler::IsValid() const
{
    const ScopedLock hold(m_lock);
    return m_end != 0;
}

bool ProgressHandler::AppearsComplete() const
{
    const ScopedLock hold(m_lock);
    return m_current == m_end; // kept: 0 of 0 appears complete
}

unsigned long long ProgressHandler::GetProgressEnd() const
{
    const ScopedLock hold(m_lock);
    return m_end;
}

unsigned long long ProgressHandler::GetProgressCurrent() const
{
    const ScopedLock hold(m_lock);
    return m_current;
}

const Progress::Data& ProgressHandler::GetData() const
{
    return m_data;
}

std::string ProgressHandler::GetSubMessage()
{
    const ScopedLock hold(m_lock);
    return m_subMessage;
}

} // namespace UtilsLib
