#pragma once

#include <Console.h>

#include <string>

/// Takes a snapshot of the company below `outFolder`, undoes it, and shows that nothing was left and that the company
/// is byte for byte what it was.
void SnapshotCompany(Console& console, const std::string& company, const std::string& outFolder);

/// Compresses the company's largest file into `outFolder` and, as a payload, in memory. Returns the compressed file's
/// path; empty when there is no file.
std::string CompressLargestFile(Console& console, const std::string& company, const std::string& outFolder);
