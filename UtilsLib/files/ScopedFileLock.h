#pragma once

#include <UtilsLib/Export.h>
#include <UtilsLib/WindowsTypes.h>

#include <string>
#include <vector>

namespace UtilsLib
{

/// Keeps everybody else from writing some files of one folder, for as long as the object lives.
///
/// Other programs may still read the files; deleting, renaming and writing them fails with error 32. Copies are shallow
/// on purpose: each copy closes the same handles again, so an object that holds handles is not to be copied. Belongs to
/// the thread that made it.
class UTILSLIB_API ScopedFileLock
{
public:
    /// `names` are relative to `folder`, which stands without a separator at its end. Takes no handle yet.
    ScopedFileLock(const std::string& folder, const std::vector<std::string>& names);
    /// Member-wise; see the class.
    ScopedFileLock(const ScopedFileLock&) = default;
    /// Member-wise; see the class.
    ScopedFileLock& operator=(const ScopedFileLock&) = default;
    /// Lets the files go, in the order of the names. Keeps the thread's last error.
    ~ScopedFileLock();

    /// Opens every file for reading, allowing others to read only, after its attributes were set to normal, so that a
    /// read-only mark is gone for good. False at the first file that cannot be opened, with the reason in GetLastError:
    /// the files before it stay locked until destruction. A second call takes a second handle on each file.
    bool LockFilesDenyWrite();

private:
    std::string m_folder;
    std::vector<std::string> m_names;
    std::vector<HANDLE> m_handles; // plain: closed by the destructor, copied as they are
};

} // namespace UtilsLib
