#include <UtilsLib/compression/DataSnapshot.h>

#include <UtilsLib/platform/UniqueFileHandle.h>

#include <tests/support/FieldsOf.h>
#include <tests/support/FileFaults.h>
#include <tests/support/Gate.h>
#include <tests/support/ImportPatch.h>
#include <tests/support/OpenHandles.h>
#include <tests/support/SampleCompany.h>
#include <tests/support/ScopedMachineHive.h>
#include <tests/support/TempFolder.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <clocale>
#include <cstdio>
#include <ctime>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using TestSupport::ContentsOf;
using TestSupport::Eventually;
using TestSupport::FieldsOf;
using TestSupport::FileFaults;
using TestSupport::ImportPatch;
using TestSupport::OpenHandles;
using TestSupport::ScopedMachineHive;
using TestSupport::TempFolder;
using TestSupport::WriteSampleCompany;
using UtilsLib::DataSnapshot;
using UtilsLib::DataSnapshotStatus;
using UtilsLib::Platform::UniqueFileHandle;

namespace
{

using Folders = std::vector<std::string>;

struct Fields
{
    std::string datasetPath;
    std::string snapshotPath;
    std::string backupName;
    std::vector<std::shared_ptr<UtilsLib::Directory>> directories;
    Folders recursiveFolders;
    Folders flatFolders;
    bool retain;
};

const Folders kAccounting = {
    "accdata",         "criteria",      "defaults",   "invoices",        "journals",      "memo",
    "taskopt",         "vatrtns",       "fax",        "configs",         "ecsl archives", "rcsl archives",
    "hmrcsubmissions", "vies archives", "dashboards", "InvoiceReminders"};
constexpr char kCompanyFolder[] = "accdata\\..";

// Folders that the library asked to be made, with a stand-in that makes none.
std::vector<std::string> g_made;

BOOL WINAPI PretendToMakeFolder(const char* path, SECURITY_ATTRIBUTES*)
{
    g_made.emplace_back(path);
    return TRUE;
}

/// The folders that these flags choose, in the order in which they are copied.
Folders ChosenBy(int flags)
{
    g_made.clear();
    const ImportPatch patch("KERNEL32.dll", "CreateDirectoryA", &PretendToMakeFolder);
    DataSnapshot snapshot("x:\\no such company", flags);
    EXPECT_EQ(snapshot.Enumerate("x:\\no such root"), DataSnapshotStatus::Success);
    unsigned long error = 0;
    EXPECT_TRUE(snapshot.Execute(error));
    const std::size_t fixed = snapshot.GetSnapshotPath().size() + 1;
    EXPECT_EQ(g_made.front(), snapshot.GetSnapshotPath());
    Folders folders;
    for (std::size_t i = 1; i < g_made.size(); ++i)
    {
        folders.push_back(g_made[i].substr(fixed));
    }
    return folders;
}

Folders operator+(Folders left, const Folders& right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

/// A company below "company", snapshots below "snapshots", and a product key of the test's own.
class DataSnapshotTest : public testing::Test
{
protected:
    DataSnapshotTest()
    {
        WriteSampleCompany(m_root, "company");
        m_root.MakeFolder("snapshots");
    }

    std::string Company() const
    {
        return m_root / "company";
    }
    std::string Snapshots() const
    {
        return m_root / "snapshots";
    }
    std::vector<std::string> Left() const
    {
        return m_root.Tree("snapshots");
    }

    ScopedMachineHive m_machine;
    TempFolder m_root;
    unsigned long m_error = 99;
};

} // namespace

// --- choosing

TEST_F(DataSnapshotTest, TheFlagsChooseFoldersInAFixedOrder)
{
    const Folders layouts = {"layouts", "labels", "letters", "template"};
    const Folders pictures = {"bitmaps", "accdata\\images"};
    const struct
    {
        int flags;
        Folders folders;
    } cases[] = {
        {0, {"accdata"}},
        {0x1, Folders{kCompanyFolder} + kAccounting},
        {0x2, {"reports"}},
        {0x4, Folders{kCompanyFolder} + layouts},
        {0x8, Folders{kCompanyFolder} + pictures},
        {0x10, {"archives"}},
        {0x20, {"tmail"}},
        {0x40, {}},
        {0x80, {"attachments"}},
        {0x100, {"cis"}},
        {0x200, {"Transaction Attachments"}},
        {0x400, {}},
        {0x1 | 0x4 | 0x8, Folders{kCompanyFolder} + kAccounting + layouts + pictures},
        {0x80 | 0x8 | 0x4 | 0x2, Folders{kCompanyFolder, "reports"} + layouts + Folders{"attachments"} + pictures},
        {0x300 | 0x30 | 0x80, {"attachments", "archives", "tmail", "cis", "Transaction Attachments"}},
        {-1, Folders{kCompanyFolder} + kAccounting + Folders{"reports"} + layouts + Folders{"attachments"} + pictures +
                 Folders{"archives", "tmail", "cis", "Transaction Attachments"}},
    };

    for (const auto& [flags, folders] : cases)
    {
        EXPECT_THAT(ChosenBy(flags), ElementsAreArray(folders)) << std::hex << flags;
    }
}

TEST_F(DataSnapshotTest, TheDatasetPathIsLowerCasedWithASeparatorAdded)
{
    EXPECT_EQ(DataSnapshot("C:\\Data\\Company", 0).GetDatasetPath(), "c:\\data\\company\\");
    EXPECT_EQ(DataSnapshot("C:\\Data\\Company\\", 0).GetDatasetPath(), "c:\\data\\company\\\\");
    EXPECT_EQ(DataSnapshot("", 0).GetDatasetPath(), "\\");
    EXPECT_EQ(DataSnapshot("C:\\M\xDCLLER", 0).GetDatasetPath(), "c:\\m\xDCller\\") << "the C locale knows ASCII only";
}

TEST_F(DataSnapshotTest, LowerCaseFollowsTheCLibrarysLocale)
{
    if (std::setlocale(LC_CTYPE, "English_United States.1252") == nullptr)
    {
        GTEST_SKIP() << "this system has no such locale";
    }
    EXPECT_EQ(DataSnapshot("C:\\M\xDCLLER", 0).GetDatasetPath(), "c:\\m\xFCller\\");
    std::setlocale(LC_CTYPE, "C");
}

TEST_F(DataSnapshotTest, ConstructionTouchesNothing)
{
    {
        const FileFaults counted(0);
        const DataSnapshot snapshot(Company(), 0x1);
        EXPECT_THAT(counted.Calls(), IsEmpty());
        EXPECT_EQ(snapshot.GetSnapshotPath(), "");
        EXPECT_EQ(snapshot.GetBackupFilename(), "");
    }
    EXPECT_THAT(Left(), IsEmpty());
}

TEST_F(DataSnapshotTest, TheFieldsStandInTheirOrder)
{
    m_machine.SetDword("hx41svc_retainss", 1);
    DataSnapshot snapshot(Company(), 0x4 | 0x8);
    ASSERT_EQ(snapshot.Enumerate(Snapshots()), DataSnapshotStatus::Success);

    const Fields& fields = FieldsOf<Fields>(snapshot);
    EXPECT_EQ(fields.datasetPath, snapshot.GetDatasetPath());
    EXPECT_EQ(fields.snapshotPath, snapshot.GetSnapshotPath());
    EXPECT_EQ(fields.backupName, snapshot.GetBackupFilename());
    EXPECT_EQ(fields.directories.size(), 7u);
    EXPECT_THAT(fields.recursiveFolders,
                ElementsAre("layouts", "labels", "letters", "template", "bitmaps", "accdata\\images"));
    EXPECT_THAT(fields.flatFolders, ElementsAre(kCompanyFolder));
    EXPECT_TRUE(fields.retain);
}

TEST_F(DataSnapshotTest, StatusValuesAreThoseOfTheSuite)
{
    static_assert(sizeof(DataSnapshotStatus) == 4);
    EXPECT_EQ(static_cast<int>(DataSnapshotStatus::Success), 0);
    EXPECT_EQ(static_cast<int>(DataSnapshotStatus::FolderNotCreated), 3);
}

// --- making the snapshot folder

TEST_F(DataSnapshotTest, TheSnapshotFolderIsNamedAfterTheLocalTime)
{
    DataSnapshot snapshot(Company(), 0x40);
    SYSTEMTIME before = {};
    SYSTEMTIME after = {};
    GetLocalTime(&before);
    ASSERT_EQ(snapshot.Enumerate(Snapshots()), DataSnapshotStatus::Success);
    GetLocalTime(&after);

    const auto name = [](const SYSTEMTIME& time) {
        char text[64] = "";
        std::snprintf(text, sizeof(text), "%04d-%02d-%02d %02d-%02d-%02d-%03d", time.wYear, time.wMonth, time.wDay,
                      time.wHour, time.wMinute, time.wSecond, time.wMilliseconds);
        return std::string(text);
    };
    EXPECT_GE(snapshot.GetBackupFilename(), name(before));
    EXPECT_LE(snapshot.GetBackupFilename(), name(after));
    EXPECT_EQ(snapshot.GetSnapshotPath(), Snapshots() + "\\" + snapshot.GetBackupFilename());
    EXPECT_THAT(Left(), ElementsAre(snapshot.GetBackupFilename() + "\\"));
}

namespace
{

// 23:59:59.999 on 15 November 2026, local time, at the first question; every question moves it on by a step.
__time64_t g_seconds = 0;
int g_milliseconds = 0;
int g_step = 0;

void StopTheClockBeforeMidnight(int step)
{
    g_step = step;
    std::tm last = {};
    last.tm_year = 2026 - 1900;
    last.tm_mon = 10;
    last.tm_mday = 15;
    last.tm_hour = 23;
    last.tm_min = last.tm_sec = 59;
    last.tm_isdst = -1;
    g_seconds = _mktime64(&last);
    g_milliseconds = 999;
}

__time64_t Seconds(__time64_t*)
{
    return g_seconds;
}

void WINAPI LocalTime(SYSTEMTIME* now)
{
    std::tm fields = {};
    _localtime64_s(&fields, &g_seconds);
    *now = {};
    now->wYear = static_cast<WORD>(fields.tm_year + 1900);
    now->wMonth = static_cast<WORD>(fields.tm_mon + 1);
    now->wDay = static_cast<WORD>(fields.tm_mday);
    now->wHour = static_cast<WORD>(fields.tm_hour);
    now->wMinute = static_cast<WORD>(fields.tm_min);
    now->wSecond = static_cast<WORD>(fields.tm_sec);
    now->wMilliseconds = static_cast<WORD>(g_milliseconds);
    g_milliseconds += g_step;
    g_seconds += g_milliseconds / 1000;
    g_milliseconds %= 1000;
}

} // namespace

TEST_F(DataSnapshotTest, DateAndTimeInTheNameAreOfOneDayAtMidnight)
{
    StopTheClockBeforeMidnight(2);
    DataSnapshot snapshot(Company(), 0x40);
    {
        const ImportPatch seconds("msvcrt.dll", "_time64", &Seconds);
        const ImportPatch local("KERNEL32.dll", "GetLocalTime", &LocalTime);
        ASSERT_EQ(snapshot.Enumerate(Snapshots()), DataSnapshotStatus::Success);
    }
    EXPECT_EQ(snapshot.GetBackupFilename(), "2026-11-16 00-00-00-001");
}

TEST_F(DataSnapshotTest, TwoSnapshotsOfOneMillisecondDoNotShareAFolder)
{
    StopTheClockBeforeMidnight(0);
    const ImportPatch seconds("msvcrt.dll", "_time64", &Seconds);
    const ImportPatch local("KERNEL32.dll", "GetLocalTime", &LocalTime);
    DataSnapshot first(Company(), 0);
    ASSERT_EQ(first.Enumerate(Snapshots()), DataSnapshotStatus::Success);
    ASSERT_TRUE(first.Execute(m_error));
    {
        DataSnapshot second(Company(), 0x2);
        EXPECT_EQ(second.Enumerate(Snapshots()), DataSnapshotStatus::FolderNotCreated);
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ALREADY_EXISTS));
        EXPECT_TRUE(second.Execute(m_error));
        EXPECT_EQ(second.GetSnapshotPath(), first.GetSnapshotPath());
    }
    EXPECT_EQ(ContentsOf(first.GetSnapshotPath() + "\\accdata"), ContentsOf(Company() + "\\accdata"));
    EXPECT_FALSE(m_root.Exists("snapshots\\2026-11-15 23-59-59-999\\reports"));
}

