#pragma once

#include <UtilsLib/WindowsTypes.h>

#include <string>

namespace UtilsLib::Platform
{

/// A handle that this process already has to the file `path`, open for reading and writing; INVALID_HANDLE_VALUE when
/// there is none. Not duplicated: whoever lost it owns it again.
///
/// For the end of a process, whose threads Windows has ended: one may have been in the middle of CreateFile, with the
/// handle made but its value never seen. Slow; looks at the first 16,384 handles.
HANDLE FindOwnFileHandle(const std::string& path);

} // namespace UtilsLib::Platform
