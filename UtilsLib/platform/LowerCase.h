#pragma once

#include <cctype>
#include <string>

namespace UtilsLib::Platform
{

/// A character in lower case, as the C library's tolower says in the current locale.
inline char LowerCase(char character)
{
    const unsigned int byte = static_cast<unsigned char>(character);
    // tolower asks for the thread's locale at every call. No locale treats ASCII in its own way, so ASCII needs no
    // call; and as nothing of the locale is remembered here, a change by the host counts at once, on any thread.
    if (byte < 0x80)
    {
        return static_cast<char>(byte - 'A' < 26 ? byte + ('a' - 'A') : byte);
    }
    return static_cast<char>(std::tolower(static_cast<int>(byte)));
}

/// `text` in lower case, character by character.
std::string LowerCase(std::string text);

} // namespace UtilsLib::Platform