TEST_F(DataSnapshotTest, FlagsThatChooseNothingStillMakeAndRemoveTheFolder)
{
    {
        DataSnapshot snapshot(Company(), 0x40);
        EXPECT_EQ(snapshot.Enumerate(Snapshots()), DataSnapshotStatus::Success);
        EXPECT_TRUE(snapshot.Execute(m_error));
        EXPECT_THAT(Left(), ElementsAre(snapshot.GetBackupFilename() + "\\"));
    }
    EXPECT_THAT(Left(), IsEmpty());
}

TEST_F(DataSnapshotTest, WithoutItsRootTheSnapshotIsNotMade)
{
    const auto before = ContentsOf(Company());
    {
        DataSnapshot snapshot(Company(), 0x1);
        EXPECT_EQ(snapshot.Enumerate(m_root / "no such folder"), DataSnapshotStatus::FolderNotCreated);
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_PATH_NOT_FOUND));
        EXPECT_EQ(snapshot.GetSnapshotPath(), m_root / "no such folder\\" + snapshot.GetBackupFilename());
        EXPECT_TRUE(snapshot.Execute(m_error));
    }
    EXPECT_FALSE(m_root.Exists("no such folder"));
    EXPECT_EQ(ContentsOf(Company()), before);
}

TEST_F(DataSnapshotTest, ExecuteBeforeEnumerateDoesNothing)
{
    {
        const FileFaults counted(0);
        DataSnapshot snapshot(Company(), 0x1);
        EXPECT_TRUE(snapshot.Execute(m_error));
        EXPECT_THAT(counted.Calls(), IsEmpty());
    }
    EXPECT_EQ(m_error, 99u);
}

