#include <UtilsLib/progress/ScopedSubProgress.h>

#include <algorithm>

namespace UtilsLib
{

ScopedSubProgress::ScopedSubProgress(ProgressHandler& handler, const std::string& subMessage)
    : m_handler(handler),
      m_end(handler.GetProgressEnd()),
      m_current(handler.GetProgressCurrent()),
      m_subMessage(handler.GetSubMessage())
{
    m_handler.UpdateSubMessage(subMessage);
}

ScopedSubProgress::~ScopedSubProgress()
{
    m_handler.UpdateProgressEnd(m_end, ProgressHandler::Absolute);
    m_handler.UpdateProgressCurrent(std::min(m_current, m_end), ProgressHandler::Absolute);
    // Cannot run out of memory: the handler's string has held this text, and gives no memory back when it is assigned
    // to.
    m_handler.UpdateSubMessage(m_subMessage);
}

void ScopedSubProgress::Begin(unsigned long long end)
{
    m_handler.Begin(end, 0);
}

void ScopedSubProgress::UpdateProgressCurrent(unsigned long long value, ProgressHandler::UpdateType type)
{
    m_handler.UpdateProgressCurrent(value, type);
}

} // namespace UtilsLib
