#pragma once

#include <UtilsLib/Export.h>

#include <string>

namespace UtilsLib
{

/// Is told what happens to a `File`, on the thread that does it, right after it happened. The host implements it.
///
/// The references are valid during the call only. Operations should not throw: what they throw reaches the caller of
/// the `File`, whose own state is in order then, but a `ScopedFiles` stops half-way. The destructor of `File` swallows
/// it.
class UTILSLIB_API IFileWatcher
{
public:
    /// `path` was opened; the four values are those given to `File::Open`.
    virtual void OnOpen(const long long& id, std::string path, const unsigned long& access, const unsigned long& share,
                        const unsigned long& creation, const unsigned long& flags) = 0;
    /// The handle was closed; the `File` still shows what it was. `ownerThreadId` is the thread that had opened it.
    virtual void OnClose(const long long& id, const std::string& path, const unsigned long& ownerThreadId) = 0;
    /// `size` bytes of `buffer` were given to the system. `position` is that of the last `File::Seek`: writing does not
    /// advance it, so a second write without a seek between reports the same one.
    virtual void OnWrite(const long long& id, const std::string& path, unsigned long position, const void* buffer,
                         const int& size) = 0;
    /// The file was cut to length zero.
    virtual void OnTruncate(const std::string& path) = 0;

protected:
    ~IFileWatcher() = default; // nobody deletes a watcher through this interface
};

} // namespace UtilsLib
