#include <UtilsLib/platform/LowerCase.h>

#include <cctype>

namespace UtilsLib::Platform
{

std::string LowerCase(std::string text)
{
    for (char& character : text)
    {
        // Characters above 0x7F are negative, which tolower must not be given.
        character = static_cast<char>(std::tolower(static_cast<unsigned char>(character)));
    }
    return text;
}

} // namespace UtilsLib::Platform
