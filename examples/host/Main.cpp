// host [--out FOLDER] [COMPANY]: lives through the library as the suite's programs do. COMPANY is a folder of company
// data, which is only read; without one a sample is made. What the host writes goes to FOLDER (without it: a folder of
// the temporary files).
#include <CompanyFolder.h>
#include <Console.h>
#include <LoggingStage.h>
#include <ProductSwitches.h>
#include <SnapshotStage.h>

#include <cstdio>
#include <filesystem>
#include <optional>
#include <string>
#include <system_error>

namespace
{

struct Arguments
{
    std::string out;
    std::string company;
};

std::optional<Arguments> Parse(int argc, char** argv)
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
        arguments.out = (std::filesystem::temp_directory_path() / "UtilsLibHost").string();
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

int Run(Arguments arguments)
{
    Console console;
    console.Stage("Company data");
    if (!PrepareFolders(console, arguments))
    {
        return 1;
    }
    const std::string logPath = arguments.out + "\\host.log";

    console.Stage("Start: log path, registry key, logger thread, settings thread");
    ProductSwitches switches; // before the logger, which reads them when it is made
    if (!switches.Set("hx41svc_logging", 1))
    {
        console.Line("The product key cannot be written, so logging stays off.");
    }
    StartLogging(logPath);
    console.Value("log file", logPath);

    console.Stage("Walk the company folder");
    const std::vector<CompanyFile> files = ListCompany(arguments.company);
    LogCompany(console, files);

    console.Stage("Switch detail on while the process runs");
    SwitchDetailOn(console, switches);
    LogCompany(console, files);

    console.Stage("Snapshot of the company, and its undoing");
    SnapshotCompany(console, arguments.company, arguments.out);

    console.Stage("Compression");
    const std::string compressed = CompressLargestFile(console, arguments.company, arguments.out);

    console.Stage("Threads of the library");
    ShowThreads(console);

    console.Stage("Shut down");
    StopLogging();
    console.Line("Both threads have ended; the last lines of the log file:");
    ShowLastLines(console, logPath, 6);

    console.Stage("Written");
    console.Value("company", arguments.company);
    console.Value("log file", logPath);
    if (!compressed.empty())
    {
        console.Value("compressed file", compressed);
    }
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    const std::optional<Arguments> arguments = Parse(argc, argv);
    if (!arguments)
    {
        std::fprintf(stderr, "usage: host [--out FOLDER] [COMPANY]\n");
        return 2;
    }
    return Run(*arguments);
}
