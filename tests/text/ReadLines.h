#pragma once

#include <sstream>
#include <string>
#include <vector>

namespace TestSupport
{

/// A text cut at a delimiter as the definition has it: by reading lines from a stream.
inline std::vector<std::string> ReadLines(const std::string& text, char delimiter)
{
    std::istringstream stream(text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line, delimiter);)
    {
        lines.push_back(line);
    }
    return lines;
}

} // namespace TestSupport
