#include <SnapshotStage.h>

#include <UtilsLib/platform/UniqueFileHandle.h>
#include <tests/host/Printed.h>
#include <tests/support/TempFolder.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using UtilsLib::Platform::UniqueFileHandle;

namespace
{

constexpr char kLedger[] = "company\\accdata\\M\xFCller.dta";

class SnapshotStageTest : public testing::Test
{
protected:
    SnapshotStageTest()
    {
        m_folder.Write(kLedger, "12345");
    }

    /// What the stage prints.
    std::string Run()
    {
        return Printed([&](Console& console) {
            Job job(console);
            SnapshotCompany(console, job, m_folder / "company", m_folder.Path());
        });
    }

    TestSupport::TempFolder m_folder;
};

} // namespace

TEST_F(SnapshotStageTest, TakesTheCompanyUndoesItAndCompares)
{
    EXPECT_THAT(Run(), AllOf(HasSubstr("snapshot     [########################] 4 of 4\n"),
                             HasSubstr("1 files, 5 bytes\n"), HasSubstr("Undone: the snapshot folder is gone.\n"),
                             HasSubstr("The company is byte for byte what it was.\n")));
    EXPECT_THAT(m_folder.Tree("snapshots"), IsEmpty());
}

TEST_F(SnapshotStageTest, FileThatAnotherProgramWritesIsSaidAndNothingStays)
{
    const UniqueFileHandle writer(CreateFileA((m_folder / kLedger).c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                                              FILE_ATTRIBUTE_NORMAL, nullptr));
    ASSERT_TRUE(writer);

    EXPECT_THAT(Run(), AllOf(HasSubstr("A file is being written by another program: nothing is taken.\n"),
                             HasSubstr("The company was not compared: a file of it cannot be read.\n")));
    EXPECT_THAT(m_folder.Tree("snapshots"), IsEmpty());
}