TEST_F(DataSnapshotTest, EnumerateListsAndCopiesNothingYet)
{
    DataSnapshot snapshot(Company(), 0x1);
    const FileFaults counted(0);

    EXPECT_EQ(snapshot.Enumerate(Snapshots()), DataSnapshotStatus::Success);

    EXPECT_THAT(counted.Calls(), ElementsAre("CreateDirectoryA " + snapshot.GetSnapshotPath()));
}

// --- copying

TEST_F(DataSnapshotTest, FlagsZeroCopyAccdataWithItsSubFolders)
{
    DataSnapshot snapshot(Company(), 0);
    ASSERT_EQ(snapshot.Enumerate(Snapshots()), DataSnapshotStatus::Success);

    ASSERT_TRUE(snapshot.Execute(m_error)) << m_error;

    auto expected = ContentsOf(Company() + "\\accdata");
    EXPECT_THAT(ContentsOf(snapshot.GetSnapshotPath() + "\\accdata"), expected);
    EXPECT_EQ(m_root.Tree("snapshots\\" + snapshot.GetBackupFilename()).size(), expected.size() + 1);
}

TEST_F(DataSnapshotTest, AccountingDataIsCopiedWithTheCompanysOwnFiles)
{
    DataSnapshot snapshot(Company(), 0x1);
    ASSERT_EQ(snapshot.Enumerate(Snapshots()), DataSnapshotStatus::Success);

    ASSERT_TRUE(snapshot.Execute(m_error)) << m_error;

    std::map<std::string, std::string> expected;
    for (const std::string& folder : kAccounting)
    {
        expected[folder + "\\"]; // those that the company does not have are empty ones
    }
    for (const auto& [path, content] : ContentsOf(Company()))
    {
        if (path.find('\\') == std::string::npos || path.starts_with("accdata\\") || path.starts_with("invoices\\") ||
            path.starts_with("InvoiceReminders\\"))
        {
            expected[path] = content;
        }
    }
    EXPECT_EQ(ContentsOf(snapshot.GetSnapshotPath()), expected);
}

