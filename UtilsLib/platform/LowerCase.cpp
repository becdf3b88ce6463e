#include <UtilsLib/platform/LowerCase.h>

namespace UtilsLib::Platform
{

std::string LowerCase(std::string text)
{
    for (char& character : text)
    {
        character = LowerCase(character);
    }
    return text;
}

} // namespace UtilsLib::Platform
