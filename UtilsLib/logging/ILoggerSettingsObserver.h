#pragma once

#include <UtilsLib/Export.h>

#include <map>
#include <string>
#include <vector>

namespace UtilsLib
{

/// A component that follows the logger's settings without being a logger. Owned through shared pointers that know the
/// concrete type: there is no virtual destructor.
class UTILSLIB_API ILoggerSettingsObserver
{
public:
    /// Called after every settings check, changed or not, and when the log file could not be opened: with the logger's
    /// master switch, its mask of levels, and the numbers of the settings that the observer asked for (0 for one that
    /// is not present). On the logger's thread, or the one that makes the logger or calls `SetRegistryKey`, one call at
    /// a time; it must not wait for a thread that calls `SetRegistryKey`. An exception is dropped.
    virtual void SettingsChanged(bool enabled, unsigned long traceLevel,
                                 const std::map<std::string, unsigned long>& settings) = 0;
    /// Names of the watched registry values (see `LiveRegSettings`) that the observer wants to be told of.
    virtual std::vector<std::string> AdditionalSettingsToCheck() = 0;

protected:
    ~ILoggerSettingsObserver() = default;
};

} // namespace UtilsLib
