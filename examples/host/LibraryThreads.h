#pragma once

#include <string>

/// The library's life inside a host, in the order that it asks for.

/// Path and registry key first, then the threads. From here on the log file is written every 300 ms.
void StartLogging(const std::string& logPath);
/// The settings thread first, the logger last: it writes what all others still had to say.
void StopLogging();
