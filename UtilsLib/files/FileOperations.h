#pragma once

#include <UtilsLib/Export.h>

#include <functional>
#include <string>

namespace UtilsLib
{

/// Work on whole files. Any thread.
class UTILSLIB_API FileOperations
{
public:
    /// Gets the data of one chunk, valid during the call only, its length in bytes and whether it is the last chunk.
    /// False ends the operation.
    using ChunkCallback = std::function<bool(const unsigned char*, unsigned int, bool)>;

    /// Hands the file to `callback` in chunks of `chunkSize` bytes, the last one shorter if need be, each read right
    /// before its call: OperateOnFile("ten bytes", 4, f) calls f with 4, 4 and 2 bytes; an empty file calls nothing and
    /// succeeds. False when the file cannot be opened, `chunkSize` is 0 or the callback returned false.
    ///
    /// Others may read and write the file meanwhile. The number of chunks follows from the size at the beginning; what
    /// cannot be read (the file was cut since) arrives as zero bytes, and so does all that follows it. Offsets and the
    /// number of chunks are counted in 32 bits: of a larger file the chunks from 4 GiB on show its beginning again.
    /// What the callback throws goes to the caller (std::bad_function_call when it is empty), as does std::bad_alloc
    /// when there is no memory for a chunk.
    static bool OperateOnFile(const std::string& path, unsigned int chunkSize, ChunkCallback callback);
};

} // namespace UtilsLib
