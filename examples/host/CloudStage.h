#pragma once

#include <Console.h>

#include <string>

/// Shows the cloud server that the suite talks to from here and, by the lines of the log, why. Without a service
/// configuration on this machine a sample is installed for the stage and removed again; one that is there stays as it
/// is.
void ShowCloudServer(Console& console, const std::string& logPath);

/// The drives of this machine: network drives with where they lead.
void ShowDrives(Console& console);
