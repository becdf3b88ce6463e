#include <UtilsLib/files/Directory.h>

#include <UtilsLib/WindowsTypes.h>
#include <UtilsLib/files/ScopedFileLock.h>
#include <UtilsLib/platform/LastErrorKeeper.h>
#include <UtilsLib/platform/UniqueFileHandle.h>
#include <UtilsLib/platform/UniqueFindHandle.h>

#include <exception>
#include <utility>

namespace UtilsLib
{

using Platform::LastErrorKeeper;
using Platform::UniqueFileHandle;
using Platform::UniqueFindHandle;

namespace
{

constexpr char kAccountingData[] = "accdata";
// What the accounting programs write into a copied data folder by themselves.
constexpr const char* kReports[] = {"\\errors.rpt", "\\warnings.rpt", "\\comments.rpt"};
constexpr char kSeed[] = "\\seed.dat";

bool IsWanted(const std::string& name)
{
    // A name that the code page cannot represent comes back with "?": no call could open it by that name, and one such
    // file must not fail the whole copy.
    return name != "." && name != ".." && name.find('?') == std::string::npos;
}

/// Which folder a path, also one through links, comes to; false when it cannot be told.
bool Identify(const std::string& path, BY_HANDLE_FILE_INFORMATION& information)
{
    const UniqueFileHandle folder(CreateFileA(path.c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                              nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    return folder && GetFileInformationByHandle(folder.Get(), &information);
}

/// Whether the folder is one of those that its own path leads through: following such links, listing would never end.
bool LeadsBackUp(const std::string& path)
{
    BY_HANDLE_FILE_INFORMATION folder = {};
    if (!Identify(path, folder))
    {
        return false;
    }
    for (auto end = path.rfind('\\'); end != std::string::npos && end != 0; end = path.rfind('\\', end - 1))
    {
        BY_HANDLE_FILE_INFORMATION above = {};
        if (Identify(path.substr(0, end), above) && above.dwVolumeSerialNumber == folder.dwVolumeSerialNumber &&
            above.nFileIndexHigh == folder.nFileIndexHigh && above.nFileIndexLow == folder.nFileIndexLow)
        {
            return true;
        }
    }
    return false;
}

bool IsLinkBackUp(unsigned long attributes, const std::string& path)
{
    return (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 && LeadsBackUp(path);
}

void Remove(const std::string& path)
{
    SetFileAttributesA(path.c_str(), FILE_ATTRIBUTE_NORMAL); // a read-only file would not be deleted
    DeleteFileA(path.c_str());
}

} // namespace

Directory::Directory(const std::string& sourceRoot, const std::string& relativeName, const std::string& destinationRoot,
                     const bool& keep)
    : m_sourceRoot(sourceRoot), m_relativeName(relativeName), m_destinationRoot(destinationRoot), m_keep(keep)
{
}

Directory::~Directory()
{
    const LastErrorKeeper keep; // a caller that returns false at scope end still wants the reason
    m_droppedChildren.clear();
    m_children.clear();
    if (m_keep)
    {
        return;
    }
    try
    {
        UndoCopy();
    }
    catch (const std::exception&)
    {
        // No memory for a path: what is left of the copy stays.
    }
}

bool Directory::Execute(unsigned long& error)
{
    DropListing();
    Enumerate(m_recursive);
    return CopyTo(error);
}

void Directory::Enumerate(bool recursive)
{
    WIN32_FIND_DATAA entry = {};
    const UniqueFindHandle search(FindFirstFileA((SourceFolder() + "\\*.*").c_str(), &entry));
    if (!search)
    {
        return;
    }
    do
    {
        const std::string name = entry.cFileName;
        if (!IsWanted(name))
        {
            continue;
        }
        if ((entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0)
        {
            m_files.push_back(name);
        }
        else if (recursive && !IsLinkBackUp(entry.dwFileAttributes, SourceFolder() + "\\" + name))
        {
            AddChild(name);
        }
    } while (FindNextFileA(search.Get(), &entry));
}

std::vector<std::string> Directory::GetFiles() const
{
    return m_files;
}

void Directory::SetIsRecursive(bool recursive)
{
    m_recursive = recursive;
}

bool Directory::GetIsRecursive() const
{
    return m_recursive;
}

void Directory::AddChild(const std::string& name)
{
    auto child = std::make_shared<Directory>(SourceFolder(), name, DestinationFolder(), m_keep);
    child->Enumerate(true); // kept: whatever the recursive flag of this folder
    m_children.push_back(std::move(child));
}

void Directory::DropListing()
{
    m_droppedChildren.insert(m_droppedChildren.end(), m_children.begin(), m_children.end());
    m_children.clear();
    m_files.clear();
}

bool Directory::CopyTo(unsigned long& error)
{
    error = 0;
    // Held until the sub-folders are copied too, so that the copy of the whole tree is of one moment.
    ScopedFileLock lock(SourceFolder(), m_files);
    if (!lock.LockFilesDenyWrite())
    {
        return false; // kept: error stays 0
    }
    if (!CreateDirectoryA(DestinationFolder().c_str(), nullptr))
    {
        error = GetLastError();
        if (error != ERROR_ALREADY_EXISTS) // kept: error stays 183 when the copy then succeeds
        {
            return false;
        }
    }
    if (!CopyFiles(error))
    {
        return false;
    }
    for (const std::shared_ptr<Directory>& child : m_children)
    {
        if (!child->CopyTo(error))
        {
            return false;
        }
    }
    return true;
}

bool Directory::CopyFiles(unsigned long& error)
{
    const std::string source = SourceFolder() + "\\";
    const std::string destination = DestinationFolder() + "\\";
    m_copiedFiles.reserve(m_copiedFiles.size() + m_files.size()); // a copied file must not fail to be remembered
    for (const std::string& name : m_files)
    {
        const std::string from = source + name;
        std::string to = destination + name;
        if (to.size() >= MAX_PATH)
        {
            // Some systems' CopyFile takes longer names than DeleteFile, and the copy could not be undone.
            error = ERROR_FILENAME_EXCED_RANGE;
            return false;
        }
        if (!CopyFileA(from.c_str(), to.c_str(), FALSE))
        {
            error = GetLastError();
            return false;
        }
        m_copiedFiles.push_back(std::move(to));
    }
    return true;
}

void Directory::UndoCopy() const
{
    for (const std::string& path : m_copiedFiles)
    {
        Remove(path);
    }
    if (m_relativeName == kAccountingData)
    {
        for (const char* const report : kReports)
        {
            Remove(DestinationFolder() + report);
        }
    }
    Remove(m_destinationRoot + kSeed); // kept: beside the folder, at every level, whether it was copied or not
    RemoveDirectoryA(DestinationFolder().c_str()); // only succeeds when nothing else is in it
}

std::string Directory::SourceFolder() const
{
    return m_sourceRoot + "\\" + m_relativeName;
}

std::string Directory::DestinationFolder() const
{
    return m_destinationRoot + "\\" + m_relativeName;
}

} // namespace UtilsLib
