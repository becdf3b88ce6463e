#pragma once

#include <string>

namespace UtilsLib::Platform
{

/// `text` in lower case, character by character, as the C library's tolower says in the current locale.
std::string LowerCase(std::string text);

} // namespace UtilsLib::Platform
