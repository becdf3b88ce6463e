#include <ControlledService.h>

#include <tests/support/ChildProcess.h>
#include <tests/support/Gate.h>
#include <tests/support/ImportPatch.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>

using testing::ElementsAre;
using TestSupport::Eventually;
using TestSupport::ImportPatch;

namespace
{

constexpr char kModule[] = "host_service_tests.exe";

/// The service control manager of one service, until scope end: it starts the service, and its controls are what a
/// test sends meanwhile.
class ServiceManager
{
public:
    explicit ServiceManager(std::function<void(ServiceManager&)> controls) : m_controls(std::move(controls))
    {
        ms_manager = this;
    }
    ServiceManager(const ServiceManager&) = delete;
    ServiceManager& operator=(const ServiceManager&) = delete;

    DWORD Send(DWORD control)
    {
        return m_handler(control, 0, nullptr, m_context);
    }
    std::vector<SERVICE_STATUS> Reports()
    {
        const std::scoped_lock lock(m_lock);
        return m_reports;
    }
    bool Reaches(DWORD state)
    {
        return Eventually([&] { return !Reports().empty() && Reports().back().dwCurrentState == state; },
                          std::chrono::seconds(20));
    }
    bool ReachesCheckpoint(DWORD checkpoint)
    {
        return Eventually([&] { return !Reports().empty() && Reports().back().dwCheckPoint >= checkpoint; });
    }
    /// Each state once.
    std::vector<DWORD> States()
    {
        std::vector<DWORD> states;
        for (const SERVICE_STATUS& report : Reports())
        {
            states.push_back(report.dwCurrentState);
        }
        states.erase(std::unique(states.begin(), states.end()), states.end());
        return states;
    }

    bool refusesTheHandler = false;

private:
    static BOOL WINAPI Dispatch(const SERVICE_TABLE_ENTRYA* services)
    {
        std::thread service([=] { services[0].lpServiceProc(0, nullptr); });
        ms_manager->m_controls(*ms_manager);
        service.join();
        return TRUE;
    }
    static SERVICE_STATUS_HANDLE WINAPI Register(const char*, LPHANDLER_FUNCTION_EX handler, void* context)
    {
        ms_manager->m_handler = handler;
        ms_manager->m_context = context;
        return ms_manager->refusesTheHandler ? nullptr : reinterpret_cast<SERVICE_STATUS_HANDLE>(1);
    }
    static BOOL WINAPI TakeReport(SERVICE_STATUS_HANDLE, SERVICE_STATUS* status)
    {
        const std::scoped_lock lock(ms_manager->m_lock);
        ms_manager->m_reports.push_back(*status);
        return TRUE;
    }

    inline static ServiceManager* ms_manager = nullptr;
    ImportPatch m_dispatcher{"ADVAPI32.dll", "StartServiceCtrlDispatcherA", &Dispatch, kModule};
    ImportPatch m_registration{"ADVAPI32.dll", "RegisterServiceCtrlHandlerExA", &Register, kModule};
    ImportPatch m_report{"ADVAPI32.dll", "SetServiceStatus", &TakeReport, kModule};
    std::function<void(ServiceManager&)> m_controls;
    LPHANDLER_FUNCTION_EX m_handler = nullptr;
    void* m_context = nullptr;
    std::mutex m_lock;
    std::vector<SERVICE_STATUS> m_reports;
};

void StopWhenItRuns(ServiceManager& manager)
{
    EXPECT_TRUE(manager.Reaches(SERVICE_RUNNING));
    EXPECT_EQ(manager.Send(SERVICE_CONTROL_STOP), static_cast<DWORD>(NO_ERROR));
}

/// Steps that write their names down.
struct NamedSteps
{
    std::function<void()> operator()(const std::string& name)
    {
        return [this, name] { done.push_back(name); };
    }
    std::vector<std::string> done;
};

} // namespace

