#pragma once

#include <UtilsLib/Export.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace UtilsLib
{

class Directory;

/// What `DataSnapshot::Enumerate` answers; 1 and 2 are not used.
enum class DataSnapshotStatus : std::int32_t
{
    Success = 0,          ///< the snapshot folder is there
    FolderNotCreated = 3, ///< nothing was made; the reason is in GetLastError
};

/// A temporary copy of some folders of one company, in a folder named after the local time, that lives as long as the
/// object: the destructor undoes it unless the product key's "hx41svc_retainss" was a number other than 0.
///
/// `Enumerate` makes the snapshot folder, `Execute` fills it. Copies of the object are member-wise, on purpose: they
/// share the copied folders, and the last one undoes them. Belongs to one thread.
class UTILSLIB_API DataSnapshot
{
public:
    /// Chooses the folders and reads the registry switch; touches no file. `datasetPath` is the company's folder.
    ///
    /// `flags` 0 chooses "accdata" alone; else each bit adds its folders, with all their sub-folders: 0x1 accounting
    /// data, 0x2 reports, 0x4 layouts, 0x80 attachments, 0x8 pictures, 0x10 archives, 0x20 mail, 0x100 the construction
    /// scheme, 0x200 transaction attachments. 0x1, 0x4 and 0x8 also choose the files directly in the company's folder.
    /// 0x8 needs "accdata" in the snapshot, so without 0x1 its `Execute` fails.
    DataSnapshot(const std::string& datasetPath, const int& flags);
    /// Member-wise; see the class.
    DataSnapshot(const DataSnapshot&) = default;
    /// Member-wise; see the class.
    DataSnapshot& operator=(const DataSnapshot&) = default;
    /// Undoes the copies as `Directory` does, unless they are retained, then calls `CleanUpSnapshot`. Never throws;
    /// keeps the thread's last error.
    ~DataSnapshot();

    /// Makes a folder for the present time, such as "2026-11-15 04-38-29-123", in the existing folder `snapshotRoot`
    /// and gets the chosen folders ready. FolderNotCreated when it cannot be made, also when it is there already; the
    /// reason is in GetLastError. A second call adds a second snapshot and leaves the first folder to the caller.
    DataSnapshotStatus Enumerate(const std::string& snapshotRoot);

    /// Copies the folders in order, and stops at the first that fails, with what was copied so far left in place. On
    /// false, `error` is the system's code, or 0 when a file of the company could not be held against writers; on true
    /// it means nothing. True without effect before a successful `Enumerate`. A chosen folder that the company does not
    /// have becomes an empty one.
    bool Execute(unsigned long& error);

    /// Removes the snapshot folder if it is empty.
    void CleanUpSnapshot();

    /// Empty before `Enumerate`.
    std::string GetSnapshotPath() const;
    /// The company's folder in lower case, with a separator added at its end, also where it had one.
    std::string GetDatasetPath() const;
    /// The snapshot folder's plain name; empty before `Enumerate`.
    std::string GetBackupFilename() const;

private:
    void ChooseFolders(int flags);
    void AddDirectories(const std::vector<std::string>& folders, bool recursive);

    std::string m_datasetPath;
    std::string m_snapshotPath;
    std::string m_backupName;
    std::vector<std::shared_ptr<Directory>> m_directories; // in the order they were made
    std::vector<std::string> m_recursiveFolders;           // relative to the dataset path
    std::vector<std::string> m_flatFolders;                // of these only the files directly inside are copied
    bool m_retain = false;
};

} // namespace UtilsLib
