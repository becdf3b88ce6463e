#include <UtilsLib/system/ScopedServiceControl.h>

#include <tests/support/FieldsOf.h>
#include <tests/support/InstalledService.h>
#include <tests/support/TempFolder.h>
#include <tests/system/ServiceCalls.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>

using testing::ElementsAre;
using TestSupport::InstalledService;
using TestSupport::LastErrorText;
using TestSupport::ServiceCommandLine;
using UtilsLib::ScopedServiceControl;

namespace
{

constexpr char kName[] = "UtilsLibControlTest";
constexpr char kMissing[] = "UtilsLibNoSuchService";
constexpr int kSleeps = 61; // of one wait

// What the class asks for, in order.
constexpr char kOpenManager[] = "OpenSCManagerA here F003F";
constexpr char kOpenService[] = "OpenServiceA UtilsLibControlTest 34";
constexpr char kStart[] = "StartServiceA handle 1 without arguments";
constexpr char kStop[] = "ControlService handle 1 1";
constexpr char kCloseManager[] = "CloseServiceHandle handle 0";
constexpr char kCloseService[] = "CloseServiceHandle handle 1";

struct Fields
{
    SC_HANDLE manager;
    SC_HANDLE service;
};

const Fields& FieldsOf(const ScopedServiceControl& control)
{
    return TestSupport::FieldsOf<Fields>(control);
}

unsigned long StateOf(ScopedServiceControl& control)
{
    unsigned long state = 0;
    EXPECT_TRUE(control.GetStatus(state)) << LastErrorText("GetStatus");
    return state;
}

void SleepAWhile()
{
    Sleep(10);
}

/// A stopped service that is restarted while the states that the library sees are made up.
class RestartTest : public testing::Test
{
protected:
    bool Restart(const std::function<DWORD(int)>& state)
    {
        m_calls.state = state;
        return m_control.RestartSvc();
    }

    InstalledService m_service{kName};
    ServiceCalls m_calls;
    ScopedServiceControl m_control{kName};
};

} // namespace

TEST(ScopedServiceControlTest, StartsQueriesAndStopsAService)
{
    const InstalledService service(kName);
    ScopedServiceControl control(kName);
    EXPECT_EQ(StateOf(control), static_cast<DWORD>(SERVICE_STOPPED));

    ASSERT_TRUE(control.StartSvc()) << LastErrorText("StartServiceA");
    ASSERT_TRUE(service.Reaches(SERVICE_RUNNING));
    EXPECT_EQ(StateOf(control), static_cast<DWORD>(SERVICE_RUNNING));

    ASSERT_TRUE(control.StopSvc()) << LastErrorText("ControlService");
    ASSERT_TRUE(service.Reaches(SERVICE_STOPPED));
    EXPECT_EQ(StateOf(control), static_cast<DWORD>(SERVICE_STOPPED));
}

TEST(ScopedServiceControlTest, StartAndStopDoNotWait)
{
    const InstalledService slowStart(kName, ServiceCommandLine("slow-start 3000"));
    const InstalledService slowStop("UtilsLibControlTest2", ServiceCommandLine("slow-stop 3000"));
    ASSERT_TRUE(slowStop.Start());
    ScopedServiceControl starting(kName);
    ScopedServiceControl stopping("UtilsLibControlTest2");

    EXPECT_TRUE(starting.StartSvc());
    EXPECT_EQ(StateOf(starting), static_cast<DWORD>(SERVICE_START_PENDING));
    EXPECT_TRUE(stopping.StopSvc());
    EXPECT_TRUE(slowStop.Reaches(SERVICE_STOP_PENDING, std::chrono::seconds(2)));
    EXPECT_EQ(StateOf(stopping), static_cast<DWORD>(SERVICE_STOP_PENDING));
}

TEST(ScopedServiceControlTest, RefusedRequestsAreFalseWithTheSystemsError)
{
    const InstalledService service(kName);
    ScopedServiceControl control(kName);

    EXPECT_FALSE(control.StopSvc());
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SERVICE_NOT_ACTIVE));
    ASSERT_TRUE(service.Start());
    EXPECT_FALSE(control.StartSvc());
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SERVICE_ALREADY_RUNNING));
}

