#pragma once

#include <UtilsLib/WindowsTypes.h>

#include <winver.h>

#include <optional>
#include <string>

namespace UtilsLib::Platform
{

/// The fixed part of a program's or library's version resource; nothing when the file cannot be read, has none, or has
/// a damaged one.
std::optional<VS_FIXEDFILEINFO> ReadFixedFileInfo(const std::string& path);

} // namespace UtilsLib::Platform
