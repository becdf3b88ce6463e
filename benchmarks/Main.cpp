#include <benchmarks/Job.h>
#include <benchmarks/Report.h>
#include <tests/support/ScopedMachineHive.h>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <ctime>
#include <string>
#include <vector>

int main(int argc, char** argv)
{
    // The C run-time would read a TZ of the build machine by rules of its own; without it, it asks the system.
    _putenv("TZ=");
    _tzset();

    // Ours first, so that options of the command line overrule them. Noise comes in waves: interleaving spreads a wave
    // over all variants of a job.
    std::vector<std::string> options = {argv[0], "--benchmark_repetitions=9", "--benchmark_min_time=0.05",
                                        "--benchmark_enable_random_interleaving=true"};
    options.insert(options.end(), argv + 1, argv + argc);
    std::vector<char*> arguments;
    for (std::string& option : options)
    {
        arguments.push_back(option.data());
    }
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.data()))
    {
        return 1;
    }

    // The library reads its switches when it is first used: from a hive of this process's own.
    const TestSupport::ScopedMachineHive machine;
    machine.SetDword("hx41svc_logging", 1);

    Bench::AddLoggerJobs();
    Bench::AddSettingsJobs();
    Bench::AddProgressJobs();
    Bench::AddThreadPoolJobs();
    Bench::AddStringsJobs();
    Bench::AddTextChecksJobs();
    Bench::AddCompressionJobs();
    Bench::AddFileOperationsJobs();
    Bench::AddDirectoryJobs();

    Bench::Report report;
    if (benchmark::RunSpecifiedBenchmarks(&report) == 0)
    {
        std::printf("No job has that name.\n");
        return 1;
    }
    return 0;
}
