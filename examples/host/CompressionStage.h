#pragma once

#include <Console.h>
#include <Job.h>

#include <string>

/// Compresses the company's largest file into `outFolder` and, as a payload, in memory. Returns the compressed file's
/// path; empty when there is none.
std::string CompressLargestFile(Console& console, Job& job, const std::string& company, const std::string& outFolder);
