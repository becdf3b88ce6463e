#pragma once

#include <CompanyFolder.h>
#include <Console.h>
#include <Job.h>
#include <ProductSwitches.h>

#include <string>
#include <vector>

/// Logs every file of the company: a line at information level, its detail at debug level, and a line of file
/// input/output tracing. The last two are filtered out unless they are switched on.
void LogCompany(Console& console, const std::vector<CompanyFile>& files);

/// Switches verbose and file input/output logging on in the registry and shows when the running process follows.
void SwitchDetailOn(Console& console, Job& job, ProductSwitches& switches);

/// What a service's health check sees of the library's threads.
void ShowThreads(Console& console);

/// The end of the log file.
void ShowLastLines(Console& console, const std::string& logPath, std::size_t count);
