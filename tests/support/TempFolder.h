#pragma once

#include <string>
#include <vector>

namespace TestSupport
{

/// An empty folder of the test's own below the temporary folder, deleted with all that is in it at scope end. Paths
/// are relative to it, with "\\" between their parts.
class TempFolder
{
public:
    TempFolder();
    ~TempFolder();
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    const std::string& Path() const;
    std::string operator/(const std::string& relative) const;

    /// Writes a whole file, making its folders.
    void Write(const std::string& relative, const std::string& content) const;
    /// The whole file; empty when it cannot be read.
    std::string Read(const std::string& relative) const;
    void MakeFolder(const std::string& relative) const;
    bool Exists(const std::string& relative) const;
    /// Names of all files and folders below `relative`, sorted, folders with a trailing "\\".
    std::vector<std::string> Tree(const std::string& relative = "") const;

private:
    std::string m_path;
};

/// The whole file of this path; empty when it cannot be read.
std::string ContentOf(const std::string& path);

/// "name: error 32 (text of the system)", for failure messages.
std::string LastErrorText(const std::string& name);

} // namespace TestSupport
