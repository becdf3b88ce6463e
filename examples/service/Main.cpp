// host_service LOG COMPANY: a Windows service that watches COMPANY, a folder of company data, and writes what it sees
// to the file LOG. The service control manager starts it with these arguments; `host` installs it there.
#include <CompanyWatch.h>
#include <ControlledService.h>
#include <LibraryThreads.h>

#include <cstdio>
#include <filesystem>
#include <stdexcept>

namespace
{

constexpr int kNotAService = 1;
constexpr int kUsage = 2;

void CheckCompany(const std::string& company)
{
    std::error_code error;
    if (!std::filesystem::is_directory(company, error))
    {
        throw std::runtime_error(company + " is not a folder");
    }
}

int Run(const std::string& logPath, const std::string& company)
{
    CompanyWatch watch(company);
    ServiceWork work;
    work.start = {[&] { StartLogging(logPath); }, [&] { CheckCompany(company); }, [&] { watch.Start(); }};
    // The watch first: it logs until its end.
    work.stop = {[&] { watch.Shutdown(); }, [] { StopLogging(); }};
    ControlledService service(std::move(work));
    if (!service.Run())
    {
        std::fprintf(stderr, "host_service: error %lu: it is started by the service control manager only\n",
                     GetLastError());
        return kNotAService;
    }
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3)
    {
        std::fprintf(stderr, "usage: host_service LOG COMPANY\n");
        return kUsage;
    }
    return Run(argv[1], argv[2]);
}
