#pragma once

#include <string>

namespace UtilsLib::Platform
{

/// A character in lower case, as the C library's tolower says in the current locale.
char LowerCase(char character);
/// `text` in lower case, character by character.
std::string LowerCase(std::string text);

} // namespace UtilsLib::Platform
