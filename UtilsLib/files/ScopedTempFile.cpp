#include <UtilsLib/files/ScopedTempFile.h>

#include <UtilsLib/platform/LastErrorKeeper.h>

namespace UtilsLib
{

namespace
{

std::string TempFolder()
{
    char folder[MAX_PATH] = "";
    // A folder that does not fit is answered with the size that it would need.
    const DWORD length = GetTempPathA(MAX_PATH, folder);
    return length < MAX_PATH ? std::string(folder, length) : std::string();
}

} // namespace

ScopedTempFile::ScopedTempFile(const std::string& name, const unsigned long& access, const unsigned long& share)
    : m_handle(INVALID_HANDLE_VALUE), m_path(TempFolder() + "\\" + name) // kept: the folder ends with a separator too
{
    m_handle = CreateFileA(m_path.c_str(), access, share, nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
}

ScopedTempFile::~ScopedTempFile()
{
    const Platform::LastErrorKeeper keep;
    Close();
    if (m_delete)
    {
        DeleteFileA(m_path.c_str());
    }
}

void ScopedTempFile::Write(void* buffer, const unsigned int& size)
{
    if (m_handle != INVALID_HANDLE_VALUE)
    {
        DWORD written = 0;
        WriteFile(m_handle, buffer, size, &written, nullptr);
    }
}

void ScopedTempFile::SetDelete(bool deleteFile)
{
    m_delete = deleteFile;
}

void ScopedTempFile::Close()
{
    if (m_handle != INVALID_HANDLE_VALUE)
    {
        CloseHandle(m_handle);
        m_handle = INVALID_HANDLE_VALUE;
    }
}

std::string ScopedTempFile::GetFilename() const
{
    return m_path;
}

} // namespace UtilsLib
