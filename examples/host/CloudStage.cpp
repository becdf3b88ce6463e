#include <CloudStage.h>

#include <UtilsLib/WindowsTypes.h>
#include <UtilsLib/cloud/CloudServerHost.h>
#include <UtilsLib/cloud/DriveURLProvider.h>
#include <UtilsLib/cloud/MappedDrives.h>
#include <UtilsLib/cloud/OfficeAdapterBasedRegexURLValidator.h>

#include <shlobj.h>

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

constexpr const char* kSampleConfiguration = R"(<?xml version="1.0"?>
<tarrowConfig mode="staging">
  <servers>
    <server name="production" url="https://drive.corvane.example" mcapi="https://drive.corvane.example/mcapi"
            mc="https://drive.corvane.example/mc/signon"
            registerexisting="https://drive.corvane.example/mc/registerExisting"/>
    <server name="staging" url="https://staging.corvane.example" mcapi="https://staging.corvane.example/mcapi"
            mc="https://staging.corvane.example/mc/signon"
            registerexisting="https://staging.corvane.example/mc/registerExisting"/>
  </servers>
</tarrowConfig>
)";
constexpr const char* kCloudLine = ", (2:";         // of the log: the category of the cloud's configuration
constexpr std::chrono::milliseconds kLogDelay(700); // the logger writes every 300 ms

/// The service configuration of this machine; empty when the system does not tell its folder.
fs::path ConfigurationPath()
{
    char folder[MAX_PATH] = "";
    if (FAILED(SHGetFolderPathA(nullptr, CSIDL_SYSTEMX86, nullptr, SHGFP_TYPE_CURRENT, folder)))
    {
        return {};
    }
    return fs::path(folder) / "Corvane.Tarrow.Service.config";
}

/// The sample, in the place of the real configuration, until scope end. Nothing is done where one is already.
class ScopedSampleConfiguration
{
public:
    ScopedSampleConfiguration() : m_path(ConfigurationPath())
    {
        std::error_code error;
        if (!m_path.empty() && !fs::exists(m_path, error))
        {
            std::ofstream file(m_path, std::ios::binary);
            m_installed = file.is_open() && (file << kSampleConfiguration).flush().good();
        }
    }
    ~ScopedSampleConfiguration()
    {
        if (m_installed)
        {
            std::error_code error;
            fs::remove(m_path, error);
        }
    }
    ScopedSampleConfiguration(const ScopedSampleConfiguration&) = delete;
    ScopedSampleConfiguration& operator=(const ScopedSampleConfiguration&) = delete;

    bool IsInstalled() const
    {
        return m_installed;
    }
    std::string Path() const
    {
        return m_path.string();
    }

private:
    fs::path m_path;
    bool m_installed = false;
};

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
    const ScopedSampleConfiguration sample;
    console.Value(sample.IsInstalled() ? "sample configuration" : "configuration", sample.Path());
    CloudServerHost& host = *CloudServerHost::GetInstance();
    console.Value("server", host.GetAddress());
    console.Value("interface", host.GetMCAddress());
    ShowReasons(console, logPath, none ? 0 : size);
    ShowPage(console, "sign-on page", DriveURLProvider::URLType::SignOn);
    ShowPage(console, "registration page", DriveURLProvider::URLType::RegisterExisting);
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
