#include <CloudStage.h>

#include <SampleConfiguration.h>

#include <UtilsLib/cloud/CloudServerHost.h>
#include <UtilsLib/cloud/DriveURLProvider.h>
#include <UtilsLib/cloud/MappedDrives.h>
#include <UtilsLib/cloud/OfficeAdapterBasedRegexURLValidator.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <map>
#include <system_error>
#include <thread>
#include <vector>

using UtilsLib::CloudServerHost;
using UtilsLib::DriveURLProvider;
using UtilsLib::MappedDrives;

namespace
{

namespace fs = std::filesystem;

constexpr const char* kCloudLine = ", (2:";         // of the log: the category of the cloud's configuration
constexpr std::chrono::milliseconds kLogDelay(700); // the logger writes every 300 ms

/// Of what was logged behind the first `known` bytes.
void ShowReasons(Console& console, const std::string& logPath, std::uintmax_t known)
{
    std::this_thread::sleep_for(kLogDelay);
    std::ifstream file(logPath, std::ios::binary);
    file.seekg(static_cast<std::streamoff>(known));
    for (std::string line; std::getline(file, line);)
    {
        line.erase(line.find_last_not_of('\r') + 1);
        const std::size_t category = line.find(kCloudLine);
        if (category != std::string::npos)
        {
            console.Value("  because of the log", line.substr(line.find("), ", category) + 3));
        }
    }
}

void ShowPage(Console& console, const std::string& name, DriveURLProvider::URLType page)
{
    const std::string address = DriveURLProvider::GetCorvaneDriveURL(page);
    const OfficeAdapterBasedRegexURLValidator validator;
    console.Value(name, address + (validator.ValidateURL(address) ? "" : " (no valid address)"));
}

} // namespace

void ShowCloudServer(Console& console, const std::string& logPath)
{
    std::error_code none;
    const std::uintmax_t size = fs::file_size(logPath, none);
    const std::string path = ServiceConfigurationPath();
    ScopedSampleConfiguration sample(path);
    console.Value(sample.IsInstalled() ? "sample configuration" : "configuration", path);
    CloudServerHost& host = *CloudServerHost::GetInstance();
    console.Value("server", host.GetAddress());
    console.Value("interface", host.GetMCAddress());
    ShowReasons(console, logPath, none ? 0 : size);
    ShowPage(console, "sign-on page", DriveURLProvider::URLType::SignOn);
    ShowPage(console, "registration page", DriveURLProvider::URLType::RegisterExisting);
    if (!sample.Remove())
    {
        console.Line("The sample cannot be removed: please delete it.");
    }
}

void ShowDrives(Console& console)
{
    std::map<char, std::string> drives;
    MappedDrives::GetRemoteDrives(drives);
    for (const auto& [letter, target] : drives)
    {
        console.Value(std::string(1, letter) + ":", target.empty() ? "of this machine" : target);
    }
}
