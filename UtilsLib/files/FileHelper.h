#pragma once

#include <UtilsLib/Export.h>

#include <string>

namespace UtilsLib
{

/// Facts of files by name. Any thread.
class UTILSLIB_API FileHelper
{
public:
    /// The size of the file in bytes; 0 when it cannot be opened for reading beside readers only (a writer is in the
    /// way), with the reason in GetLastError. Only right below 2 GiB: the low 32 bits of the size come back with their
    /// sign, 2 GiB as 0xFFFFFFFF80000000 and 4 GiB + 5 as 5. Callers rely on it.
    static unsigned long long GetFileSize(const std::string& path);
};

} // namespace UtilsLib
