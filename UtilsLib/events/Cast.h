#pragma once

#include <UtilsLib/Export.h>
#include <UtilsLib/events/eEventScope.h>
#include <UtilsLib/events/eEventState.h>
#include <UtilsLib/events/eEventType.h>
#include <UtilsLib/events/eEventZone.h>

#include <string>

namespace UtilsLib
{

/// Event codes as texts, for storage and exchange, and back. No state; any thread.
class UTILSLIB_API Cast
{
public:
    /// The enumerator's name, "EventScope_DataService"; "Unknown" for every value without one.
    static std::string ToString(eEventScope scope);
    /// The enumerator's name, "EventZone_Drive"; "Unknown" for every value without one: 0, 1 and all beyond the last.
    static std::string ToString(eEventZone zone);
    /// The enumerator's name, "EventType_Lockstep"; "Unknown" for every value without one: 0, 6 to 9 and all beyond
    /// the last.
    static std::string ToString(eEventType type);
    /// The enumerator's name, "EventState_Set"; "Unknown" for every value without one.
    static std::string ToString(eEventState state);

    /// The scope of that name in any letter case ("EventScope_DataService", "eventscope_dataservice"); 0 when the whole
    /// text is none, so also with a blank around it and for "Unknown". Lower-cased by the C library's `tolower`.
    static eEventScope EventScopeFromString(std::string text);
    /// The zone of that name, as `EventScopeFromString`.
    static eEventZone EventZoneFromString(std::string text);
    /// The type of that name, as `EventScopeFromString`.
    static eEventType EventTypeFromString(std::string text);
    /// The state of that name, as `EventScopeFromString`.
    static eEventState EventStateFromString(std::string text);
};

} // namespace UtilsLib
