#pragma once

#include <UtilsLib/Export.h>

#include <string>

namespace UtilsLib
{

/// Opens files to other users. Any thread.
class UTILSLIB_API FileAccess
{
public:
    /// Grants everyone every right on the file or folder, beside what its access list already grants. Reports nothing:
    /// a failure of any step leaves the file as it was.
    static void SetFilePermissions(const std::string& path);
};

} // namespace UtilsLib
