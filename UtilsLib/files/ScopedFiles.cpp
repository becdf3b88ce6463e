#include <UtilsLib/files/ScopedFiles.h>

#include <UtilsLib/logging/Logger.h>
#include <UtilsLib/platform/LastErrorKeeper.h>
#include <UtilsLib/platform/LowerCase.h>

#include <algorithm>

namespace UtilsLib
{

using Platform::LastErrorKeeper;

namespace
{

void LogFailedOpenWrite(const File& file, unsigned long error)
{
    ILogger& logger = Logger::GetInstance();
    logger.Log(LogCategory::General, LogTraceLevel::Error, "ScopedFiles::OpenWrite(%s) Failed %d",
               file.GetPath().c_str(), static_cast<int>(error));
}

} // namespace

ScopedFiles::ScopedFiles(IFileWatcher* watcher) : m_watcher(watcher)
{
}

ScopedFiles::ScopedFiles(IFileWatcher* watcher, const std::string& folder, const std::vector<std::string>& names)
    : m_watcher(watcher)
{
    const std::string start = folder + "\\";
    for (const std::string& name : names)
    {
        Add(start + name);
    }
}

ScopedFiles::~ScopedFiles() = default;

void ScopedFiles::Add(std::string path)
{
    if (Find(path) == m_files.end())
    {
        m_files.push_back(std::make_shared<File>(m_watcher, 0, path));
    }
}

void ScopedFiles::Remove(std::string path)
{
    const auto found = Find(path);
    if (found != m_files.end())
    {
        m_files.erase(found);
    }
}

std::shared_ptr<File> ScopedFiles::GetFile(std::string path) const
{
    const auto found = Find(path);
    return found == m_files.end() ? nullptr : *found;
}

bool ScopedFiles::OpenWrite()
{
    const Files files = m_files; // a watcher may change the set while it is told
    for (const std::shared_ptr<File>& file : files)
    {
        if (!file->Open(GENERIC_READ | GENERIC_WRITE, 0, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL))
        {
            const LastErrorKeeper keep; // logging and closing change the last error; the caller still wants this one
            LogFailedOpenWrite(*file, keep.Value());
            Close();
            return false;
        }
    }
    return true;
}

bool ScopedFiles::LockFilesDenyWrite()
{
    const Files files = m_files;
    for (const std::shared_ptr<File>& file : files)
    {
        SetFileAttributesA(file->GetPath().c_str(), FILE_ATTRIBUTE_NORMAL);
        if (!file->Open(GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL))
        {
            const LastErrorKeeper keep;
            Close();
            return false;
        }
    }
    return true;
}

void ScopedFiles::Close()
{
    const Files files = m_files;
    for (const std::shared_ptr<File>& file : files)
    {
        file->Close();
    }
}

ScopedFiles::Files::const_iterator ScopedFiles::Find(const std::string& path) const
{
    const std::string wanted = Platform::LowerCase(path);
    return std::find_if(m_files.begin(), m_files.end(),
                        [&](const std::shared_ptr<File>& file) { return file->GetPath() == wanted; });
}

} // namespace UtilsLib
