#pragma once

#include <UtilsLib/Export.h>
#include <UtilsLib/files/File.h>

#include <memory>
#include <string>
#include <vector>

namespace UtilsLib
{

/// A set of files that are opened as one: either all are open afterwards, or none.
///
/// Paths are kept and compared in lower case, so a set holds each file once. After a false result the reason is in
/// GetLastError; closing and logging keep it. Copies share the `File` objects. Belongs to the thread that made it.
class UTILSLIB_API ScopedFiles
{
public:
    /// An empty set. `watcher` is told what happens to every file; it is not owned, must not be null and must outlive
    /// the files.
    explicit ScopedFiles(IFileWatcher* watcher);
    /// The set of the files `names` in `folder`, which stands without a separator at its end.
    ScopedFiles(IFileWatcher* watcher, const std::string& folder, const std::vector<std::string>& names);
    /// Member-wise; see the class.
    ScopedFiles(const ScopedFiles&) = default;
    /// Member-wise; see the class.
    ScopedFiles& operator=(const ScopedFiles&) = default;
    /// Lets go of the files: one that nobody else shares closes itself.
    ~ScopedFiles();

    /// Appends the file, closed, unless it is in the set already.
    void Add(std::string path);
    /// Takes the file out of the set, if it is in; nothing more happens to it when it is shared.
    void Remove(std::string path);
    /// The file of that path; empty when it is not in the set.
    std::shared_ptr<File> GetFile(std::string path) const;

    /// Opens every file for reading and writing and lets nobody else open it; makes the missing ones. At the first that
    /// does not open (another holds it, or it is open in this set already), logs one error and closes the whole set.
    bool OpenWrite();
    /// Opens every file for reading and lets others only read it, after its attributes were set to normal, so that a
    /// read-only mark is gone for good. At the first that does not open, closes the whole set; nothing is logged.
    bool LockFilesDenyWrite();
    /// Closes every open file of the set as `File::Close` does.
    void Close();

private:
    using Files = std::vector<std::shared_ptr<File>>;

    Files::const_iterator Find(const std::string& path) const;

    IFileWatcher* m_watcher;
    Files m_files; // in the order they were added
};

} // namespace UtilsLib
