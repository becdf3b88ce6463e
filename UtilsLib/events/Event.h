#pragma once

#include <cstdint>
#include <string>

namespace UtilsLib
{

/// Something that a program tells the user. The library compares the first three codes and gives no field a meaning of
/// its own: the programs that fill them do.
struct Event
{
    std::int32_t scope;  ///< with `zone` and `type`: the kind of event
    std::int32_t zone;   ///< see `scope`
    std::int32_t type;   ///< see `scope`
    std::int32_t state;  ///< set or reset, in the suite's programs
    std::string title;   ///< for the user
    std::string message; ///< for the user
};

/// One kind of event that the user has chosen not to see: the first three codes of `Event`.
struct EventDontShow
{
    std::int32_t scope; ///< as in `Event`
    std::int32_t zone;  ///< as in `Event`
    std::int32_t type;  ///< as in `Event`
};

} // namespace UtilsLib
