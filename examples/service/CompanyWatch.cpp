#include <CompanyWatch.h>

#include <CompanyFolder.h>

#include <UtilsLib/logging/Logger.h>

#include <utility>

using UtilsLib::ILogger;
using UtilsLib::LogCategory;
using UtilsLib::Logger;
using UtilsLib::LogTraceLevel;

namespace
{

constexpr unsigned int kInterval = 1000; // ms

void LogLine(const std::string& text)
{
    static_cast<ILogger&>(Logger::GetInstance())
        .Log(LogCategory::General, LogTraceLevel::Information, "%s", text.c_str());
}

} // namespace

CompanyWatch::CompanyWatch(std::string company) : Thread("Company watch"), m_company(std::move(company))
{
}

CompanyWatch::~CompanyWatch()
{
    Shutdown();
}

void CompanyWatch::ThreadProc()
{
    LogLine("Watching " + m_company);
    while (!StopRequested())
    {
        Look();
        ControlledSleep(kInterval);
    }
    LogLine("No longer watching " + m_company);
}

void CompanyWatch::Look()
{
    unsigned long long bytes = 0;
    const std::vector<CompanyFile> files = ListCompany(m_company);
    for (const CompanyFile& file : files)
    {
        bytes += file.size;
    }
    const std::string seen = std::to_string(files.size()) + " files of " + std::to_string(bytes) + " bytes";
    if (seen != m_seen)
    {
        LogLine("The company has " + seen);
        m_seen = seen;
    }
}
