#include <UtilsLib/compression/DataSnapshot.h>

#include <UtilsLib/WindowsTypes.h>
#include <UtilsLib/files/Directory.h>
#include <UtilsLib/platform/LastErrorKeeper.h>
#include <UtilsLib/platform/LowerCase.h>
#include <UtilsLib/registry/RegUtils.h>
#include <UtilsLib/time/Time.h>

#include <algorithm>
#include <initializer_list>
#include <utility>

namespace UtilsLib
{

using Platform::LastErrorKeeper;

namespace
{

constexpr int kAccountingData = 0x1;
constexpr int kReports = 0x2;
constexpr int kLayouts = 0x4;
constexpr int kPictures = 0x8;
constexpr int kArchives = 0x10;
constexpr int kMail = 0x20;
constexpr int kAttachments = 0x80;
constexpr int kConstructionScheme = 0x100;
constexpr int kTransactionAttachments = 0x200;

// The company's own folder, as seen from its data.
constexpr char kCompanyFolder[] = "accdata\\..";
constexpr char kRetainSwitch[] = "hx41svc_retainss";

struct Choice
{
    int flag;
    bool filesOfCompany; // the files directly in the company's own folder, too
    std::initializer_list<const char*> folders;
};

// kept: their order is the order of the copies
constexpr Choice kChoices[] = {
    {kAccountingData,
     true,
     {"accdata", "criteria", "defaults", "invoices", "journals", "memo", "taskopt", "vatrtns", "fax", "configs",
      "ecsl archives", "rcsl archives", "hmrcsubmissions", "vies archives", "dashboards", "InvoiceReminders"}},
    {kReports, false, {"reports"}},
    {kLayouts, true, {"layouts", "labels", "letters", "template"}},
    {kAttachments, false, {"attachments"}},
    {kPictures, true, {"bitmaps", "accdata\\images"}},
    {kArchives, false, {"archives"}},
    {kMail, false, {"tmail"}},
    {kConstructionScheme, false, {"cis"}},
    {kTransactionAttachments, false, {"Transaction Attachments"}},
};

void Add(std::vector<std::string>& folders, std::initializer_list<const char*> names)
{
    folders.insert(folders.end(), names.begin(), names.end());
}

void DropRepeatedNeighbours(std::vector<std::string>& folders)
{
    folders.erase(std::unique(folders.begin(), folders.end()), folders.end());
}

bool IsRetained()
{
    unsigned long value = 0;
    return RegUtils::ReadHaldenRegDword(kRetainSwitch, value) && value != 0;
}

std::string MakeBackupName()
{
    std::string date;
    std::string now;
    do
    {
        date = Time::GetDate();
        now = Time::GetTimeNowToMilliseconds();
    } while (date != Time::GetDate()); // at midnight the two would be of different days
    std::replace(now.begin(), now.end(), ':', '-');
    std::replace(now.begin(), now.end(), '.', '-');
    return date + " " + now.substr(now.find(' ') + 1);
}

} // namespace

DataSnapshot::DataSnapshot(const std::string& datasetPath, const int& flags)
    : m_datasetPath(Platform::LowerCase(datasetPath + "\\")), m_retain(IsRetained())
{
    ChooseFolders(flags);
    DropRepeatedNeighbours(m_recursiveFolders);
    DropRepeatedNeighbours(m_flatFolders);
    const auto empty = std::find(m_recursiveFolders.begin(), m_recursiveFolders.end(), "");
    if (empty != m_recursiveFolders.end())
    {
        m_recursiveFolders.erase(empty); // it would stand for the whole company
    }
}

DataSnapshot::~DataSnapshot()
{
    const LastErrorKeeper keep; // a caller that returns false at scope end still wants the reason
    m_directories.clear();
    CleanUpSnapshot();
}

DataSnapshotStatus DataSnapshot::Enumerate(const std::string& snapshotRoot)
{
    m_backupName = MakeBackupName();
    m_snapshotPath = snapshotRoot + "\\" + m_backupName;
    if (!CreateDirectoryA(m_snapshotPath.c_str(), nullptr))
    {
        return DataSnapshotStatus::FolderNotCreated;
    }
    AddDirectories(m_flatFolders, false);
    AddDirectories(m_recursiveFolders, true);
    return DataSnapshotStatus::Success;
}

bool DataSnapshot::Execute(unsigned long& error)
{
    return std::all_of(m_directories.begin(), m_directories.end(),
                       [&error](const std::shared_ptr<Directory>& directory) { return directory->Execute(error); });
}

void DataSnapshot::CleanUpSnapshot()
{
    if (m_snapshotPath.empty())
    {
        return;
    }
    const unsigned long attributes = GetFileAttributesA(m_snapshotPath.c_str());
    if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0)
    {
        RemoveDirectoryA(m_snapshotPath.c_str()); // only succeeds when nothing was kept or left in it
    }
}

std::string DataSnapshot::GetSnapshotPath() const
{
    return m_snapshotPath;
}

std::string DataSnapshot::GetDatasetPath() const
{
    return m_datasetPath;
}

std::string DataSnapshot::GetBackupFilename() const
{
    return m_backupName;
}

void DataSnapshot::ChooseFolders(int flags)
{
    if (flags == 0)
    {
        Add(m_recursiveFolders, {"accdata"});
    }
    for (const Choice& choice : kChoices)
    {
        if ((flags & choice.flag) == 0)
        {
            continue;
        }
        if (choice.filesOfCompany)
        {
            Add(m_flatFolders, {kCompanyFolder});
        }
        Add(m_recursiveFolders, choice.folders);
    }
}

void DataSnapshot::AddDirectories(const std::vector<std::string>& folders, bool recursive)
{
    for (const std::string& folder : folders)
    {
        auto directory = std::make_shared<Directory>(m_datasetPath, folder, m_snapshotPath, m_retain);
        directory->SetIsRecursive(recursive);
        m_directories.push_back(std::move(directory));
    }
}

} // namespace UtilsLib
