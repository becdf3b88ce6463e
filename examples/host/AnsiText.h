#pragma once

#include <filesystem>
#include <string>

/// `path` in the ANSI code page, which the library and the system's ...A functions take. The standard library turns
/// text of that code page into a path, but hands it out as UTF-8.
std::string AnsiText(const std::filesystem::path& path);
