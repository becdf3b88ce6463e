#pragma once

#include <UtilsLib/Export.h>

namespace UtilsLib
{

/// Facts about the machine. Any thread; there is no state.
class UTILSLIB_API System
{
public:
    /// Whole seconds since the machine was started, counted on past 49.7 days. Negative after 68 years.
    static int GetMachineUptimeSeconds();
};

} // namespace UtilsLib
