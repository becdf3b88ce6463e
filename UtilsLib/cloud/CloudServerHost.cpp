#include <UtilsLib/cloud/CloudServerHost.h>

#include <UtilsLib/logging/Logger.h>
#include <UtilsLib/platform/ScopedComInit.h>
#include <UtilsLib/platform/ServiceConfiguration.h>

#include <comdef.h>

#include <map>
#include <utility>

namespace UtilsLib
{

namespace
{

using Platform::ServiceConfiguration;

ILogger& Log()
{
    return Logger::GetInstance();
}

template <typename... Texts>
void LogInformation(const char* format, Texts... texts)
{
    Log().Log(LogCategory::CloudConfiguration, LogTraceLevel::Information, format, texts...);
}

template <typename... Texts>
void LogError(const char* format, Texts... texts)
{
    Log().Log(LogCategory::CloudConfiguration, LogTraceLevel::Error, format, texts...);
}

} // namespace

CloudServerHost* CloudServerHost::m_pInstance = nullptr;

CloudServerHost* CloudServerHost::GetInstance()
{
    if (m_pInstance == nullptr)
    {
        m_pInstance = new CloudServerHost; // kept: lives until the process ends, so that late callers find it
    }
    return m_pInstance;
}

const std::string& CloudServerHost::GetAddress()
{
    return m_address;
}

const std::string& CloudServerHost::GetMCAddress()
{
    return m_mcAddress;
}

CloudServerHost::CloudServerHost()
{
    GetAddresses();
}

void CloudServerHost::GetAddresses()
{
    m_address = ServiceConfiguration::kProductionDrive;
    m_mcAddress = m_address + "/mcapi";
    const Platform::ScopedComInit com;
    LogInformation("Getting Tarrow service configuration.");
    char path[MAX_PATH] = "";
    if (!ServiceConfiguration::FindFile(path))
    {
        LogInformation("Tarrow service configuration failed to load.");
        return;
    }
    try
    {
        ReadConfiguration(path);
    }
    catch (const _com_error& error)
    {
        LogError("Tarrow service configuration failed with %s", error.ErrorMessage());
    }
    catch (...)
    {
        LogError("Tarrow service configuration failed for an unknown reason");
    }
}

void CloudServerHost::ReadConfiguration(const char* path)
{
    ServiceConfiguration configuration;
    if (!configuration.Load(path))
    {
        return; // no file is the ordinary case
    }
    LogInformation("Loaded Tarrow service configuration.");
    const std::string mode = configuration.Mode();
    LogInformation("Requested mode is %s", mode.c_str());
    std::map<std::string, std::string> addresses;
    std::map<std::string, std::string> mcAddresses;
    configuration.ForEachServer([&](const ServiceConfiguration::Server& server) {
        const std::string name = server.Attribute(L"name");
        const std::string url = server.Attribute(L"url");
        mcAddresses[name] = server.Attribute(L"mcapi");
        addresses[name] = url;
        LogInformation("Found server config entry named %s for %s", name.c_str(), url.c_str());
    });
    const auto wanted = addresses.find(mode);
    if (wanted == addresses.end())
    {
        LogInformation("Failed to find requested mode in list of servers.");
        return;
    }
    m_address = std::move(wanted->second);
    m_mcAddress = std::move(mcAddresses[mode]);
    LogInformation("Using server %s for requested %s", m_address.c_str(), mode.c_str());
}

} // namespace UtilsLib