TEST_F(DataSnapshotTest, EverythingIsCopiedAndUndoneAndTheCompanyIsAsItWas)
{
    m_root.Write("bystander.txt", "stays");
    const auto before = ContentsOf(Company());
    const unsigned long handles = OpenHandles();
    {
        DataSnapshot snapshot(Company(), 0x3BF);
        ASSERT_EQ(snapshot.Enumerate(Snapshots()), DataSnapshotStatus::Success);
        ASSERT_TRUE(snapshot.Execute(m_error)) << m_error;
        auto copy = ContentsOf(snapshot.GetSnapshotPath());
        for (const auto& [path, content] : before)
        {
            EXPECT_EQ(copy.count(path), path.starts_with("private\\") ? 0u : 1u) << path;
            EXPECT_TRUE(copy[path] == content || path.starts_with("private\\")) << path;
        }
    }
    EXPECT_THAT(Left(), IsEmpty());
    EXPECT_EQ(ContentsOf(Company()), before);
    EXPECT_EQ(OpenHandles(), handles);
    EXPECT_EQ(m_root.Read("bystander.txt"), "stays");
}

TEST_F(DataSnapshotTest, FlatFoldersAreCopiedBeforeRecursiveOnes)
{
    DataSnapshot snapshot(Company(), 0x1 | 0x2);
    ASSERT_EQ(snapshot.Enumerate(Snapshots()), DataSnapshotStatus::Success);
    const FileFaults counted(0);

    ASSERT_TRUE(snapshot.Execute(m_error));

    const std::string company = snapshot.GetDatasetPath();
    EXPECT_EQ(counted.Calls().front(), "FindFirstFileA " + company + "\\accdata\\..\\*.*");
    EXPECT_EQ(std::count(counted.Calls().begin(), counted.Calls().end(), "FindFirstFileA " + company + "\\memo\\*.*"),
              1);
}

