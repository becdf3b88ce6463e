#pragma once

#include <UtilsLib/Export.h>
#include <UtilsLib/files/ScopedTempFile.h>

#include <memory>
#include <string>
#include <vector>

namespace UtilsLib
{

/// Command lines that the shell runs from a file in the user's temporary folder, outside this process.
///
///     BatchFile batch("clean_up.bat");
///     batch.PushOp("del c:\\old.dat");
///     batch.Execute();
///
/// The file is left behind on purpose: the shell may still read it when the object is gone. No failure is reported.
/// Copies share the file. Belongs to the thread that made it.
class UTILSLIB_API BatchFile
{
public:
    /// Makes the file, or opens it if it exists. What it holds is overwritten from its beginning by `Execute`, not cut:
    /// the rest of a longer old file stays. The name's ending decides what the shell does with it.
    explicit BatchFile(const std::string& fileName);
    /// Member-wise; see the class.
    BatchFile(const BatchFile&) = default;
    /// Member-wise; see the class.
    BatchFile& operator=(const BatchFile&) = default;
    ~BatchFile();

    /// Appends a command line, without a line end. Writes nothing yet.
    void PushOp(const std::string& commandLine);
    /// Writes the lines, each with "\r\n", closes the file and has the shell open it; does not wait for it to run. Only
    /// the first call writes: a later one, on any copy, finds the file closed and starts it again as it is.
    void Execute();

private:
    std::string m_name; // empty
    std::vector<std::string> m_ops;
    std::shared_ptr<ScopedTempFile> m_file;
};

} // namespace UtilsLib
