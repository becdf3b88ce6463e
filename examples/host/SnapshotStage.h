#pragma once

#include <Console.h>
#include <Job.h>

#include <string>

/// Takes a snapshot of the company below `outFolder`, undoes it, and shows that nothing was left and that the company
/// is byte for byte what it was.
void SnapshotCompany(Console& console, Job& job, const std::string& company, const std::string& outFolder);