TEST_F(DataSnapshotTest, PicturesWithoutAccdataFailWithTheSystemsError)
{
    {
        DataSnapshot snapshot(Company(), 0x8);
        ASSERT_EQ(snapshot.Enumerate(Snapshots()), DataSnapshotStatus::Success);

        EXPECT_FALSE(snapshot.Execute(m_error));

        EXPECT_EQ(m_error, static_cast<unsigned long>(ERROR_PATH_NOT_FOUND));
        EXPECT_TRUE(m_root.Exists("snapshots\\" + snapshot.GetBackupFilename() + "\\bitmaps\\paid.bmp"));
    }
    EXPECT_THAT(Left(), IsEmpty());
}

TEST_F(DataSnapshotTest, PicturesAreCopiedWithAccdata)
{
    {
        DataSnapshot snapshot(Company(), 0x1 | 0x8);
        ASSERT_EQ(snapshot.Enumerate(Snapshots()), DataSnapshotStatus::Success);

        EXPECT_TRUE(snapshot.Execute(m_error)) << m_error;

        EXPECT_EQ(ContentsOf(snapshot.GetSnapshotPath() + "\\accdata"), ContentsOf(Company() + "\\accdata"));
    }
    EXPECT_THAT(Left(), IsEmpty());
}

TEST_F(DataSnapshotTest, ExecuteStopsAtTheFirstFolderThatFails)
{
    const UniqueFileHandle writer(CreateFileA((Company() + "\\reports\\list.rpt").c_str(), GENERIC_WRITE,
                                              FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr));
    ASSERT_TRUE(writer);
    {
        DataSnapshot snapshot(Company(), 0x2 | 0x4 | 0x80);
        ASSERT_EQ(snapshot.Enumerate(Snapshots()), DataSnapshotStatus::Success);
        const FileFaults counted(0);

        EXPECT_FALSE(snapshot.Execute(m_error));

        EXPECT_EQ(m_error, 0u);
        for (const std::string& call : counted.Calls())
        {
            EXPECT_EQ(call.find("layouts"), std::string::npos) << "neither listed nor copied";
        }
        EXPECT_TRUE(m_root.Exists("snapshots\\" + snapshot.GetBackupFilename() + "\\company.ini"));
    }
    EXPECT_THAT(Left(), IsEmpty());
}

TEST_F(DataSnapshotTest, ReportsWrittenIntoTheSnapshotAreRemovedWithIt)
{
    {
        DataSnapshot snapshot(Company(), 0);
        ASSERT_EQ(snapshot.Enumerate(Snapshots()), DataSnapshotStatus::Success);
        ASSERT_TRUE(snapshot.Execute(m_error));
        const std::string folder = "snapshots\\" + snapshot.GetBackupFilename();
        m_root.Write(folder + "\\accdata\\errors.rpt", "1");
        m_root.Write(folder + "\\accdata\\warnings.rpt", "2");
        m_root.Write(folder + "\\accdata\\comments.rpt", "3");
        m_root.Write(folder + "\\seed.dat", "4");
    }
    EXPECT_THAT(Left(), IsEmpty());
}

