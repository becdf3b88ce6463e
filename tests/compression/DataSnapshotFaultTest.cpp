// What is left of a company, and of its snapshot, when the disk fails or the process ends at any one moment.
#include <UtilsLib/compression/DataSnapshot.h>

#include <UtilsLib/platform/UniqueFileHandle.h>

#include <tests/support/ChildProcess.h>
#include <tests/support/FileFaults.h>
#include <tests/support/OpenHandles.h>
#include <tests/support/SampleCompany.h>
#include <tests/support/ScopedMachineHive.h>
#include <tests/support/TempFolder.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <set>
#include <string>

using testing::IsEmpty;
using TestSupport::ContentsOf;
using TestSupport::FileFaults;
using TestSupport::LastErrorText;
using TestSupport::OpenHandles;
using TestSupport::RunChild;
using TestSupport::ScopedMachineHive;
using TestSupport::TempFolder;
using TestSupport::WriteSampleCompany;
using UtilsLib::DataSnapshot;
using UtilsLib::DataSnapshotStatus;
using UtilsLib::Platform::UniqueFileHandle;

namespace
{

constexpr int kMostCalls = 1000;

struct Outcome
{
    std::string faulted; // the operation that failed; empty when the run had fewer
    DataSnapshotStatus status = DataSnapshotStatus::Success;
    bool copied = false;
    unsigned long error = 99;
    bool undoing = false; // the fault came after Execute
};

class DataSnapshotFaultTest : public testing::Test
{
protected:
    DataSnapshotFaultTest()
    {
        WriteSampleCompany(m_root, "company");
        m_root.MakeFolder("snapshots");
        m_company = ContentsOf(m_root / "company");
    }

    Outcome TakeSnapshot(int flags, int faultAt) const
    {
        Outcome outcome;
        const FileFaults faults(faultAt);
        {
            DataSnapshot snapshot(m_root / "company", flags);
            outcome.status = snapshot.Enumerate(m_root / "snapshots");
            outcome.copied = snapshot.Execute(outcome.error);
            outcome.undoing = faults.Faulted().empty();
        }
        outcome.faulted = faults.Faulted();
        return outcome;
    }

