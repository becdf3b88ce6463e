#include <UtilsLib/progress/ScopedProgressState.h>

namespace UtilsLib
{

ScopedProgressState::ScopedProgressState(ProgressHandlerContainer& container, unsigned int id)
    : m_previousId(container.ExchangeActiveId(id)), m_id(id), m_container(container)
{
}

ScopedProgressState::~ScopedProgressState()
{
    m_container.ReplaceActiveId(m_id, m_previousId);
}

} // namespace UtilsLib