TEST_F(DataSnapshotTest, ForeignFilesInTheSnapshotStayWithTheirFolders)
{
    std::string folder;
    {
        DataSnapshot snapshot(Company(), 0);
        ASSERT_EQ(snapshot.Enumerate(Snapshots()), DataSnapshotStatus::Success);
        ASSERT_TRUE(snapshot.Execute(m_error));
        folder = snapshot.GetBackupFilename();
        m_root.Write("snapshots\\" + folder + "\\accdata\\notes.txt", "mine");
    }
    EXPECT_THAT(Left(), ElementsAre(folder + "\\", folder + "\\accdata\\", folder + "\\accdata\\notes.txt"));
}

// --- the retain switch

TEST_F(DataSnapshotTest, WithTheRetainSwitchOnTheSnapshotStays)
{
    m_machine.SetDword("hx41svc_retainss", 1);
    std::string path;
    {
        DataSnapshot snapshot(Company(), 0x1);
        m_machine.SetDword("hx41svc_retainss", 0); // read at construction, once
        ASSERT_EQ(snapshot.Enumerate(Snapshots()), DataSnapshotStatus::Success);
        ASSERT_TRUE(snapshot.Execute(m_error));
        path = snapshot.GetSnapshotPath();
    }
    EXPECT_EQ(ContentsOf(path + "\\accdata"), ContentsOf(Company() + "\\accdata"));
    EXPECT_EQ(ContentsOf(path).count("company.ini"), 1u) << "of the company's own folder";
}

TEST_F(DataSnapshotTest, WithTheRetainSwitchOnAnEmptySnapshotFolderIsStillRemoved)
{
    m_machine.SetDword("hx41svc_retainss", 1);
    {
        DataSnapshot snapshot(Company(), 0x40);
        ASSERT_EQ(snapshot.Enumerate(Snapshots()), DataSnapshotStatus::Success);
    }
    EXPECT_THAT(Left(), IsEmpty());
}

TEST_F(DataSnapshotTest, OnlyANumberOtherThanZeroRetains)
{
    const auto staysBehind = [this] {
        {
            DataSnapshot snapshot(Company(), 0);
            EXPECT_EQ(snapshot.Enumerate(Snapshots()), DataSnapshotStatus::Success);
            EXPECT_TRUE(snapshot.Execute(m_error));
        }
        return !Left().empty();
    };

    EXPECT_FALSE(staysBehind()) << "absent";
    m_machine.SetDword("hx41svc_retainss", 0);
    EXPECT_FALSE(staysBehind()) << "0";
    m_machine.SetText("hx41svc_retainss", "yes, please");
    EXPECT_FALSE(staysBehind()) << "a text that is no number's size";
    m_machine.DeleteProductKey();
    EXPECT_FALSE(staysBehind()) << "no product key";
    m_machine.MakeProductKey();
    m_machine.SetDword("hx41svc_retainss", 0x80000000);
    EXPECT_TRUE(staysBehind()) << "any bit";
}

// --- clean-up, copies, repeated calls

TEST_F(DataSnapshotTest, CleanUpRemovesOnlyAnEmptyFolder)
{
    DataSnapshot snapshot(Company(), 0);
    {
        const FileFaults counted(0);
        snapshot.CleanUpSnapshot();
        EXPECT_THAT(counted.Calls(), IsEmpty()) << "there is no folder yet";
    }
    ASSERT_EQ(snapshot.Enumerate(Snapshots()), DataSnapshotStatus::Success);
    ASSERT_TRUE(snapshot.Execute(m_error));

    snapshot.CleanUpSnapshot();
    EXPECT_TRUE(m_root.Exists("snapshots\\" + snapshot.GetBackupFilename() + "\\accdata\\ledger.dat"));

    DataSnapshot empty(Company(), 0x40);
    ASSERT_EQ(empty.Enumerate(Snapshots()), DataSnapshotStatus::Success);
    empty.CleanUpSnapshot();
    EXPECT_FALSE(m_root.Exists("snapshots\\" + empty.GetBackupFilename()));
    EXPECT_EQ(empty.GetSnapshotPath(), Snapshots() + "\\" + empty.GetBackupFilename());

    const FileFaults counted(0);
    empty.CleanUpSnapshot();
    EXPECT_THAT(counted.Calls(), ElementsAre("GetFileAttributesA " + empty.GetSnapshotPath())) << "it is gone already";
}

