#pragma once

#include <algorithm>
#include <cctype>
#include <string>

namespace TestSupport
{

inline std::string InCapitals(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char character) { return static_cast<char>(std::toupper(character)); });
    return text;
}

} // namespace TestSupport
