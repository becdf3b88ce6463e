#include <ProductSwitches.h>
#include <ServiceStage.h>

#include <tests/host/Printed.h>
#include <tests/support/ChildProcess.h>
#include <tests/support/ImportPatch.h>
#include <tests/support/InstalledService.h>
#include <tests/support/TempFolder.h>
#include <tests/system/ServiceCalls.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <type_traits>
#include <utility>

using testing::HasSubstr;
using TestSupport::ImportPatch;
using TestSupport::IsInstalled;
using UtilsLib::Platform::UniqueServiceHandle;

namespace
{

constexpr char kModule[] = "host_service_tests.exe";
constexpr char kCompany[] = "M\xFCller"; // in the ANSI code page

class ServiceStageTest : public testing::Test
{
protected:
    ServiceStageTest()
    {
        m_logging.Set("hx41svc_logging", 1);
        m_folder.Write(kCompany + std::string("\\a.dat"), "1");
    }

    /// What the stage prints.
    std::string Run()
    {
        return Printed([&](Console& console) { RunAsService(console, m_folder / kCompany + "\\", m_folder.Path()); });
    }

    ProductSwitches m_logging;
    TestSupport::TempFolder m_folder;
};

std::size_t Count(const std::string& text, const std::string& part)
{
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size()))
    {
        ++count;
    }
    return count;
}

SC_HANDLE WINAPI RefuseToCreate(SC_HANDLE, const char*, const char*, DWORD, DWORD, DWORD, DWORD, const char*,
                                const char*, DWORD*, const char*, const char*, const char*)
{
    SetLastError(ERROR_ACCESS_DENIED);
    return nullptr;
}

SC_HANDLE WINAPI RefuseToOpenTheManager(const char*, const char*, DWORD)
{
    SetLastError(ERROR_ACCESS_DENIED);
    return nullptr;
}

decltype(&CloseServiceHandle) g_close = nullptr;

BOOL WINAPI CloseWithAnotherError(SC_HANDLE handle)
{
    const BOOL closed = g_close(handle);
    SetLastError(ERROR_GEN_FAILURE);
    return closed;
}

decltype(&CreateServiceA) g_create = nullptr;

SC_HANDLE WINAPI CreateOneThatNeverStarts(SC_HANDLE manager, const char* name, const char* display, DWORD access,
                                          DWORD type, DWORD start, DWORD error, const char*, const char* group,
                                          DWORD* tag, const char* dependencies, const char* user, const char* password)
{
    return g_create(manager, name, display, access, type, start, error,
                    TestSupport::ServiceCommandLine("never-start").c_str(), group, tag, dependencies, user, password);
}

} // namespace

TEST_F(ServiceStageTest, InstallsStartsRestartsAndRemovesTheService)
{
    const std::string output = Run();

    EXPECT_THAT(output, HasSubstr("host_service.exe " + m_folder / "service.log" + " " + m_folder / kCompany + "\n"));
    EXPECT_THAT(output, HasSubstr("after the start        running\n"));
    EXPECT_THAT(output, HasSubstr("after a restart        running\n"));
    EXPECT_THAT(output, HasSubstr("Stopped and removed"));
    EXPECT_EQ(Count(output, "The service runs"), 2u);
    EXPECT_EQ(Count(output, "The service is asked to stop"), 2u);
    EXPECT_EQ(Count(output, "No longer watching " + m_folder / kCompany), 2u);
    EXPECT_FALSE(IsInstalled(kHostServiceName));
}

TEST_F(ServiceStageTest, RemovesTheServiceWhateverFails)
{
    ServiceCalls calls; // of the library: its sleeps last no time
    calls.onSleep = [] { Sleep(1); };
    const std::pair<const char*, const char*> failures[] = {
        {"StartServiceA", "The service does not start: error 1265\n"},
        {"ControlService", "The service does not restart: error 1265\n"},
        {"OpenServiceA", "The service does not start: error 6\n"},
        {"OpenSCManagerA", "The service does not start: error 6\n"},
    };
    for (const auto& [failing, text] : failures)
    {
        calls.failing = failing;

        const std::string output = Run();

        EXPECT_THAT(output, HasSubstr(text)) << failing;
        EXPECT_THAT(output, HasSubstr("Stopped and removed")) << failing;
        EXPECT_FALSE(IsInstalled(kHostServiceName)) << failing;
    }
    EXPECT_EQ(calls.Open(), 0u);
}

TEST_F(ServiceStageTest, RemovesTheServiceWhenAStepThrows)
{
    ServiceCalls calls;
    calls.state = [](int number) -> DWORD {
        if (number == 1)
        {
            throw std::runtime_error("a query");
        }
        return SERVICE_STOPPED;
    };

    EXPECT_THROW(Run(), std::runtime_error);

    testing::internal::GetCapturedStdout();
    EXPECT_FALSE(IsInstalled(kHostServiceName));
}

TEST_F(ServiceStageTest, RemovesAServiceThatNeverStartsWithItsProcess)
{
    const ImportPatch create("ADVAPI32.dll", "CreateServiceA", &CreateOneThatNeverStarts, kModule);
    g_create = create.Original<std::remove_pointer_t<decltype(g_create)>>();
    ServiceCalls calls;
    calls.onSleep = [] { Sleep(1); };

    const std::string output = Run();

    EXPECT_THAT(output, HasSubstr("after the start        starting\n"));
    EXPECT_THAT(output, HasSubstr("Stopped and removed"));
    EXPECT_FALSE(IsInstalled(kHostServiceName));
}

TEST_F(ServiceStageTest, RemovesWhatAnEarlierRunLeftBehind)
{
    {
        const UniqueServiceHandle manager(OpenSCManagerA(nullptr, nullptr, SC_MANAGER_CREATE_SERVICE));
        const UniqueServiceHandle leftOver(
            CreateServiceA(manager.Get(), kHostServiceName, "left over", SERVICE_ALL_ACCESS, SERVICE_WIN32_OWN_PROCESS,
                           SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL, TestSupport::ServiceCommandLine("run").c_str(),
                           nullptr, nullptr, nullptr, nullptr, nullptr));
        ASSERT_TRUE(leftOver) << TestSupport::LastErrorText("CreateServiceA");
        ASSERT_TRUE(StartServiceA(leftOver.Get(), 0, nullptr)) << TestSupport::LastErrorText("StartServiceA");
    }

    EXPECT_THAT(Run(), HasSubstr("after a restart        running\n"));

    EXPECT_FALSE(IsInstalled(kHostServiceName));
}

TEST_F(ServiceStageTest, SaysWhatItLacksWithoutTheRightToInstall)
{
    const char* const kText = "Cannot install the service (that takes administrator rights): error 5\n";
    {
        const ImportPatch create("ADVAPI32.dll", "CreateServiceA", &RefuseToCreate, kModule);
        const ImportPatch close("ADVAPI32.dll", "CloseServiceHandle", &CloseWithAnotherError, kModule);
        g_close = close.Original<std::remove_pointer_t<decltype(g_close)>>();
        EXPECT_THAT(Run(), HasSubstr(kText));
    }
    {
        const ImportPatch manager("ADVAPI32.dll", "OpenSCManagerA", &RefuseToOpenTheManager, kModule);
        EXPECT_THAT(Run(), HasSubstr(kText));
    }
    EXPECT_FALSE(IsInstalled(kHostServiceName));
}
