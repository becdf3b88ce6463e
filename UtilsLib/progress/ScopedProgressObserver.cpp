#include <UtilsLib/progress/ScopedProgressObserver.h>

namespace UtilsLib
{

ScopedProgressObserver::ScopedProgressObserver(IGlobalProgressManager& manager, unsigned long long observerId,
                                               const IProgressView& view)
    : m_observerId(observerId), m_view(view), m_manager(manager)
{
    m_manager.AddObserver(*this);
}

ScopedProgressObserver::~ScopedProgressObserver()
{
    try
    {
        m_manager.RemoveObserver(*this);
    }
    catch (...)
    {
        // The manager's: there is nobody to hand it to.
    }
}

void ScopedProgressObserver::ForceUpdate()
{
    m_manager.UpdateObserver(*this);
}

unsigned long long ScopedProgressObserver::GetObserverId() const
{
    return m_observerId;
}

const IProgressView& ScopedProgressObserver::GetProgressView() const
{
    return m_view;
}

} // namespace UtilsLib