TEST(ScopedServiceControlTest, EveryOperationOfAMissingServiceFails)
{
    SetLastError(ERROR_SUCCESS);
    ScopedServiceControl control(kMissing);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SERVICE_DOES_NOT_EXIST));
    unsigned long state = 77;

    EXPECT_FALSE(control.StartSvc());
    EXPECT_FALSE(control.StopSvc());
    EXPECT_FALSE(control.GetStatus(state));
    EXPECT_EQ(state, 77u);
    EXPECT_FALSE(control.RestartSvc());
    EXPECT_NE(FieldsOf(control).manager, nullptr);
    EXPECT_EQ(FieldsOf(control).service, nullptr);
}

TEST(ScopedServiceControlTest, WithoutAManagerEveryOperationFails)
{
    ServiceCalls calls;
    calls.failing = "OpenSCManagerA";
    {
        ScopedServiceControl control(kName);
        EXPECT_EQ(GetLastError(), ServiceCalls::kRefused);
        unsigned long state = 77;

        EXPECT_FALSE(control.StartSvc());
        EXPECT_FALSE(control.StopSvc());
        EXPECT_FALSE(control.GetStatus(state));
        EXPECT_EQ(state, 77u);
        EXPECT_FALSE(control.RestartSvc());
        EXPECT_EQ(FieldsOf(control).manager, nullptr);
        EXPECT_EQ(FieldsOf(control).service, nullptr);
    }
    EXPECT_EQ(calls.Count("OpenServiceA"), 0);
    EXPECT_EQ(calls.Count("CloseServiceHandle"), 0);
    EXPECT_TRUE(calls.sleeps.empty());
}

TEST(ScopedServiceControlTest, OpensWithStatedRightsAndClosesTheManagerFirst)
{
    const InstalledService service(kName);
    ServiceCalls calls;
    {
        const ScopedServiceControl control(kName);
        ASSERT_EQ(calls.opened.size(), 2u);
        EXPECT_EQ(FieldsOf(control).manager, calls.opened[0]);
        EXPECT_EQ(FieldsOf(control).service, calls.opened[1]);
        static_assert(sizeof(ScopedServiceControl) == sizeof(Fields));
    }
    EXPECT_THAT(calls.calls, ElementsAre(kOpenManager, kOpenService, kCloseManager, kCloseService));
    EXPECT_EQ(calls.Open(), 0u);
}

TEST(ScopedServiceControlTest, AnUnopenedServiceLeavesOnlyTheManagerToClose)
{
    ServiceCalls calls;
    {
        const ScopedServiceControl control(kMissing);
    }
    EXPECT_THAT(calls.calls, ElementsAre(kOpenManager, "OpenServiceA UtilsLibNoSuchService 34", kCloseManager));
    EXPECT_EQ(calls.Open(), 0u);
}

TEST(ScopedServiceControlTest, DestructionKeepsTheLastError)
{
    const InstalledService service(kName);
    ServiceCalls calls;
    {
        const ScopedServiceControl control(kName);
        SetLastError(ERROR_DISK_FULL);
    }
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_DISK_FULL));
}

TEST(ScopedServiceControlTest, CopiesShareTheHandles)
{
    const InstalledService service(kName);
    const InstalledService other("UtilsLibControlTest2");
    ServiceCalls calls;
    // Storage without a destructor: only the first object may close the shared handles.
    alignas(ScopedServiceControl) unsigned char copied[sizeof(ScopedServiceControl)];
    alignas(ScopedServiceControl) unsigned char assigned[sizeof(ScopedServiceControl)];
    std::optional<ScopedServiceControl> original(std::in_place, kName);
    auto* const copy = new (copied) ScopedServiceControl(*original);
    auto* const target = new (assigned) ScopedServiceControl("UtilsLibControlTest2");
    const Fields lost = FieldsOf(*target);
    *target = *original;

    EXPECT_EQ(FieldsOf(*copy).manager, calls.opened[0]);
    EXPECT_EQ(FieldsOf(*copy).service, calls.opened[1]);
    EXPECT_EQ(FieldsOf(*target).manager, calls.opened[0]);
    EXPECT_EQ(FieldsOf(*target).service, calls.opened[1]);
    EXPECT_TRUE(target->StartSvc());
    EXPECT_TRUE(service.Reaches(SERVICE_RUNNING));
    EXPECT_EQ(calls.opened.size(), 4u);
    EXPECT_EQ(calls.Count("CloseServiceHandle"), 0);

    original.reset();
    EXPECT_THAT(std::vector(calls.calls.end() - 2, calls.calls.end()), ElementsAre(kCloseManager, kCloseService));
    EXPECT_TRUE(CloseServiceHandle(lost.manager)) << "closed by the assignment";
    EXPECT_TRUE(CloseServiceHandle(lost.service)) << "closed by the assignment";
}

