#pragma once

#include <UtilsLib/Export.h>

#include <string>
#include <vector>

namespace UtilsLib
{

/// Base64 as RFC 4648 has it: "A" to "Z", "a" to "z", "0" to "9", "+" and "/", padded with "=" to a multiple of 4
/// characters, without line breaks. No state; any thread.
class UTILSLIB_API Base64
{
public:
    /// Whether `c` is one of the 64 characters, whatever the locale; the padding is not.
    static bool is_base64(unsigned char c);
    /// `length` bytes at `data` (which may be null when there are none) as text. Throws std::length_error when the text
    /// would be longer than a string can be.
    static std::string encode(const unsigned char* data, unsigned int length);
    /// The same for a vector.
    static std::string encode(const std::vector<unsigned char>& data);
    /// The bytes that `length` characters at `text` (which may be null when there are none) stand for. Wrong text is no
    /// error: it ends at the first character that `is_base64` refuses, padding or not, and what stands before it is
    /// decoded. A last group of 2 or 3 characters is 1 or 2 bytes, one of a single character none.
    static std::vector<unsigned char> decode(const char* text, unsigned int length);
    /// The same for a string.
    static std::vector<unsigned char> decode(const std::string& text);
};

} // namespace UtilsLib
