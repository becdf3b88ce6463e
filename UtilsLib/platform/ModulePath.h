#pragma once

#include <UtilsLib/WindowsTypes.h>

#include <string>

namespace UtilsLib::Platform
{

/// The full path of a module of this process, of any length; null is the program itself. Empty when `module` is none.
std::string ModulePath(HMODULE module);

} // namespace UtilsLib::Platform