TEST(ScopedServiceControlTest, RestartOfARunningServiceGivesItANewProcess)
{
    const InstalledService service(kName);
    ASSERT_TRUE(service.Start());
    const DWORD before = service.Status().dwProcessId;
    ServiceCalls calls;
    calls.onSleep = &SleepAWhile;
    ScopedServiceControl control(kName);

    EXPECT_TRUE(control.RestartSvc());

    EXPECT_EQ(service.Status().dwCurrentState, static_cast<DWORD>(SERVICE_RUNNING));
    EXPECT_NE(service.Status().dwProcessId, before);
    EXPECT_THAT(calls.calls, ElementsAre(kOpenManager, kOpenService, kStop, kStart));
}

TEST(ScopedServiceControlTest, RestartOfAStoppedServiceSendsNoStop)
{
    const InstalledService service(kName, ServiceCommandLine("slow-start 200"));
    ServiceCalls calls;
    calls.onSleep = &SleepAWhile;
    ScopedServiceControl control(kName);

    EXPECT_TRUE(control.RestartSvc());

    EXPECT_EQ(service.Status().dwCurrentState, static_cast<DWORD>(SERVICE_RUNNING));
    EXPECT_THAT(calls.calls, ElementsAre(kOpenManager, kOpenService, kStart));
    EXPECT_FALSE(calls.sleeps.empty());
}

TEST(ScopedServiceControlTest, RestartOfAStoppingServiceWaitsWithoutASecondStop)
{
    const InstalledService service(kName, ServiceCommandLine("slow-stop 1200"));
    ASSERT_TRUE(service.Start());
    ASSERT_TRUE(service.Control(SERVICE_CONTROL_STOP));
    ASSERT_TRUE(service.Reaches(SERVICE_STOP_PENDING));
    ServiceCalls calls;
    calls.onSleep = [] { Sleep(500); };
    ScopedServiceControl control(kName);

    EXPECT_TRUE(control.RestartSvc());

    EXPECT_EQ(service.Status().dwCurrentState, static_cast<DWORD>(SERVICE_RUNNING));
    EXPECT_THAT(calls.calls, ElementsAre(kOpenManager, kOpenService, kStart));
    EXPECT_GE(calls.sleeps.size(), 2u);
    EXPECT_THAT(calls.sleeps, testing::Each(500u));
}

TEST(ScopedServiceControlTest, RestartOfAServiceThatRefusesToStopFailsAtOnce)
{
    const InstalledService service(kName, ServiceCommandLine("refuse-stop"));
    ASSERT_TRUE(service.Start());
    const DWORD before = service.Status().dwProcessId;
    ServiceCalls calls;
    ScopedServiceControl control(kName);

    EXPECT_FALSE(control.RestartSvc());

    EXPECT_NE(GetLastError(), static_cast<DWORD>(ERROR_SUCCESS));
    EXPECT_THAT(calls.calls, ElementsAre(kOpenManager, kOpenService, kStop));
    EXPECT_TRUE(calls.sleeps.empty());
    EXPECT_EQ(service.Status().dwProcessId, before);
}

TEST(ScopedServiceControlTest, RestartOfAServiceThatNeverStopsTimesOutWithoutAStart)
{
    const InstalledService service(kName, ServiceCommandLine("ignore-stop"));
    ASSERT_TRUE(service.Start());
    ServiceCalls calls;
    ScopedServiceControl control(kName);

    EXPECT_FALSE(control.RestartSvc());

    EXPECT_THAT(calls.calls, ElementsAre(kOpenManager, kOpenService, kStop));
    EXPECT_EQ(calls.sleeps, std::vector<DWORD>(kSleeps, 500));
    EXPECT_EQ(calls.queries, 1 + kSleeps + 1);
}

TEST(ScopedServiceControlTest, RestartOfAServiceThatNeverRunsTimesOut)
{
    const InstalledService service(kName, ServiceCommandLine("never-start"));
    ServiceCalls calls;
    ScopedServiceControl control(kName);

    EXPECT_FALSE(control.RestartSvc());

    EXPECT_THAT(calls.calls, ElementsAre(kOpenManager, kOpenService, kStart));
    EXPECT_EQ(calls.sleeps, std::vector<DWORD>(kSleeps, 500));
    EXPECT_EQ(calls.queries, 2 + kSleeps + 1);
}

