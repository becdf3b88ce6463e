#pragma once

#include <memory>
#include <string>
#include <vector>

namespace TestSupport
{

/// Counts the library's file operations until scope end, and at one of them makes the disk fail or the process end.
///
/// Counted are FindFirstFileA, FindNextFileA, CreateFileA, SetFileAttributesA, GetFileAttributesA, CreateDirectoryA,
/// CopyFileA, DeleteFileA and RemoveDirectoryA as UtilsLib.dll calls them. One object at a time.
class FileFaults
{
public:
    enum class Fault
    {
        Error,      // the operation does nothing and fails with kError
        EndProcess, // the process ends without any clean-up, before the operation, with kExitCode
    };
    static constexpr unsigned long kError = 1117; // ERROR_IO_DEVICE
    static constexpr unsigned int kExitCode = 77;

    /// `call` counts from 1; 0 only counts.
    explicit FileFaults(int call, Fault fault = Fault::Error);
    ~FileFaults();
    FileFaults(const FileFaults&) = delete;
    FileFaults& operator=(const FileFaults&) = delete;

    /// Names of the operations so far, as "CopyFileA c:\a.dat" with their (first) path.
    const std::vector<std::string>& Calls() const;
    /// The one that failed; empty when there was none.
    std::string Faulted() const;

private:
    struct Patches;
    std::unique_ptr<Patches> m_patches;
};

} // namespace TestSupport
