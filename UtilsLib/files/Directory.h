#pragma once

#include <UtilsLib/Export.h>

#include <memory>
#include <string>
#include <vector>

namespace UtilsLib
{

/// A reversible copy of one folder: made by `Execute`, undone by the destructor unless it is to be kept.
///
/// The source files are held against writers while they are copied. Paths are in the ANSI code page and at most 259
/// characters long; entries whose names that code page cannot represent are left out, as are links to a folder above
/// themselves. Copies of the object are member-wise, on purpose: they share the children, and each undoes its own
/// level. A tree belongs to one thread.
class UTILSLIB_API Directory
{
public:
    /// The folder `relativeName` in `sourceRoot` is to become the one of the same name in `destinationRoot`. `keep`
    /// false undoes the copy on destruction. Roots stand without a separator at their end. Touches no file.
    Directory(const std::string& sourceRoot, const std::string& relativeName, const std::string& destinationRoot,
              const bool& keep);
    /// Member-wise; see the class.
    Directory(const Directory&) = default;
    /// Member-wise; see the class.
    Directory& operator=(const Directory&) = default;
    /// Releases the children, so that the tree is undone from its leaves up, then undoes this level unless it is to be
    /// kept, also when nothing was copied: deletes what was copied (also where it replaced a file), for the folder
    /// "accdata" its three reports, at every level "seed.dat" in the destination root, and the destination folder if
    /// that leaves it empty. Failures are passed over. Never throws; keeps the thread's last error.
    ~Directory();

    /// Lists the folder, with its sub-folders if it is recursive, and copies it. An earlier listing is dropped first;
    /// what was copied from it is still undone by the destructor.
    ///
    /// On false, `error` is the system's code of the step that failed, or 0 when a source file could not be held
    /// against writers (then GetLastError tells why), and what was copied so far stays until destruction. On true it
    /// means nothing: a destination folder that was there already leaves it at 183.
    bool Execute(unsigned long& error);

    /// Adds the folder's files, and if `recursive` its sub-folders with all theirs, to what is listed already. A folder
    /// that cannot be read lists nothing; that is not reported. A name that Windows replaces by a similar one of the
    /// code page is listed as that one, and fails the copy unless there is such a file.
    void Enumerate(bool recursive);

    /// Plain names of the files listed in the folder itself, in listing order.
    std::vector<std::string> GetFiles() const;

    /// Whether `Execute` takes the sub-folders too; true at first.
    void SetIsRecursive(bool recursive);
    /// Whether `Execute` takes the sub-folders too.
    bool GetIsRecursive() const;

private:
    void AddChild(const std::string& name);
    void DropListing();
    bool CopyTo(unsigned long& error);
    bool CopyFiles(unsigned long& error);
    void UndoCopy() const;
    std::string SourceFolder() const;
    std::string DestinationFolder() const;

    std::string m_sourceRoot;
    std::string m_relativeName;
    std::string m_destinationRoot;
    bool m_keep;
    bool m_recursive = true;
    std::vector<std::shared_ptr<Directory>> m_children; // one a sub-folder, in listing order
    std::vector<std::string> m_files;                   // plain names, in listing order
    std::vector<std::string> m_copiedFiles;             // full destination paths, in copy order

    std::vector<std::shared_ptr<Directory>> m_droppedChildren; // of earlier listings, kept only to undo their copies
};

} // namespace UtilsLib
