#include <UtilsLib/cloud/DriveURLProvider.h>

#include <UtilsLib/platform/ScopedComInit.h>
#include <UtilsLib/platform/ServiceConfiguration.h>

#include <comdef.h>

#include <map>

namespace UtilsLib
{

namespace
{

using Platform::ServiceConfiguration;

struct Page
{
    const wchar_t* attribute; // of a server in the configuration
    const char* path;         // on the production drive; null for no page
};

Page PageOf(DriveURLProvider::URLType type)
{
    switch (type)
    {
    case DriveURLProvider::URLType::SignOn:
        return {L"mc", "/mc/signon"};
    case DriveURLProvider::URLType::RegisterExisting:
        return {L"registerexisting", "/mc/registerExisting"};
    }
    return {L"", nullptr};
}

/// The address that the configuration names for its mode; empty when it names none.
std::string ReadAddress(const wchar_t* attribute)
{
    char path[MAX_PATH] = "";
    ServiceConfiguration configuration;
    if (!ServiceConfiguration::FindFile(path) || !configuration.Load(path))
    {
        return {};
    }
    const std::string mode = configuration.Mode();
    std::map<std::string, std::string> addresses;
    configuration.ForEachServer([&](const ServiceConfiguration::Server& server) {
        const std::string name = server.Attribute(L"name");
        addresses[name] = server.Attribute(attribute);
    });
    const auto wanted = addresses.find(mode);
    return wanted == addresses.end() ? std::string() : wanted->second;
}

std::string ConfiguredAddress(const wchar_t* attribute)
{
    const Platform::ScopedComInit com;
    try
    {
        return ReadAddress(attribute);
    }
    catch (const _com_error&)
    {
        return {}; // kept: one server without the attribute hides all of them
    }
}

} // namespace

std::string DriveURLProvider::GetCorvaneDriveURL(URLType type)
{
    const Page page = PageOf(type);
    std::string address = ConfiguredAddress(page.attribute);
    if (address.empty() && page.path != nullptr)
    {
        address = std::string(ServiceConfiguration::kProductionDrive) + page.path;
    }
    return address;
}

} // namespace UtilsLib
