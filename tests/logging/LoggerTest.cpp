#include <UtilsLib/logging/Logger.h>

#include <UtilsLib/registry/LiveRegSettings.h>

#include <tests/support/ScopedMachineHive.h>
#include <tests/support/TempFolder.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using UtilsLib::LogCategory;
using UtilsLib::LogTraceLevel;

namespace
{

/// A logger of the test's own.
class OwnLogger : public UtilsLib::Logger
{
public:
    OwnLogger() : Logger({})
    {
    }
};

class LoggerTest : public testing::Test
{
protected:
    LoggerTest()
    {
        m_machine.SetDword("hx41svc_logging", 1);
    }

    TestSupport::TempFolder m_folder;
    TestSupport::ScopedMachineHive m_machine;
};

} // namespace

TEST_F(LoggerTest, ShutdownReturnsOnlyAfterQueuedLinesHaveBeenWritten)
{
    OwnLogger logger;
    logger.SetPath(m_folder / "a.log");
    logger.Log(LogCategory::General, LogTraceLevel::Error, "ScopedFiles::OpenWrite(%s) Failed %d", "C:\\a.dat", 5);
    logger.Start();
    logger.Shutdown();

    EXPECT_THAT(m_folder.Read("a.log"),
                testing::MatchesRegex("../../.... ..:..:......, tid: .*, \\(1:4\\), "
                                      "ScopedFiles::OpenWrite\\(C:.a.dat\\) Failed 5\r\n"));
}