TEST(ControlledServiceTest, GoesThroughItsStatesAndSteps)
{
    NamedSteps step;
    ServiceManager manager(&StopWhenItRuns);
    ControlledService service({{step("start 1"), step("start 2")}, {step("stop 1"), step("stop 2")}});

    EXPECT_TRUE(service.Run());

    EXPECT_THAT(step.done, ElementsAre("start 1", "start 2", "stop 1", "stop 2"));
    EXPECT_THAT(manager.States(),
                ElementsAre(SERVICE_START_PENDING, SERVICE_RUNNING, SERVICE_STOP_PENDING, SERVICE_STOPPED));
    EXPECT_EQ(manager.Reports().back().dwWin32ExitCode, static_cast<DWORD>(NO_ERROR));
}

TEST(ControlledServiceTest, ReportsWhatBelongsToEachState)
{
    ServiceManager manager(&StopWhenItRuns);
    ControlledService service({{[] {}, [] {}}, {[] {}, [] {}}});
    ASSERT_TRUE(service.Run());

    SERVICE_STATUS before = {};
    for (const SERVICE_STATUS& report : manager.Reports())
    {
        const bool runs = report.dwCurrentState == SERVICE_RUNNING;
        const bool pends = !runs && report.dwCurrentState != SERVICE_STOPPED;
        const bool first = report.dwCurrentState != before.dwCurrentState;
        EXPECT_EQ(report.dwServiceType, static_cast<DWORD>(SERVICE_WIN32_OWN_PROCESS));
        EXPECT_EQ(report.dwControlsAccepted,
                  static_cast<DWORD>(runs ? SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_SHUTDOWN : 0));
        EXPECT_EQ(report.dwCheckPoint, pends ? (first ? 1 : before.dwCheckPoint + 1) : 0);
        EXPECT_EQ(report.dwWaitHint > 0, pends);
        before = report;
    }
    EXPECT_GE(manager.Reports().size(), 8u); // each step is a checkpoint
}

TEST(ControlledServiceTest, TheEndOfTheSystemStopsIt)
{
    ServiceManager manager([](ServiceManager& sender) {
        EXPECT_TRUE(sender.Reaches(SERVICE_RUNNING));
        EXPECT_EQ(sender.Send(SERVICE_CONTROL_SHUTDOWN), static_cast<DWORD>(NO_ERROR));
    });
    ControlledService service({});

    EXPECT_TRUE(service.Run());

    EXPECT_EQ(manager.States().back(), static_cast<DWORD>(SERVICE_STOPPED));
}

TEST(ControlledServiceTest, FurtherStopsChangeNothing)
{
    TestSupport::Gate sent;
    bool waited = false;
    ServiceManager manager([&](ServiceManager& sender) {
        StopWhenItRuns(sender);
        EXPECT_TRUE(sender.ReachesCheckpoint(1));
        EXPECT_EQ(sender.Send(SERVICE_CONTROL_STOP), static_cast<DWORD>(NO_ERROR));
        EXPECT_EQ(sender.Send(SERVICE_CONTROL_SHUTDOWN), static_cast<DWORD>(NO_ERROR));
        sent.Open();
    });
    ControlledService service({{}, {[&] { waited = sent.Wait(); }}});

    EXPECT_TRUE(service.Run());

    EXPECT_TRUE(waited);
    EXPECT_THAT(manager.States(),
                ElementsAre(SERVICE_START_PENDING, SERVICE_RUNNING, SERVICE_STOP_PENDING, SERVICE_STOPPED));
}

TEST(ControlledServiceTest, AStopBeforeItRunsChangesNothing)
{
    TestSupport::Gate sent;
    bool waited = false;
    ServiceManager manager([&](ServiceManager& sender) {
        EXPECT_TRUE(sender.ReachesCheckpoint(1));
        for (const DWORD control : {SERVICE_CONTROL_STOP, SERVICE_CONTROL_SHUTDOWN})
        {
            EXPECT_EQ(sender.Send(control), static_cast<DWORD>(NO_ERROR));
        }
        sent.Open();
        StopWhenItRuns(sender);
    });
    ControlledService service({{[&] { waited = sent.Wait(); }}, {}});

    EXPECT_TRUE(service.Run());

    EXPECT_TRUE(waited);
    EXPECT_THAT(manager.States(),
                ElementsAre(SERVICE_START_PENDING, SERVICE_RUNNING, SERVICE_STOP_PENDING, SERVICE_STOPPED));
}

