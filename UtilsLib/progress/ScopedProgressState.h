#pragma once

#include <UtilsLib/Export.h>
#include <UtilsLib/progress/ProgressHandlerContainer.h>

namespace UtilsLib
{

/// Makes a stage the active one of a container for the length of a scope:
///
///     ScopedProgressState copying(job, kCopying);
///
/// At the scope's end the stage that was active before is active again, unless somebody has made another one active
/// meanwhile: that one stays. Beginning and end each take the container's lock for a moment; it is not held between.
class UTILSLIB_API ScopedProgressState
{
public:
    /// `container` must outlive the object. `id` need not be known to it.
    ScopedProgressState(ProgressHandlerContainer& container, unsigned int id);
    ~ScopedProgressState();
    ScopedProgressState(const ScopedProgressState&) = delete;
    ScopedProgressState& operator=(const ScopedProgressState&) = delete;

private:
    unsigned int m_previousId;
    unsigned int m_id;
    ProgressHandlerContainer& m_container;
};

} // namespace UtilsLib
