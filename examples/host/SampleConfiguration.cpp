#include <SampleConfiguration.h>

#include <UtilsLib/WindowsTypes.h>

#include <shlobj.h>

#include <fstream>
#include <iterator>
#include <string_view>

namespace
{

constexpr std::string_view kSample = R"(<?xml version="1.0"?>
<!-- The example host's: it may be deleted. -->
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

enum class Content
{
    None,
    Sample,
    Other,
    Unknown // somebody keeps it from being read
};

Content ContentAt(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file.is_open())
    {
        return GetFileAttributesA(path.c_str()) == INVALID_FILE_ATTRIBUTES ? Content::None : Content::Unknown;
    }
    return std::string(std::istreambuf_iterator<char>(file), {}) == kSample ? Content::Sample : Content::Other;
}

/// False when the file is there already or cannot be made; a part of it never stays.
bool WriteSample(const std::string& path)
{
    const HANDLE file =
        CreateFileA(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE)
    {
        return false;
    }
    DWORD written = 0;
    const bool whole = WriteFile(file, kSample.data(), static_cast<DWORD>(kSample.size()), &written, nullptr) &&
                       written == kSample.size();
    CloseHandle(file);
    if (!whole)
    {
        DeleteFileA(path.c_str());
    }
    return whole;
}

/// False when the sample is, or may be, still there.
bool RemoveSample(const std::string& path)
{
    const Content content = ContentAt(path);
    return content == Content::Sample ? DeleteFileA(path.c_str()) != FALSE : content != Content::Unknown;
}

BOOL WINAPI RemoveAtBreak(DWORD)
{
    RemoveSample(ServiceConfigurationPath());
    return FALSE; // and the system ends the process
}

/// Whether the sample is at `path`, from this run or from one that was killed.
bool InstallSample(const std::string& path)
{
    SetConsoleCtrlHandler(&RemoveAtBreak, TRUE); // first: a break may come at once
    return WriteSample(path) || ContentAt(path) == Content::Sample;
}

} // namespace

std::string ServiceConfigurationPath()
{
    char folder[MAX_PATH] = "";
    if (FAILED(SHGetFolderPathA(nullptr, CSIDL_SYSTEMX86, nullptr, SHGFP_TYPE_CURRENT, folder)))
    {
        return {};
    }
    return std::string(folder) + "\\Corvane.Tarrow.Service.config";
}

ScopedSampleConfiguration::ScopedSampleConfiguration(const std::string& path)
    : m_path(path), m_installed(InstallSample(path))
{
}

ScopedSampleConfiguration::~ScopedSampleConfiguration()
{
    Remove();
    SetConsoleCtrlHandler(&RemoveAtBreak, FALSE);
}

bool ScopedSampleConfiguration::IsInstalled() const
{
    return m_installed;
}

bool ScopedSampleConfiguration::Remove()
{
    m_installed = m_installed && !RemoveSample(m_path);
    return !m_installed;
}
