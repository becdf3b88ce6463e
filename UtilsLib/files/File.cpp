#include <UtilsLib/files/File.h>

#include <UtilsLib/platform/LastErrorKeeper.h>
#include <UtilsLib/platform/LowerCase.h>

namespace UtilsLib
{

namespace
{

// A negative size would reach the system as one of nearly 4 GiB.
bool IsUsableSize(int size)
{
    if (size < 0)
    {
        SetLastError(ERROR_INVALID_PARAMETER);
    }
    return size >= 0;
}

} // namespace

File::File(IFileWatcher* watcher, const long long& id, const std::string& path)
    : m_watcher(watcher), m_path(Platform::LowerCase(path)), m_handle(INVALID_HANDLE_VALUE), m_id(id)
{
}

File::~File()
{
    const Platform::LastErrorKeeper keep;
    try
    {
        Close();
    }
    catch (...)
    {
        // The watcher's: there is nobody to hand it to.
    }
}

bool File::Open(const unsigned long& access, const unsigned long& share, const unsigned long& creation,
                const unsigned long& flags)
{
    if (IsOpen())
    {
        return false;
    }
    m_handle = CreateFileA(m_path.c_str(), access, share, nullptr, creation, flags, nullptr);
    if (!IsOpen())
    {
        return false;
    }
    m_writable = (access & GENERIC_WRITE) != 0;
    m_position = 0;
    m_ownerThreadId = GetCurrentThreadId();
    m_watcher->OnOpen(m_id, m_path, access, share, creation, flags);
    return true;
}

bool File::Close()
{
    if (!IsOpen() || !CloseHandle(m_handle))
    {
        return false;
    }
    try
    {
        m_watcher->OnClose(m_id, m_path, m_ownerThreadId);
    }
    catch (...)
    {
        Reset(); // the handle is gone, whatever the watcher says
        throw;
    }
    Reset();
    return true;
}

bool File::IsOpen() const
{
    return m_handle != INVALID_HANDLE_VALUE;
}

bool File::IsWritable() const
{
    return m_writable;
}

bool File::Read(void* buffer, const int& size, unsigned long& bytesRead)
{
    bytesRead = 0;
    return IsOpen() && IsUsableSize(size) &&
           ReadFile(m_handle, buffer, static_cast<DWORD>(size), &bytesRead, nullptr) != FALSE;
}

bool File::Write(void* buffer, const int& size, unsigned long& bytesWritten)
{
    bytesWritten = 0;
    if (!IsOpen() || !IsUsableSize(size) ||
        !WriteFile(m_handle, buffer, static_cast<DWORD>(size), &bytesWritten, nullptr))
    {
        return false;
    }
    // kept: the position is that of the last seek, not where these bytes went.
    m_watcher->OnWrite(m_id, m_path, m_position, buffer, size);
    return true;
}

bool File::Lock(const unsigned long& offset, const unsigned long& length)
{
    return IsOpen() && LockFile(m_handle, offset, 0, length, 0) != FALSE;
}

bool File::Unlock(const unsigned long& offset, const unsigned long& length)
{
    return IsOpen() && UnlockFile(m_handle, offset, 0, length, 0) != FALSE;
}

bool File::GetSize(long long& size) const
{
    LARGE_INTEGER found = {};
    if (!IsOpen() || !GetFileSizeEx(m_handle, &found))
    {
        return false;
    }
    size = found.QuadPart;
    return true;
}

bool File::Seek(const unsigned long& offset)
{
    if (!IsOpen())
    {
        return false;
    }
    LONG high = 0; // without it, an offset from 2 GiB on would be negative
    const DWORD reached = SetFilePointer(m_handle, static_cast<LONG>(offset), &high, FILE_BEGIN);
    // All bits set is a valid position as well as the sign of failure.
    if (reached == INVALID_SET_FILE_POINTER && GetLastError() != ERROR_SUCCESS)
    {
        return false;
    }
    if (reached != offset || high != 0)
    {
        return false;
    }
    m_position = offset;
    return true;
}

bool File::SetEof(const unsigned long& offset)
{
    return Seek(offset) && SetEndOfFile(m_handle) != FALSE;
}

bool File::Truncate()
{
    if (!SetEof(0))
    {
        return false;
    }
    m_watcher->OnTruncate(m_path);
    return true;
}

bool File::SetFileTimes(const FILETIME& creation, const FILETIME& lastAccess, const FILETIME& lastWrite)
{
    return IsOpen() && SetFileTime(m_handle, &creation, &lastAccess, &lastWrite) != FALSE;
}

std::string File::GetPath() const
{
    return m_path;
}

void* File::GetHandle() const
{
    return m_handle;
}

void File::Reset()
{
    m_handle = INVALID_HANDLE_VALUE;
    m_writable = false;
    m_position = 0;
    m_ownerThreadId = 0;
}

} // namespace UtilsLib
