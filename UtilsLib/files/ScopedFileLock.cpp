#include <UtilsLib/files/ScopedFileLock.h>

#include <UtilsLib/platform/LastErrorKeeper.h>
#include <UtilsLib/platform/UniqueFileHandle.h>

namespace UtilsLib
{

using Platform::LastErrorKeeper;
using Platform::UniqueFileHandle;

namespace
{

UniqueFileHandle OpenDenyWrite(const std::string& path)
{
    // The read-only mark of copied company data is not wanted; where it cannot be taken away, reading still works.
    SetFileAttributesA(path.c_str(), FILE_ATTRIBUTE_NORMAL);
    return UniqueFileHandle(CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                        FILE_ATTRIBUTE_NORMAL, nullptr));
}

} // namespace

ScopedFileLock::ScopedFileLock(const std::string& folder, const std::vector<std::string>& names)
    : m_folder(folder), m_names(names)
{
}

ScopedFileLock::~ScopedFileLock()
{
    const LastErrorKeeper keep; // a caller that returns false at scope end still wants the reason
    for (const HANDLE handle : m_handles)
    {
        CloseHandle(handle);
    }
}

bool ScopedFileLock::LockFilesDenyWrite()
{
    for (const std::string& name : m_names)
    {
        UniqueFileHandle file = OpenDenyWrite(m_folder + "\\" + name);
        if (!file)
        {
            return false; // kept: the files locked so far stay locked until destruction
        }
        m_handles.push_back(file.Get());
        static_cast<void>(file.Release());
    }
    return true;
}

} // namespace UtilsLib
