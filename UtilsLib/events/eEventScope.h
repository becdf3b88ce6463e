#pragma once

#include <cstdint>

namespace UtilsLib
{

/// Which program raised an event. The numbers are stored and exchanged: they never change.
enum eEventScope : std::int32_t
{
    EventScope_None = 0, ///< none or unknown; has no text form
    EventScope_DataService = 1
};

} // namespace UtilsLib
