#pragma once

#include <cstdint>

namespace UtilsLib
{

/// Whether an event begins or ends. The numbers are stored and exchanged: they never change.
enum eEventState : std::int32_t
{
    EventState_None = 0, ///< none or unknown; has no text form
    EventState_Set = 1,
    EventState_Reset = 2
};

} // namespace UtilsLib
