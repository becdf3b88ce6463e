// host [--out FOLDER] [COMPANY]: lives through the library as the suite's programs do. COMPANY is a folder of company
// data, which is only read; without one a sample is made. What the host writes goes to FOLDER (without it: a folder of
// the temporary files).
#include <Arguments.h>
#include <CloudStage.h>
#include <CompanyFolder.h>
#include <CompressionStage.h>
#include <Console.h>
#include <EventsStage.h>
#include <Job.h>
#include <LibraryThreads.h>
#include <LoggingStage.h>
#include <ProductSwitches.h>
#include <ServiceStage.h>
#include <SnapshotStage.h>

#include <UtilsLib/logging/MiniDump.h>

#include <cstdio>
#include <exception>
#include <optional>
#include <string>
#include <vector>

namespace
{

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
    Job job(console);

    console.Stage("Walk the company folder");
    const std::vector<CompanyFile> files = ListCompany(arguments.company);
    LogCompany(console, files);

    console.Stage("Switch detail on while the process runs");
    SwitchDetailOn(console, job, switches);
    LogCompany(console, files);

    console.Stage("Snapshot of the company, and its undoing");
    SnapshotCompany(console, job, arguments.company, arguments.out);

    console.Stage("Compression");
    const std::string compressed = CompressLargestFile(console, job, arguments.company, arguments.out);

    console.Stage("Cloud server");
    ShowCloudServer(console, logPath);

    console.Stage("Drives");
    ShowDrives(console);

    console.Stage("Events that the user wants to see");
    ShowEvents(console, arguments.out);

    console.Stage("The watch over the company as a Windows service");
    RunAsService(console, arguments.company, arguments.out);

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
    SetUnhandledExceptionFilter(&LastChanceMiniDumpProcess);
    std::set_terminate(&LastChanceTerminate);
    const std::optional<Arguments> arguments = ParseArguments(argc, argv);
    if (!arguments)
    {
        std::fprintf(stderr, "usage: host [--out FOLDER] [COMPANY]\n");
        return 2;
    }
    try
    {
        return Run(*arguments);
    }
    catch (const std::exception& error)
    {
        StopLogging(); // what was logged until here says how it came to this
        std::fprintf(stderr, "host: %s\n", error.what());
        return 1;
    }
}
