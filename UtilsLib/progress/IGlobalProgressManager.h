#pragma once

#include <UtilsLib/Export.h>

namespace UtilsLib
{

class ScopedProgressObserver;

/// The host's place where progress is shown. `ScopedProgressObserver` calls it, on the thread that owns the observer;
/// when it looks at the views, and on which thread, is the host's affair.
class UTILSLIB_API IGlobalProgressManager
{
public:
    /// `observer` exists from now on, until `RemoveObserver`. It is told from within its constructor.
    virtual void AddObserver(ScopedProgressObserver& observer) = 0;
    /// Show `observer`'s view now.
    virtual void UpdateObserver(ScopedProgressObserver& observer) = 0;
    /// `observer` and its view may be gone after the call: nothing may look at them any more. It is told from within
    /// its destructor; an exception is dropped.
    virtual void RemoveObserver(ScopedProgressObserver& observer) = 0;

protected:
    ~IGlobalProgressManager() = default; // nobody deletes a manager through this interface
};

} // namespace UtilsLib
