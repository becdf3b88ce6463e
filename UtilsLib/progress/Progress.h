#pragma once

#include <string>

/// What all who report or show progress share.
namespace UtilsLib::Progress
{

/// Describes a source of progress to those who show it. The library carries it and looks at none of it: what the fields
/// say is agreed between the program's workers and its views.
struct Data
{
    std::string title;           ///< such as the name of a stage
    unsigned int identifier = 0; ///< such as the number of a text resource
    std::string message;         ///< such as a longer text
};

} // namespace UtilsLib::Progress
