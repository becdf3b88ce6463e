#pragma once

#include <Console.h>

#include <string>

/// The key name of the service that the host installs.
extern const char* const kHostServiceName;

/// Installs the program host_service beside this one as a Windows service that watches the company and logs to
/// `outFolder`, starts it, restarts it, and removes it, also when a step fails. What an earlier run left behind goes
/// first. Without administrator rights it only says that it needs them.
void RunAsService(Console& console, const std::string& company, const std::string& outFolder);