    void ExpectTheCompanyToBeWhole(const std::string& when) const
    {
        EXPECT_EQ(ContentsOf(m_root / "company"), m_company) << when;
        for (const auto& [path, content] : m_company)
        {
            if (path.back() == '\\')
            {
                continue;
            }
            const UniqueFileHandle file(CreateFileA((m_root / ("company\\" + path)).c_str(), GENERIC_WRITE, 0, nullptr,
                                                    OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
            EXPECT_TRUE(file) << when << ": " << path << " is still locked: " << LastErrorText("CreateFileA");
        }
    }

    void RemoveLeftOvers() const
    {
        std::filesystem::remove_all(m_root / "snapshots");
        m_root.MakeFolder("snapshots");
    }

    /// Fails every file operation of a snapshot in turn.
    void FailEveryOperation(int flags);

    ScopedMachineHive m_machine;
    TempFolder m_root;
    std::map<std::string, std::string> m_company;
};

/// What the caller was told agrees with the operation that failed.
void ExpectRightResult(const Outcome& outcome)
{
    const std::string operation = outcome.faulted.substr(0, outcome.faulted.find(' '));
    if (outcome.undoing)
    {
        EXPECT_TRUE(outcome.copied);
        return;
    }
    if (operation == "CreateFileA")
    {
        EXPECT_FALSE(outcome.copied);
        EXPECT_EQ(outcome.error, 0u);
    }
    else if (operation == "CopyFileA" || (operation == "CreateDirectoryA" && outcome.status == DataSnapshotStatus{}))
    {
        EXPECT_FALSE(outcome.copied);
        EXPECT_EQ(outcome.error, FileFaults::kError);
    }
    else
    {
        EXPECT_TRUE(outcome.copied);
    }
}

void DataSnapshotFaultTest::FailEveryOperation(int flags)
{
    SCOPED_TRACE("flags " + std::to_string(flags));
    // Once without a fault, since the system and the test's own means keep a few handles from the first time on.
    ASSERT_EQ(TakeSnapshot(flags, 0).faulted, "");
    ExpectTheCompanyToBeWhole("without a fault");
    RemoveLeftOvers();
    const unsigned long handles = OpenHandles();
    std::set<std::string> operations;
    for (int call = 1; call <= kMostCalls; ++call)
    {
        SetFileAttributesA((m_root / "company\\accdata\\customer.dat").c_str(), FILE_ATTRIBUTE_READONLY);

        const Outcome outcome = TakeSnapshot(flags, call);

        SCOPED_TRACE(outcome.faulted);
        if (outcome.faulted.empty())
        {
            EXPECT_EQ(operations.size(), 9u) << "every kind of operation had its turn";
            return;
        }
        const std::string operation = outcome.faulted.substr(0, outcome.faulted.find(' '));
        operations.insert(operation);
        ExpectRightResult(outcome);
        SetFileAttributesA((m_root / "company\\accdata\\customer.dat").c_str(), FILE_ATTRIBUTE_NORMAL);
        ExpectTheCompanyToBeWhole(outcome.faulted);
        EXPECT_EQ(OpenHandles(), handles);
        if (operation != "DeleteFileA" && operation != "RemoveDirectoryA" && operation != "GetFileAttributesA")
        {
            EXPECT_THAT(m_root.Tree("snapshots"), IsEmpty()) << "only a failing removal leaves something behind";
        }
        RemoveLeftOvers();
    }
    FAIL() << "more than " << kMostCalls << " operations";
}

} // namespace

TEST_F(DataSnapshotFaultTest, NoFailingOperationOfASnapshotOfAccdataHarmsTheCompany)
{
    FailEveryOperation(0);
}

TEST_F(DataSnapshotFaultTest, NoFailingOperationOfASnapshotOfReportsAndLayoutsHarmsTheCompany)
{
    FailEveryOperation(0x2 | 0x4);
}

TEST_F(DataSnapshotFaultTest, NoEndOfTheProcessDuringASnapshotHarmsTheCompany)
{
    // Every third one, for time: no two operations repeat in threes, so each kind has its turn.
    for (int call = 1; call <= kMostCalls; call += 3)
    {
        const auto result =
            RunChild("child_take_snapshot",
                     "\"" + (m_root / "company") + "\" \"" + (m_root / "snapshots") + "\" 0 " + std::to_string(call));
        ASSERT_TRUE(result.ended);
        if (result.exitCode == 0)
        {
            EXPECT_GT(call, 50) << "that many operations were cut";
            EXPECT_THAT(m_root.Tree("snapshots"), IsEmpty());
            return;
        }
        ASSERT_EQ(result.exitCode, FileFaults::kExitCode);
        ExpectTheCompanyToBeWhole("ended at operation " + std::to_string(call));
        RemoveLeftOvers();
    }
    FAIL() << "more than " << kMostCalls << " operations";
}

TEST_F(DataSnapshotFaultTest, ARetainedSnapshotKeepsWhatWasCopiedBeforeTheFault)
{
    m_machine.SetDword("hx41svc_retainss", 1);
    std::string snapshotPath;
    {
        const FileFaults faults(0);
        DataSnapshot snapshot(m_root / "company", 0x2);
        ASSERT_EQ(snapshot.Enumerate(m_root / "snapshots"), DataSnapshotStatus::Success);
        snapshotPath = snapshot.GetSnapshotPath();
        const UniqueFileHandle writer(CreateFileA((m_root / "company\\reports\\sales\\monthly\\november.rpt").c_str(),
                                                  GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                                  OPEN_EXISTING, 0, nullptr));
        ASSERT_TRUE(writer);
        unsigned long error = 99;
        EXPECT_FALSE(snapshot.Execute(error));
    }
    EXPECT_EQ(ContentsOf(snapshotPath).count("reports\\list.rpt"), 1u);
    ExpectTheCompanyToBeWhole("after a failed copy");
}
