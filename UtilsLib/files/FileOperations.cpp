#include <UtilsLib/files/FileOperations.h>

#include <UtilsLib/platform/UniqueFileHandle.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>

namespace UtilsLib
{

using Platform::UniqueFileHandle;

namespace
{

/// A file read the way an input stream reads it: others may write beside, the size is the position of the end, and
/// after a read that came up short nothing more is read.
class ChunkReader
{
public:
    explicit ChunkReader(const std::string& path)
        : m_file(CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                             FILE_ATTRIBUTE_NORMAL, nullptr))
    {
    }

    bool GetSize(std::uint64_t& size)
    {
        LARGE_INTEGER end = {};
        if (!m_file || !SetFilePointerEx(m_file.Get(), LARGE_INTEGER{}, &end, FILE_END))
        {
            return false;
        }
        m_position = size = static_cast<std::uint64_t>(end.QuadPart);
        return true;
    }

    /// Fills all of `buffer`, with zeros where nothing could be read.
    void Read(std::uint32_t offset, unsigned char* buffer, std::uint32_t length)
    {
        DWORD done = 0;
        if (m_good && Seek(offset))
        {
            ReadFile(m_file.Get(), buffer, length, &done, nullptr);
            m_position += done;
        }
        m_good = m_good && done == length;
        std::memset(buffer + done, 0, length - done);
    }

private:
    bool Seek(std::uint32_t offset)
    {
        if (m_position != offset) // one chunk mostly begins where the one before ended: that saves a call
        {
            LARGE_INTEGER target = {};
            target.QuadPart = offset;
            m_good = SetFilePointerEx(m_file.Get(), target, nullptr, FILE_BEGIN) != FALSE;
            m_position = offset;
        }
        return m_good;
    }

    UniqueFileHandle m_file;
    std::uint64_t m_position = 0; // of the file pointer
    bool m_good = true;
};

} // namespace

bool FileOperations::OperateOnFile(const std::string& path, unsigned int chunkSize, ChunkCallback callback)
{
    if (chunkSize == 0)
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return false;
    }
    ChunkReader reader(path);
    std::uint64_t size = 0;
    if (!reader.GetSize(size))
    {
        return false;
    }
    // kept: the number of chunks and the offsets are counted in 32 bits.
    const auto chunks = static_cast<std::uint32_t>(size / chunkSize + (size % chunkSize != 0 ? 1 : 0));
    // One buffer for all chunks: what is not read is cleared, so that none shows the bytes of another.
    const auto bufferSize = static_cast<std::uint32_t>(std::min<std::uint64_t>(chunkSize, size));
    const auto buffer = std::make_unique_for_overwrite<unsigned char[]>(bufferSize);
    for (std::uint32_t i = 0; i < chunks; ++i)
    {
        const bool last = i == chunks - 1;
        const std::uint32_t offset = i * chunkSize;
        const std::uint32_t length = last ? static_cast<std::uint32_t>(size) - offset : chunkSize;
        reader.Read(offset, buffer.get(), length);
        if (!callback(buffer.get(), length, last))
        {
            return false;
        }
    }
    return true;
}

} // namespace UtilsLib
