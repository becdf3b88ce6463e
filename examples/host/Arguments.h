#pragma once

#include <Console.h>

#include <optional>
#include <string>

/// What the host was asked to do.
struct Arguments
{
    std::string out;     // folder for what the host writes
    std::string company; // folder of company data; empty: make a sample
};

/// Nothing when the command line cannot be understood.
std::optional<Arguments> ParseArguments(int argc, char** argv);

/// Makes the folder for output and, if none was given, a sample company. False when there is nothing to work with;
/// the console has said why.
bool PrepareFolders(Console& console, Arguments& arguments);
