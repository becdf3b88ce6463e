#include <tests/support/TempFolder.h>

#include <UtilsLib/WindowsTypes.h>
#include <UtilsLib/platform/LastErrorKeeper.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>

namespace TestSupport
{

namespace
{

std::string UniquePath()
{
    static std::atomic<unsigned int> count = 0;
    char folder[MAX_PATH] = "";
    GetTempPathA(MAX_PATH, folder);
    return std::string(folder) + "utilslib_" + std::to_string(GetCurrentProcessId()) + "_" + std::to_string(++count);
}

void MakeDeletable(const std::filesystem::path& root)
{
    std::error_code ignored;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(root, ignored))
    {
        SetFileAttributesW(entry.path().c_str(), FILE_ATTRIBUTE_NORMAL);
    }
}

} // namespace

TempFolder::TempFolder() : m_path(UniquePath())
{
    std::filesystem::remove_all(m_path);
    if (!CreateDirectoryA(m_path.c_str(), nullptr))
    {
        throw std::runtime_error(LastErrorText("CreateDirectoryA " + m_path));
    }
}

TempFolder::~TempFolder()
{
    MakeDeletable(m_path);
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
}

const std::string& TempFolder::Path() const
{
    return m_path;
}

std::string TempFolder::operator/(const std::string& relative) const
{
    return relative.empty() ? m_path : m_path + "\\" + relative;
}

void TempFolder::Write(const std::string& relative, const std::string& content) const
{
    const std::filesystem::path path = *this / relative;
    std::filesystem::create_directories(path.parent_path());
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << content;
    if (!file.flush())
    {
        throw std::runtime_error("cannot write " + path.string());
    }
}

std::string TempFolder::Read(const std::string& relative) const
{
    return ContentOf(*this / relative);
}

void TempFolder::MakeFolder(const std::string& relative) const
{
    std::filesystem::create_directories(*this / relative);
}

bool TempFolder::Exists(const std::string& relative) const
{
    return GetFileAttributesA((*this / relative).c_str()) != INVALID_FILE_ATTRIBUTES;
}

std::vector<std::string> TempFolder::Tree(const std::string& relative) const
{
    std::vector<std::string> names;
    const std::filesystem::path top = *this / relative;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(top))
    {
        std::string name = entry.path().string().substr(top.string().size() + 1);
        std::replace(name.begin(), name.end(), '/', '\\');
        names.push_back(entry.is_directory() ? name + "\\" : name);
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::string ContentOf(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

std::string LastErrorText(const std::string& name)
{
    const UtilsLib::Platform::LastErrorKeeper keep;
    return name + ": error " + std::to_string(keep.Value()) + " (" +
           std::system_category().message(static_cast<int>(keep.Value())) + ")";
}

} // namespace TestSupport
