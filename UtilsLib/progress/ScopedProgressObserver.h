#pragma once

#include <UtilsLib/Export.h>
#include <UtilsLib/progress/IGlobalProgressManager.h>
#include <UtilsLib/progress/IProgressView.h>

namespace UtilsLib
{

/// Shows a view at the host's progress manager for the length of a scope. Takes no lock. Not copied; belongs to the
/// thread that made it.
class UTILSLIB_API ScopedProgressObserver
{
public:
    /// Adds itself to `manager`. `observerId` tells observers apart and is the host's choice. `manager` and `view` must
    /// outlive the object. What the manager throws reaches the caller; it is not asked to remove the observer then.
    ScopedProgressObserver(IGlobalProgressManager& manager, unsigned long long observerId, const IProgressView& view);
    /// Removes itself from the manager.
    ~ScopedProgressObserver();
    ScopedProgressObserver(const ScopedProgressObserver&) = delete;
    ScopedProgressObserver& operator=(const ScopedProgressObserver&) = delete;

    /// Has the manager show the view at once. What the manager throws reaches the caller.
    void ForceUpdate();
    /// As given to the constructor.
    unsigned long long GetObserverId() const;
    /// As given to the constructor.
    const IProgressView& GetProgressView() const;

private:
    unsigned long long m_observerId;
    const IProgressView& m_view;
    IGlobalProgressManager& m_manager;
};

} // namespace UtilsLib