TEST_F(DataSnapshotTest, CleanUpLeavesAFileInThePlaceOfTheFolder)
{
    DataSnapshot snapshot(Company(), 0x40);
    ASSERT_EQ(snapshot.Enumerate(Snapshots()), DataSnapshotStatus::Success);
    RemoveDirectoryA(snapshot.GetSnapshotPath().c_str());
    m_root.Write("snapshots\\" + snapshot.GetBackupFilename(), "a file");
    const FileFaults counted(0);

    snapshot.CleanUpSnapshot();

    EXPECT_THAT(counted.Calls(), ElementsAre("GetFileAttributesA " + snapshot.GetSnapshotPath()));
}

TEST_F(DataSnapshotTest, CopiesShareTheSnapshotAndTheLastOneUndoesIt)
{
    auto first = std::make_unique<DataSnapshot>(Company(), 0);
    ASSERT_EQ(first->Enumerate(Snapshots()), DataSnapshotStatus::Success);
    ASSERT_TRUE(first->Execute(m_error));
    auto second = std::make_unique<DataSnapshot>(*first);
    DataSnapshot third("c:\\other", 0x40);
    third = *first;

    EXPECT_EQ(second->GetSnapshotPath(), first->GetSnapshotPath());
    EXPECT_EQ(third.GetBackupFilename(), first->GetBackupFilename());
    EXPECT_EQ(third.GetDatasetPath(), first->GetDatasetPath());
    first.reset();
    second.reset();
    EXPECT_EQ(ContentsOf(third.GetSnapshotPath() + "\\accdata"), ContentsOf(Company() + "\\accdata"));

    third = DataSnapshot("c:\\other", 0x40);
    EXPECT_EQ(Left().size(), 1u) << "an assigned object no longer knows the folder, but its copies are undone";
}

TEST_F(DataSnapshotTest, ASecondEnumerateAddsASecondSnapshotAndLeavesTheFirstFolder)
{
    std::string first;
    {
        DataSnapshot snapshot(Company(), 0);
        ASSERT_EQ(snapshot.Enumerate(Snapshots()), DataSnapshotStatus::Success);
        first = snapshot.GetBackupFilename();
        // Refused until the clock gives a name of its own.
        ASSERT_TRUE(Eventually([&] { return snapshot.Enumerate(Snapshots()) == DataSnapshotStatus::Success; }));
        ASSERT_NE(snapshot.GetBackupFilename(), first);

        EXPECT_TRUE(snapshot.Execute(m_error));

        EXPECT_TRUE(m_root.Exists("snapshots\\" + first + "\\accdata\\ledger.dat"));
        EXPECT_TRUE(m_root.Exists("snapshots\\" + snapshot.GetBackupFilename() + "\\accdata\\ledger.dat"));
    }
    EXPECT_THAT(Left(), ElementsAre(first + "\\")) << "empty: its copies are undone";
}

TEST_F(DataSnapshotTest, ASecondExecuteRefreshesTheCopyAndAllOfItIsUndone)
{
    {
        DataSnapshot snapshot(Company(), 0);
        ASSERT_EQ(snapshot.Enumerate(Snapshots()), DataSnapshotStatus::Success);
        ASSERT_TRUE(snapshot.Execute(m_error));
        m_root.Write("company\\accdata\\ledger.dat", "changed");
        DeleteFileA((Company() + "\\accdata\\queue.dat").c_str());

        EXPECT_TRUE(snapshot.Execute(m_error)) << m_error;

        EXPECT_EQ(m_root.Read("snapshots\\" + snapshot.GetBackupFilename() + "\\accdata\\ledger.dat"), "changed");
    }
    EXPECT_THAT(Left(), IsEmpty());
}

TEST_F(DataSnapshotTest, DestructionKeepsTheLastError)
{
    std::optional<DataSnapshot> snapshot(std::in_place, Company(), 0);
    ASSERT_EQ(snapshot->Enumerate(Snapshots()), DataSnapshotStatus::Success);
    ASSERT_TRUE(snapshot->Execute(m_error));

    m_root.Write("snapshots\\" + snapshot->GetBackupFilename() + "\\notes.txt", "so that the folder cannot be removed");

    SetLastError(4711);
    snapshot.reset();

    EXPECT_EQ(GetLastError(), 4711u);
    EXPECT_EQ(Left().size(), 2u);
}