TEST(ControlledServiceTest, AnswersAnInterrogationAndRefusesUnknownControls)
{
    std::size_t reports = 0;
    ServiceManager manager([&](ServiceManager& sender) {
        EXPECT_TRUE(sender.Reaches(SERVICE_RUNNING));
        reports = sender.Reports().size();
        EXPECT_EQ(sender.Send(SERVICE_CONTROL_INTERROGATE), static_cast<DWORD>(NO_ERROR));
        EXPECT_EQ(sender.Send(SERVICE_CONTROL_PAUSE), static_cast<DWORD>(ERROR_CALL_NOT_IMPLEMENTED));
        EXPECT_EQ(sender.Send(128), static_cast<DWORD>(ERROR_CALL_NOT_IMPLEMENTED));
        EXPECT_EQ(sender.Reports().size(), reports);
        EXPECT_EQ(sender.Send(SERVICE_CONTROL_STOP), static_cast<DWORD>(NO_ERROR));
    });
    ControlledService service({});

    EXPECT_TRUE(service.Run());
}

TEST(ControlledServiceTest, ALongStepMakesCheckpoints)
{
    ServiceManager manager(&StopWhenItRuns);
    bool startBeats = false;
    bool stopBeats = false;
    ControlledService service(
        {{[&] { startBeats = manager.ReachesCheckpoint(3); }}, {[&] { stopBeats = manager.ReachesCheckpoint(3); }}});

    EXPECT_TRUE(service.Run());

    EXPECT_TRUE(startBeats);
    EXPECT_TRUE(stopBeats);
}

TEST(ControlledServiceTest, AStartThatThrowsEndsTheServiceWithItsOwnCode)
{
    NamedSteps step;
    ServiceManager manager([](ServiceManager& sender) { EXPECT_TRUE(sender.Reaches(SERVICE_STOPPED)); });
    ControlledService service(
        {{step("start 1"), [] { throw std::runtime_error("no"); }, step("start 3")}, {step("stop 1")}});

    EXPECT_TRUE(service.Run());

    EXPECT_THAT(step.done, ElementsAre("start 1", "stop 1"));
    EXPECT_THAT(manager.States(), ElementsAre(SERVICE_START_PENDING, SERVICE_STOP_PENDING, SERVICE_STOPPED));
    EXPECT_EQ(manager.Reports().back().dwWin32ExitCode, static_cast<DWORD>(ERROR_SERVICE_SPECIFIC_ERROR));
    EXPECT_EQ(manager.Reports().back().dwServiceSpecificExitCode, ControlledService::kStartFailed);
}

TEST(ControlledServiceTest, AStartThatThrowsWhatIsNoStandardErrorFailsToo)
{
    NamedSteps step;
    ServiceManager manager([](ServiceManager& sender) { EXPECT_TRUE(sender.Reaches(SERVICE_STOPPED)); });
    ControlledService service({{[] { throw 1; }, step("start 2")}, {step("stop 1")}});

    EXPECT_TRUE(service.Run());

    EXPECT_THAT(step.done, ElementsAre("stop 1"));
    EXPECT_EQ(manager.Reports().back().dwServiceSpecificExitCode, ControlledService::kStartFailed);
}

TEST(ControlledServiceTest, WithoutAHandlerNothingIsDone)
{
    NamedSteps step;
    ServiceManager manager([](ServiceManager&) {});
    manager.refusesTheHandler = true;
    ControlledService service({{step("start")}, {step("stop")}});

    EXPECT_TRUE(service.Run());

    EXPECT_THAT(step.done, ElementsAre());
    EXPECT_TRUE(manager.Reports().empty());
}

TEST(ControlledServiceTest, AProgramThatWasStartedByHandSaysSo)
{
    ControlledService service({});

    EXPECT_FALSE(service.Run());

    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_FAILED_SERVICE_CONTROLLER_CONNECT));
    EXPECT_EQ(TestSupport::RunChild("host_service", "a b").exitCode, 1u);
    EXPECT_EQ(TestSupport::RunChild("host_service", "a").exitCode, 2u);
}