TEST_F(RestartTest, FailsWhenTheFirstQueryFails)
{
    EXPECT_FALSE(Restart([](int) { return 0; }));

    EXPECT_EQ(GetLastError(), ServiceCalls::kRefused);
    EXPECT_EQ(m_calls.queries, 1);
    EXPECT_THAT(m_calls.calls, ElementsAre(kOpenManager, kOpenService));
}

TEST_F(RestartTest, FailsWhenTheStartIsRefused)
{
    m_calls.failing = "StartServiceA";

    EXPECT_FALSE(Restart(nullptr));

    EXPECT_EQ(GetLastError(), ServiceCalls::kRefused);
    EXPECT_TRUE(m_calls.sleeps.empty());
    EXPECT_EQ(m_calls.queries, 2);
}

TEST_F(RestartTest, StopsAServiceThatIsPausedOrStarting)
{
    for (const DWORD state : {SERVICE_PAUSED, SERVICE_START_PENDING, SERVICE_CONTINUE_PENDING, SERVICE_PAUSE_PENDING})
    {
        m_calls.calls.clear();
        m_calls.queries = 0;

        EXPECT_FALSE(Restart([=](int) { return state; })); // the service itself is stopped: it refuses

        EXPECT_THAT(m_calls.calls, ElementsAre(kStop)) << state;
    }
}

TEST_F(RestartTest, AFailedQueryIsTakenForStopped)
{
    // Stopping, then no answer, then running.
    EXPECT_TRUE(Restart([](int number) {
        return number <= 3 ? SERVICE_STOP_PENDING : number == 4 ? 0 : SERVICE_RUNNING;
    }));

    EXPECT_EQ(m_calls.Count("StartServiceA"), 1);
    EXPECT_EQ(m_calls.sleeps.size(), 2u);
}

TEST_F(RestartTest, AFailedQueryIsTakenForRunning)
{
    EXPECT_TRUE(Restart([](int number) {
        return number <= 2 ? SERVICE_STOPPED : number == 3 ? SERVICE_START_PENDING : 0;
    }));

    EXPECT_EQ(m_calls.queries, 4);
    EXPECT_EQ(m_calls.sleeps.size(), 1u);
}

TEST_F(RestartTest, StoppingAfterTheLastSleepIsTooLate)
{
    EXPECT_FALSE(Restart([](int number) { return number <= 1 + kSleeps ? SERVICE_STOP_PENDING : SERVICE_STOPPED; }));

    EXPECT_EQ(m_calls.sleeps.size(), static_cast<std::size_t>(kSleeps));
    EXPECT_EQ(m_calls.Count("StartServiceA"), 0);
}

TEST_F(RestartTest, AFailedQueryAfterTheLastSleepIsTooLateToo)
{
    EXPECT_FALSE(Restart([](int number) { return number <= 1 + kSleeps ? SERVICE_STOP_PENDING : 0; }));

    EXPECT_EQ(m_calls.Count("StartServiceA"), 0);
}

TEST_F(RestartTest, RunningAfterTheLastSleepIsTooLate)
{
    EXPECT_FALSE(Restart([](int number) {
        return number <= 2 ? SERVICE_STOPPED : number <= 2 + kSleeps ? SERVICE_START_PENDING : SERVICE_RUNNING;
    }));

    EXPECT_EQ(m_calls.sleeps.size(), static_cast<std::size_t>(kSleeps));
    EXPECT_EQ(m_calls.queries, 2 + kSleeps + 1);
}

TEST_F(RestartTest, BothWaitsMayTakeTheirWholeTime)
{
    // Stopped, and later running, one sleep before the end of each wait.
    EXPECT_TRUE(Restart([](int number) {
        return number <= kSleeps       ? SERVICE_STOP_PENDING
               : number == 1 + kSleeps ? SERVICE_STOPPED
               : number <= 2 * kSleeps ? SERVICE_START_PENDING
                                       : SERVICE_RUNNING;
    }));

    EXPECT_EQ(m_calls.sleeps, std::vector<DWORD>(2 * (kSleeps - 1), 500));
}

TEST(ScopedServiceControlTest, NoFailureLeavesAHandleOpen)
{
    const InstalledService service(kName);
    ServiceCalls calls;
    for (const char* const failing : {"", "OpenSCManagerA", "OpenServiceA", "StartServiceA", "ControlService"})
    {
        calls.failing = failing;
        {
            ScopedServiceControl control(kName);
            unsigned long state = 0;
            control.StartSvc();
            control.StopSvc();
            control.GetStatus(state);
            control.RestartSvc();
        }
        EXPECT_EQ(calls.Open(), 0u) << failing;
    }
}
