#include <ControlledService.h>
#include <ProductSwitches.h>

#include <UtilsLib/platform/UniqueHandle.h>

#include <tests/support/Gate.h>
#include <tests/support/InstalledService.h>
#include <tests/support/TempFolder.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

using testing::EndsWith;
using TestSupport::Eventually;
using TestSupport::InstalledService;
using TestSupport::LastErrorText;

namespace
{

/// The example service, installed on a company of two files, in a system with logging on.
class HostServiceTest : public testing::Test
{
protected:
    HostServiceTest()
    {
        m_logging.Set("hx41svc_logging", 1);
        m_folder.Write("company\\a.dat", "1");
        m_folder.Write("company\\b\\c.dat", "22");
    }

    /// The messages of the log's lines.
    std::vector<std::string> Log() const
    {
        std::vector<std::string> messages;
        std::istringstream lines(m_folder.Read("service.log"));
        for (std::string line; std::getline(lines, line);)
        {
            messages.push_back(line.substr(line.find("), ") + 3));
            messages.back().pop_back(); // "\r"
        }
        return messages;
    }
    bool Logs(const std::string& message) const
    {
        return Eventually([&] {
            const std::vector<std::string> log = Log();
            return std::find(log.begin(), log.end(), message) != log.end();
        });
    }

    ProductSwitches m_logging;
    TestSupport::TempFolder m_folder;
    InstalledService m_service{
        "UtilsLibHostService",
        TestSupport::ServiceCommandLine('"' + m_folder / "service.log" + "\" \"" + m_folder / "company" + '"',
                                        "host_service")};
};

} // namespace

TEST_F(HostServiceTest, WatchesUntilItIsStoppedAndEndsCleanly)
{
    ASSERT_TRUE(m_service.Start()) << LastErrorText("StartServiceA");
    const SERVICE_STATUS_PROCESS running = m_service.Status();
    const UtilsLib::Platform::UniqueHandle process(
        OpenProcess(PROCESS_QUERY_INFORMATION | SYNCHRONIZE, FALSE, running.dwProcessId));
    ASSERT_TRUE(process) << LastErrorText("OpenProcess");

    EXPECT_EQ(running.dwControlsAccepted, static_cast<DWORD>(SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_SHUTDOWN));
    EXPECT_TRUE(m_service.Control(SERVICE_CONTROL_INTERROGATE));
    EXPECT_FALSE(m_service.Control(SERVICE_CONTROL_PAUSE));
    EXPECT_TRUE(Logs("The company has 2 files of 3 bytes"));
    m_folder.Write("company\\d.dat", "333");
    EXPECT_TRUE(Logs("The company has 3 files of 6 bytes"));

    ASSERT_TRUE(m_service.Stop());
    EXPECT_EQ(m_service.Status().dwWin32ExitCode, static_cast<DWORD>(NO_ERROR));
    ASSERT_EQ(WaitForSingleObject(process.Get(), 10'000), static_cast<DWORD>(WAIT_OBJECT_0));
    DWORD exitCode = 99;
    GetExitCodeProcess(process.Get(), &exitCode);
    EXPECT_EQ(exitCode, 0u);
    const std::string company = m_folder / "company";
    EXPECT_THAT(Log(), testing::UnorderedElementsAre("Watching " + company, "The company has 2 files of 3 bytes",
                                                     "The service runs", "The company has 3 files of 6 bytes",
                                                     "The service is asked to stop", "No longer watching " + company));
    EXPECT_EQ(Log().front(), "Watching " + company);
    EXPECT_EQ(Log().back(), "No longer watching " + company);
}

TEST_F(HostServiceTest, WithoutItsCompanyItDoesNotStart)
{
    const InstalledService service(
        "UtilsLibHostService2",
        TestSupport::ServiceCommandLine('"' + m_folder / "service.log" + "\" \"" + m_folder / "none" + '"',
                                        "host_service"));

    EXPECT_FALSE(service.Start(std::chrono::seconds(1)));

    EXPECT_TRUE(service.Reaches(SERVICE_STOPPED));
    EXPECT_EQ(service.Status().dwWin32ExitCode, static_cast<DWORD>(ERROR_SERVICE_SPECIFIC_ERROR));
    EXPECT_EQ(service.Status().dwServiceSpecificExitCode, ControlledService::kStartFailed);
    EXPECT_THAT(Log(), testing::ElementsAre(EndsWith("none is not a folder")));
}
