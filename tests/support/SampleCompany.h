#pragma once

#include <tests/support/TempFolder.h>

#include <map>
#include <string>

namespace TestSupport
{

/// Fills `relative` of `root` with a small company as the accounting program leaves one: data, reports, invoices,
/// attachments, settings in the company folder itself; text and binary files, empty, read-only and hidden ones, folders
/// in folders, an empty folder. A company has not every folder: there are no "labels", for example.
void WriteSampleCompany(const TempFolder& root, const std::string& relative);

/// Bytes that look like a data file: every value, no text, different for each `seed`.
std::string BinaryContent(std::size_t size, unsigned int seed);

/// All that is in a folder, for comparing before and after: relative path to content; a folder has a trailing "\\" and
/// no content. Throws when a file cannot be read.
std::map<std::string, std::string> ContentsOf(const std::string& folder);

} // namespace TestSupport
