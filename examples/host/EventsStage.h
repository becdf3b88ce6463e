#pragma once

#include <Console.h>

#include <string>

/// Shows the events of a JSON file that the user has not chosen to hide. A sample is made in `outFolder` when there is
/// none; it may be edited for the next run.
void ShowEvents(Console& console, const std::string& outFolder);
