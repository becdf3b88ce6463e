#include <Arguments.h>

#include <AnsiText.h>
#include <CompanyFolder.h>

#include <filesystem>
#include <system_error>

std::optional<Arguments> ParseArguments(int argc, char** argv)
{
    Arguments arguments;
    for (int i = 1; i < argc; ++i)
    {
        const std::string argument = argv[i];
        if (argument == "--out" && i + 1 < argc)
        {
            arguments.out = argv[++i];
        }
        else if (!argument.starts_with("--") && arguments.company.empty())
        {
            arguments.company = argument;
        }
        else
        {
            return std::nullopt;
        }
    }
    if (arguments.out.empty())
    {
        arguments.out = AnsiText(std::filesystem::temp_directory_path() / "UtilsLibHost");
    }
    return arguments;
}

bool PrepareFolders(Console& console, Arguments& arguments)
{
    std::error_code error;
    std::filesystem::create_directories(arguments.out, error);
    if (error)
    {
        console.Line("Cannot make " + arguments.out + ": " + error.message());
        return false;
    }
    if (arguments.company.empty())
    {
        arguments.company = arguments.out + "\\company";
        MakeSampleCompany(arguments.company);
        console.Line("No company folder was given: a sample was made.");
    }
    else if (!std::filesystem::is_directory(arguments.company, error))
    {
        console.Line(arguments.company + " is not a folder.");
        return false;
    }
    console.Value("company", arguments.company);
    return true;
}
