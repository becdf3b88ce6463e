#pragma once

#include <UtilsLib/Export.h>
#include <UtilsLib/WindowsTypes.h>

#include <string>

namespace UtilsLib
{

/// A file in the user's temporary folder, deleted at scope end unless SetDelete(false) was called.
///
/// A failed creation is not reported; every operation is then harmless. Copies are shallow on purpose: they share the
/// one handle and the path, and each deletes the file at its end. Belongs to the thread that made it.
class UTILSLIB_API ScopedTempFile
{
public:
    /// Creates the file `name`, or opens it as it is if it exists. `access` and `share` are the masks of CreateFile;
    /// the handle is not inheritable.
    ScopedTempFile(const std::string& name, const unsigned long& access, const unsigned long& share);
    /// Member-wise; see the class.
    ScopedTempFile(const ScopedTempFile&) = default;
    /// Member-wise; see the class.
    ScopedTempFile& operator=(const ScopedTempFile&) = default;
    /// Closes the file, then deletes what has its path unless told otherwise. Keeps the thread's last error.
    ~ScopedTempFile();

    /// Writes `size` bytes at the file pointer. A failed or short write is not reported.
    void Write(void* buffer, const unsigned int& size);
    /// Whether the destructor deletes the file; true at first.
    void SetDelete(bool deleteFile);
    /// The file stays on disk until destruction.
    void Close();
    /// The full path, with two separators before the name: the temporary folder's own and one more. Without a temporary
    /// folder (none known, or longer than 259 characters) it is one separator and the name.
    std::string GetFilename() const;

private:
    HANDLE m_handle;      // INVALID_HANDLE_VALUE when closed; plain: copied as it is
    std::string m_path;   // full path
    bool m_delete = true; // delete the file on destruction
};

} // namespace UtilsLib
