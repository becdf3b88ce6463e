#include <LibraryThreads.h>

#include <UtilsLib/logging/Logger.h>
#include <UtilsLib/registry/LiveRegSettings.h>

using UtilsLib::LiveRegSettings;
using UtilsLib::Logger;

namespace
{

constexpr const char* kMasterSwitch = "hx41svc_logging";

} // namespace

void StartLogging(const std::string& logPath)
{
    Logger& logger = Logger::GetInstance();
    logger.SetPath(logPath);
    logger.SetRegistryKey(kMasterSwitch);
    logger.Start();
    LiveRegSettings::GetInstance().Start();
}

void StopLogging()
{
    LiveRegSettings::GetInstance().Shutdown();
    Logger::GetInstance().Shutdown();
}
