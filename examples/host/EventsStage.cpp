#include <EventsStage.h>

#include <UtilsLib/events/Cast.h>
#include <UtilsLib/system/HelperUtils.h>

#include <json/json.h>

#include <filesystem>
#include <fstream>
#include <system_error>
#include <vector>

using UtilsLib::Cast;
using UtilsLib::Event;
using UtilsLib::EventDontShow;
using UtilsLib::HelperUtils;

namespace
{

constexpr const char* kSampleEvents = R"({
  "events": [
    {"scope": "EventScope_DataService", "zone": "EventZone_Drive", "type": "EventType_ConnectionError",
     "state": "EventState_Set", "title": "Drive", "message": "The drive cannot be reached."},
    {"scope": "eventscope_dataservice", "zone": "eventzone_drive", "type": "eventtype_drivedisconnectedduetoinactivity",
     "state": "eventstate_set", "title": "Drive", "message": "The drive was not used for 30 days."},
    {"scope": "EventScope_DataService", "zone": "EventZone_BankCloud", "type": "EventType_BankCloudTokenError",
     "state": "EventState_Set", "title": "Bank", "message": "Please sign in to your bank again."},
    {"scope": "EventScope_DataService", "zone": "EventZone_Drive", "type": "EventType_ConnectionError",
     "state": "EventState_Reset", "title": "Drive", "message": "The drive can be reached again."}
  ],
  "hidden": [
    {"scope": "EventScope_DataService", "zone": "EventZone_Drive", "type": "EventType_DriveDisconnectedDueToInactivity"}
  ]
}
)";

/// What is wrong with the file; empty when `root` is its object.
std::string ReadObject(const std::string& path, Json::Value& root)
{
    std::string problem;
    std::ifstream file(path);
    try
    {
        if (!Json::parseFromStream(Json::CharReaderBuilder(), file, &root, &problem))
        {
            return problem;
        }
    }
    catch (const Json::Exception& error) // such as lists in lists, a thousand deep
    {
        return error.what();
    }
    return root.isObject() ? "" : "it is no object";
}

/// A member's text; empty when it is missing or no text.
std::string Text(const Json::Value& value, const char* name)
{
    const Json::Value member = value.isObject() ? value[name] : Json::Value();
    return member.isString() ? member.asString() : std::string();
}

EventDontShow ReadKind(const Json::Value& value)
{
    return {Cast::EventScopeFromString(Text(value, "scope")), Cast::EventZoneFromString(Text(value, "zone")),
            Cast::EventTypeFromString(Text(value, "type"))};
}

Event ReadEvent(const Json::Value& value)
{
    const auto [scope, zone, type] = ReadKind(value);
    return {scope,
            zone,
            type,
            Cast::EventStateFromString(Text(value, "state")),
            Text(value, "title"),
            Text(value, "message")};
}

void ShowEvent(Console& console, const Event& event)
{
    console.Value(event.title, event.message);
    console.Value("", Cast::ToString(static_cast<UtilsLib::eEventZone>(event.zone)) + ", " +
                          Cast::ToString(static_cast<UtilsLib::eEventType>(event.type)) + ", " +
                          Cast::ToString(static_cast<UtilsLib::eEventState>(event.state)));
}

} // namespace

void ShowEvents(Console& console, const std::string& outFolder)
{
    const std::string path = outFolder + "\\events.json";
    std::error_code error;
    if (!std::filesystem::exists(path, error))
    {
        std::ofstream(path) << kSampleEvents;
    }
    console.Value("events file", path);

    Json::Value root;
    const std::string problem = ReadObject(path, root);
    if (!problem.empty())
    {
        console.Line("It cannot be read: " + problem);
        return;
    }
    std::vector<Event> events;
    for (const Json::Value& value : root["events"])
    {
        events.push_back(ReadEvent(value));
    }
    std::vector<EventDontShow> hidden;
    for (const Json::Value& value : root["hidden"])
    {
        hidden.push_back(ReadKind(value));
    }
    const std::vector<Event> shown = HelperUtils::FilterEvents(events, hidden);
    console.Line(std::to_string(shown.size()) + " of " + std::to_string(events.size()) +
                 " events, the others are hidden:");
    for (const Event& event : shown)
    {
        ShowEvent(console, event);
    }
}
