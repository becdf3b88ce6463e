#pragma once

#include <UtilsLib/Export.h>

#include <string>
#include <vector>

namespace UtilsLib
{

/// Compresses and decompresses payloads in memory and whole files: in the gzip format, and in the plain zlib format of
/// the files that earlier releases wrote (`..._Legacy`).
///
/// Any thread, also several at once: nothing is shared or locked. Failure shows in the result only (false or 0):
/// nothing is logged, and nothing is thrown but what a caller's own callback throws. Sizes are 32-bit; a payload of 4
/// GiB or more, deflated or inflated, is outside the design.
class UTILSLIB_API CompressionLib
{
public:
    /// Told once, with its context, before a payload is inflated.
    using BeginCallback = void (*)(void* context);
    /// Given `length` inflated bytes at `data`, valid during the call, that stand at `offset` of the payload; `total`
    /// is `offset + length`. At most 128 KiB a call, in order. `length` can be 0 after earlier output.
    using ChunkCallback = void (*)(void* context, void* data, unsigned int offset, unsigned int length,
                                   unsigned int total);

    /// Replaces `output` by `input` in the gzip format and gives its size. 0 and an untouched output for an empty
    /// input; 0 and an empty output when memory is short. Both may be the same vector.
    static unsigned int DeflatePayload(std::vector<unsigned char>& input, std::vector<unsigned char>& output);

    /// Inflates the first gzip member of `input` and gives the size of what came out; what follows it is ignored.
    /// Damaged or truncated data is no failure: inflation stops where the data went wrong, and the result is the total
    /// so far (0 for what is not gzip at all, plain zlib included). An empty input is 0 without any call.
    ///
    /// `begin` is called even when nothing can be inflated, `chunk` only once something was. A null callback is left
    /// out. What a callback throws ends the inflation and passes to the caller.
    static unsigned int InflatePayload(const std::vector<unsigned char>& input, BeginCallback begin, void* beginContext,
                                       ChunkCallback chunk, void* chunkContext);
    /// The same into `output`, which is emptied first; but an empty input leaves it untouched. When the inflated data
    /// does not fit into memory, the result is 0 and the output empty. Both may be the same vector.
    static unsigned int InflatePayload(const std::vector<unsigned char>& input, std::vector<unsigned char>& output);
    /// The same into the file at `path`, which is created or emptied first, also for an empty input. The result says
    /// nothing about the file: it is the inflated size even when the file cannot be opened. After a failed write
    /// nothing more is written.
    static unsigned int InflatePayload(const std::vector<unsigned char>& input, const std::string& path);

    /// Writes the file `source` in the gzip format to `destination`, replacing what is there. False, with both files
    /// untouched, when the two are the same text (exactly, with letter case) or the source cannot be opened; also when
    /// the destination cannot be opened, or reading or writing fails: the destination then keeps what was written.
    ///
    /// A destination that is the source under another spelling cannot be opened: nobody can write what is being read.
    static bool CompressFile(const std::string& source, const std::string& destination);
    /// Writes the content of the gzip file `source` to `destination`. Fails as `CompressFile` does, and when the source
    /// is damaged, ends early or has another format; what was written before stays. Only the first gzip member counts;
    /// bytes after it are ignored.
    static bool DecompressFile(const std::string& source, const std::string& destination);

    /// `CompressFile` and `DecompressFile` in the plain zlib format.
    static bool CompressFile_Legacy(const std::string& source, const std::string& destination);
    /// As `DecompressFile`, in the plain zlib format.
    static bool DecompressFile_Legacy(const std::string& source, const std::string& destination);

    /// Replaces the file at `path` by its gzip form, through the file `path` + ".temp" (replaced where it exists): that
    /// one is written whole, then the original is deleted, then the new file takes its name. On failure the file at
    /// `path` stays as it was and a ".temp" file may remain. Deleting and renaming are not checked: between the two the
    /// content is in the ".temp" file alone, and stays there when the renaming fails.
    static void CompressFile(std::string& path);

private:
    enum class CompressionMethod : int
    {
        Gzip = 0,
        LegacyZlib = 1,
    };

    static bool CompressFile(const std::string& source, const std::string& destination, CompressionMethod method);
    static bool DecompressFile(const std::string& source, const std::string& destination, CompressionMethod method);
};

} // namespace UtilsLib
