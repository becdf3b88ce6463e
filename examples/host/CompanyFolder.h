#pragma once

#include <UtilsLib/progress/ProgressHandler.h>

#include <optional>
#include <string>
#include <vector>

/// One file of a company's data.
struct CompanyFile
{
    std::string path; // relative to the company folder, in the ANSI code page
    unsigned long long size = 0;
};

/// Makes a small company: ledgers, reports, invoices and the like, some text, some binary. Existing files are
/// overwritten.
void MakeSampleCompany(const std::string& folder);

/// Every file below `folder`. Files that come and go meanwhile are left out.
std::vector<CompanyFile> ListCompany(const std::string& folder);

/// A number that differs when a name or a byte below `folder` differs; nothing when a file cannot be read. The bytes
/// read show as the part `what` of `progress`.
std::optional<unsigned long long> CompanyDigest(const std::string& folder, UtilsLib::ProgressHandler& progress,
                                                const std::string& what);
