#pragma once

#include <UtilsLib/Export.h>
#include <UtilsLib/WindowsTypes.h>
#include <UtilsLib/files/IFileWatcher.h>

#include <string>

namespace UtilsLib
{

/// Owns one file handle and tells an `IFileWatcher` of every open, close, write and truncation.
///
/// An operation that fails returns false, changes nothing unless stated, and leaves the system's reason in
/// GetLastError; on a closed `File` all of them fail without asking the system. Copies are shallow on purpose: they
/// share the one handle, and whichever closes first leaves the other with a dead one. No lock: callers that share a
/// `File` between threads serialise.
class UTILSLIB_API File
{
public:
    /// Opens nothing. `watcher` is not owned, must not be null and must outlive the object; `id` is handed to it
    /// unchanged. `path` is kept in lower case (the C library's tolower, in the locale of this moment).
    File(IFileWatcher* watcher, const long long& id, const std::string& path);
    /// Member-wise; see the class.
    File(const File&) = default;
    /// Member-wise; see the class.
    File& operator=(const File&) = default;
    /// Closes an open file as `Close` does. Never throws; keeps the thread's last error.
    ~File();

    /// CreateFile with these masks; the handle is not inheritable. False also when already open, which leaves the open
    /// handle and the last error alone.
    bool Open(const unsigned long& access, const unsigned long& share, const unsigned long& creation,
              const unsigned long& flags);
    /// When the system refuses to close, the object stays open and the watcher is not told.
    bool Close();
    /// Whether a handle is held.
    bool IsOpen() const;
    /// Whether `Open` was asked for GENERIC_WRITE; false when closed. Other masks that allow writing do not count.
    bool IsWritable() const;

    /// Reads up to `size` bytes from the file pointer; at the end of the file it succeeds with 0. A negative size fails
    /// with ERROR_INVALID_PARAMETER. `bytesRead` is 0 when nothing was asked of the system.
    bool Read(void* buffer, const int& size, unsigned long& bytesRead);
    /// Writes `size` bytes at the file pointer; a size of 0 succeeds and is reported too. A negative size fails with
    /// ERROR_INVALID_PARAMETER. `bytesWritten` is 0 when nothing was asked of the system.
    bool Write(void* buffer, const int& size, unsigned long& bytesWritten);
    /// Locks `length` bytes from `offset` (bytes) against other handles; fails at once when part of it is locked.
    bool Lock(const unsigned long& offset, const unsigned long& length);
    /// Undoes a `Lock` of exactly this range.
    bool Unlock(const unsigned long& offset, const unsigned long& length);
    /// The size in bytes; `size` is untouched on failure.
    bool GetSize(long long& size) const;
    /// Moves the file pointer to `offset` bytes from the beginning, also past the end.
    bool Seek(const unsigned long& offset);
    /// Cuts or lengthens the file to `offset` bytes and leaves the file pointer there. When only the cutting fails, the
    /// file pointer has moved all the same. The watcher is not told.
    bool SetEof(const unsigned long& offset);
    /// Cuts the file to length zero and leaves the file pointer there, as `SetEof` does.
    bool Truncate();
    /// Sets the three times of the open file, in UTC.
    bool SetFileTimes(const FILETIME& creation, const FILETIME& lastAccess, const FILETIME& lastWrite);

    /// In lower case.
    std::string GetPath() const;
    /// Still owned by this object; INVALID_HANDLE_VALUE when closed.
    void* GetHandle() const;

private:
    void Reset();

    IFileWatcher* m_watcher;
    std::string m_path;                // lower case
    HANDLE m_handle;                   // INVALID_HANDLE_VALUE when closed; plain: copied as it is
    bool m_writable = false;           // opened with GENERIC_WRITE
    unsigned long m_position = 0;      // of the last successful Seek since Open; writing does not move it
    unsigned long m_ownerThreadId = 0; // who opened it, 0 when closed
    long long m_id;
};

} // namespace UtilsLib
