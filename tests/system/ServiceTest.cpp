#include <UtilsLib/system/Service.h>

#include <UtilsLib/platform/UniqueServiceHandle.h>

#include <tests/support/ChildProcess.h>
#include <tests/support/ImportPatch.h>
#include <tests/support/InstalledService.h>
#include <tests/support/TempFolder.h>
#include <tests/system/ServiceCalls.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <malloc.h>

#include <algorithm>
#include <cstring>

using RequestLib::VersionInfo;
using testing::ElementsAre;
using TestSupport::ImportPatch;
using TestSupport::InstalledService;
using TestSupport::LastErrorText;
using TestSupport::ServiceCommandLine;
using UtilsLib::Service;
using UtilsLib::Platform::UniqueServiceHandle;

namespace
{

constexpr char kName[] = "UtilsLibServiceTest";
constexpr char kMissing[] = "UtilsLibNoSuchService";
constexpr char kOpenManager[] = "OpenSCManagerA here F003F";
constexpr char kOpenService[] = "OpenServiceA UtilsLibServiceTest F01FF";
constexpr char kStop[] = "ControlService handle 1 1";

// Data services, by their numbers.
const std::string kDisplay27 = "Corvane Ledgrix Service v27";
const std::string kDisplay30 = "Corvane Ledgrix Service v30";

std::string Program(const std::string& name)
{
    return TestSupport::ProgramFolder() + "\\" + name;
}

std::string BinaryPath(const std::string& service)
{
    const UniqueServiceHandle manager(OpenSCManagerA(nullptr, nullptr, SC_MANAGER_CONNECT));
    EXPECT_TRUE(manager) << LastErrorText("OpenSCManagerA");
    return Service::GetServiceBinaryPath(manager.Get(), service);
}

/// "name major.minor.build" of each.
std::vector<std::string> Texts(const std::vector<VersionInfo>& versions)
{
    std::vector<std::string> texts;
    for (const auto& [name, major, minor, build] : versions)
    {
        texts.push_back(name + " " + std::to_string(major) + "." + std::to_string(minor) + "." + std::to_string(build));
    }
    return texts;
}

std::vector<std::string> DataServices()
{
    std::vector<VersionInfo> versions;
    EXPECT_TRUE(Service::GetDataServiceVersions(versions)) << LastErrorText("GetDataServiceVersions");
    return Texts(versions);
}

// Answers in place of QueryServiceConfigA: what the calls asked for, and how they fail.
std::vector<DWORD> g_configSizes;
DWORD g_sizeError = 0;
std::string g_unreadable; // the service whose calls fail when a size is given

BOOL WINAPI FailToGiveTheSize(SC_HANDLE service, QUERY_SERVICE_CONFIGA* config, DWORD size, DWORD* needed)
{
    g_configSizes.push_back(size);
    const BOOL read = QueryServiceConfigA(service, config, size, needed);
    if (size == 0)
    {
        SetLastError(g_sizeError);
    }
    return read;
}

BOOL WINAPI FailToReadTheConfiguration(SC_HANDLE service, QUERY_SERVICE_CONFIGA* config, DWORD size, DWORD* needed)
{
    if (size == 0)
    {
        return QueryServiceConfigA(service, config, size, needed);
    }
    SetLastError(ServiceCalls::kRefused);
    return FALSE;
}

BOOL WINAPI GiveNoPath(SC_HANDLE service, QUERY_SERVICE_CONFIGA* config, DWORD size, DWORD* needed)
{
    const BOOL read = QueryServiceConfigA(service, config, size, needed);
    if (read)
    {
        config->lpBinaryPathName = nullptr;
    }
    return read;
}

/// A service whose path is empty, among others that are well.
BOOL WINAPI GiveOneAnEmptyPath(SC_HANDLE service, QUERY_SERVICE_CONFIGA* config, DWORD size, DWORD* needed)
{
    const BOOL read = QueryServiceConfigA(service, config, size, needed);
    if (read && config->lpDisplayName == g_unreadable)
    {
        std::strcpy(config->lpBinaryPathName, "\"\"");
    }
    return read;
}

// Answers in place of EnumServicesStatusA.
struct Enumeration
{
    DWORD types = 0;
    DWORD states = 0;
    DWORD size = 0;
    DWORD start = 0;  // the number of the first service that is asked for
    DWORD needed = 0; // as answered
};
std::vector<Enumeration> g_enumerations;
DWORD g_firstError = 0; // of the first call; 0: it succeeds
bool g_secondFails = false;

BOOL WINAPI Enumerate(SC_HANDLE manager, DWORD types, DWORD states, ENUM_SERVICE_STATUSA* services, DWORD size,
                      DWORD* needed, DWORD* count, DWORD* resume)
{
    const DWORD start = *resume;
    const BOOL done = EnumServicesStatusA(manager, types, states, services, size, needed, count, resume);
    const DWORD error = GetLastError();
    g_enumerations.push_back({types, states, size, start, *needed});
    if (!done)
    {
        *resume = 1; // where Windows would go on; Wine does not tell
    }
    else if (size > sizeof(*services))
    {
        EXPECT_GE(_msize(services), size) << "there is less room than the system was told";
    }
    SetLastError(error);
    return done;
}

BOOL WINAPI EnumerateBadly(SC_HANDLE manager, DWORD types, DWORD states, ENUM_SERVICE_STATUSA* services, DWORD size,
                           DWORD* needed, DWORD* count, DWORD* resume)
{
    const BOOL done = Enumerate(manager, types, states, services, size, needed, count, resume);
    const bool first = g_enumerations.size() == 1;
    SetLastError(first ? g_firstError : ERROR_MORE_DATA);
    return first ? g_firstError == 0 : done && !g_secondFails;
}

BOOL WINAPI EnumerateNameless(SC_HANDLE manager, DWORD types, DWORD states, ENUM_SERVICE_STATUSA* services, DWORD size,
                              DWORD* needed, DWORD* count, DWORD* resume)
{
    const BOOL done = EnumServicesStatusA(manager, types, states, services, size, needed, count, resume);
    for (DWORD i = 0; done && i < *count; ++i)
    {
        services[i].lpDisplayName = nullptr;
    }
    return done;
}

/// The suite's data services of two releases, the older one installed first and last in the alphabet.
class DataServicesTest : public testing::Test
{
protected:
    DataServicesTest()
    {
        g_enumerations.clear();
        g_firstError = ERROR_MORE_DATA;
        g_secondFails = false;
        g_unreadable.clear();
    }

    InstalledService m_v27{"UtilsLibDataService27", ServiceCommandLine("", "child_data_service_27"), kDisplay27};
    InstalledService m_v30{"UtilsLibDataService30", ServiceCommandLine("", "child_data_service_30"), kDisplay30};
};

const std::string kListed27 = kDisplay27 + " 27.1.305";
const std::string kListed30 = kDisplay30 + " 30.2.11";

} // namespace

TEST(ServiceTest, StopServiceSendsOneStopAndDoesNotWait)
{
    const InstalledService service(kName, ServiceCommandLine("slow-stop 3000"));
    ASSERT_TRUE(service.Start());
    ServiceCalls calls;

    Service::StopService(kName);

    EXPECT_TRUE(service.Reaches(SERVICE_STOP_PENDING, std::chrono::seconds(2)));
    ASSERT_EQ(calls.calls.size(), 5u);
    EXPECT_THAT(std::vector(calls.calls.begin(), calls.calls.begin() + 3),
                ElementsAre(kOpenManager, kOpenService, kStop));
    EXPECT_EQ(calls.Open(), 0u);
    EXPECT_EQ(calls.queries, 0);
    EXPECT_TRUE(calls.sleeps.empty());
}

TEST(ServiceTest, StopServiceEndsARunningService)
{
    const InstalledService service(kName);
    ASSERT_TRUE(service.Start());

    Service::StopService(kName);

    EXPECT_TRUE(service.Reaches(SERVICE_STOPPED));
}

TEST(ServiceTest, StopServiceOfWhatCannotBeOpenedDoesNothing)
{
    ServiceCalls calls;

    Service::StopService(kMissing);
    EXPECT_EQ(calls.Count("OpenServiceA"), 1);
    calls.failing = "OpenSCManagerA";
    Service::StopService(kMissing);

    EXPECT_EQ(calls.Count("OpenServiceA"), 1);
    EXPECT_EQ(calls.Count("ControlService"), 0);
    EXPECT_EQ(calls.Open(), 0u);
}

TEST(ServiceTest, WaitReturnsWhenTheStateIsReached)
{
    const InstalledService service(kName, ServiceCommandLine("slow-start 1500"));
    SERVICE_STATUS_PROCESS status = {};
    {
        const UniqueServiceHandle manager(OpenSCManagerA(nullptr, nullptr, SC_MANAGER_CONNECT));
        const UniqueServiceHandle opened(OpenServiceA(manager.Get(), kName, SERVICE_START));
        ASSERT_TRUE(StartServiceA(opened.Get(), 0, nullptr)) << LastErrorText("StartServiceA");
    }
    ServiceCalls calls;
    calls.onSleep = [] { Sleep(1000); };

    Service::Wait(kName, SERVICE_RUNNING, 30);

    status = service.Status();
    EXPECT_EQ(status.dwCurrentState, static_cast<DWORD>(SERVICE_RUNNING));
    EXPECT_THAT(calls.calls, testing::Contains(kOpenManager));
    EXPECT_THAT(calls.calls, testing::Contains(kOpenService));
    EXPECT_GE(calls.sleeps.size(), 1u);
    EXPECT_LE(calls.sleeps.size(), 10u);
    EXPECT_EQ(calls.Open(), 0u);
}

TEST(ServiceTest, WaitDoesNotSleepWhenTheStateIsThere)
{
    const InstalledService service(kName);
    ServiceCalls calls;

    Service::Wait(kName, SERVICE_STOPPED, 30);

    EXPECT_EQ(calls.queries, 1);
    EXPECT_TRUE(calls.sleeps.empty());
}

TEST(ServiceTest, WaitGivesUpAfterItsSeconds)
{
    const InstalledService service(kName);
    ServiceCalls calls;

    Service::Wait(kName, SERVICE_RUNNING, 3);

    EXPECT_EQ(calls.queries, 3);
    EXPECT_THAT(calls.sleeps, ElementsAre(1000u, 1000u, 1000u));
    EXPECT_EQ(calls.Open(), 0u);
}

TEST(ServiceTest, WaitOfNoSecondsAsksNothing)
{
    const InstalledService service(kName);
    ServiceCalls calls;

    Service::Wait(kName, SERVICE_RUNNING, 0);
    Service::Wait(kName, SERVICE_RUNNING, -5);

    EXPECT_EQ(calls.queries, 0);
    EXPECT_TRUE(calls.sleeps.empty());
    EXPECT_EQ(calls.Open(), 0u);
}

TEST(ServiceTest, WaitForWhatCannotBeOpenedReturnsAtOnce)
{
    ServiceCalls calls;

    Service::Wait(kMissing, SERVICE_RUNNING, 30);
    calls.failing = "OpenSCManagerA";
    Service::Wait(kMissing, SERVICE_RUNNING, 30);

    EXPECT_EQ(calls.Count("OpenServiceA"), 1);
    EXPECT_EQ(calls.queries, 0);
    EXPECT_TRUE(calls.sleeps.empty());
    EXPECT_EQ(calls.Open(), 0u);
}

TEST(ServiceTest, WaitComparesAFailedQueryWithTheStateOfTheOneBefore)
{
    const InstalledService service(kName);
    ServiceCalls calls;
    calls.state = [](int number) { return number == 1 ? SERVICE_STOPPED : 0; };

    Service::Wait(kName, SERVICE_RUNNING, 3);
    EXPECT_EQ(calls.queries, 3);

    // Nothing was answered yet: the state is 0.
    calls.sleeps.clear();
    calls.queries = 1;
    Service::Wait(kName, 0, 3);
    EXPECT_EQ(calls.queries, 2);
    EXPECT_TRUE(calls.sleeps.empty());
}

TEST(ServiceTest, TheBinaryPathLosesItsQuotesAndKeepsItsArguments)
{
    const InstalledService quoted(kName, "\"C:\\Program Files\\Service\\svc.exe\" -k \"a b\" \"\"c\"");
    const InstalledService plain("UtilsLibServiceTest2", "C:\\svc.exe");

    EXPECT_EQ(BinaryPath(kName), "C:\\Program Files\\Service\\svc.exe -k a b c");
    EXPECT_EQ(BinaryPath("UtilsLibServiceTest2"), "C:\\svc.exe");
}

TEST(ServiceTest, ALongBinaryPathIsReadWhole)
{
    const std::string path = "C:\\" + std::string(3000, 'x') + ".exe";
    const InstalledService service(kName, path);

    EXPECT_EQ(BinaryPath(kName), path);
}

TEST(ServiceTest, TheBinaryPathOfAMissingServiceIsEmpty)
{
    ServiceCalls calls;
    SetLastError(ERROR_SUCCESS);

    EXPECT_EQ(BinaryPath(kMissing), "");

    EXPECT_THAT(calls.calls, ElementsAre("OpenServiceA UtilsLibNoSuchService 1"));
    EXPECT_EQ(Service::GetServiceBinaryPath(nullptr, kMissing), "");
}

TEST(ServiceTest, TheBinaryPathIsReadThroughTheGivenManagerAndTheServiceIsClosed)
{
    const InstalledService service(kName);
    ServiceCalls calls;

    EXPECT_EQ(BinaryPath(kName), Program("child_scripted_service.exe run"));

    EXPECT_THAT(calls.calls, ElementsAre("OpenServiceA UtilsLibServiceTest 1", "CloseServiceHandle handle 0"));
    EXPECT_EQ(calls.Open(), 0u);
}

TEST(ServiceTest, AnUnreadableConfigurationGivesAnEmptyPathAndItsError)
{
    const InstalledService service(kName);
    ServiceCalls calls;
    {
        const ImportPatch fails("ADVAPI32.dll", "QueryServiceConfigA", &FailToReadTheConfiguration);
        const UniqueServiceHandle manager(OpenSCManagerA(nullptr, nullptr, SC_MANAGER_CONNECT));
        EXPECT_EQ(Service::GetServiceBinaryPath(manager.Get(), kName), "");
        EXPECT_EQ(GetLastError(), ServiceCalls::kRefused);
    }
    {
        const ImportPatch fails("ADVAPI32.dll", "QueryServiceConfigA", &GiveNoPath);
        EXPECT_EQ(BinaryPath(kName), "");
    }
    EXPECT_EQ(calls.Open(), 0u);
}

TEST(ServiceTest, TheSizeIsTakenOnlyFromABufferThatIsTooSmall)
{
    const InstalledService service(kName);
    const ImportPatch sizes("ADVAPI32.dll", "QueryServiceConfigA", &FailToGiveTheSize);
    g_configSizes.clear();
    g_sizeError = ERROR_ACCESS_DENIED;
    EXPECT_EQ(BinaryPath(kName), "");
    EXPECT_THAT(g_configSizes, ElementsAre(0u, 0u));

    g_configSizes.clear();
    g_sizeError = ERROR_INSUFFICIENT_BUFFER;
    EXPECT_NE(BinaryPath(kName), "");
    EXPECT_THAT(g_configSizes, ElementsAre(0u, testing::Gt(sizeof(QUERY_SERVICE_CONFIGA))));
}

TEST(ServiceTest, AVersionIsTheFirstThreePartsOfTheFileVersionWithoutAName)
{
    EXPECT_THAT(Texts({Service::GetDataServiceVersion(Program("child_data_service_27.exe")),
                       Service::GetDataServiceVersion(Program("high_versioned_file.dll"))}),
                ElementsAre(" 27.1.305", " 40000.65535.32768"));
}

TEST(ServiceTest, AVersionThatCannotBeReadIsZeros)
{
    const TestSupport::TempFolder folder;
    folder.Write("text.exe", "no program");

    for (const std::string& path : {std::string(), Program("child_scripted_service.exe"), Program("missing.exe"),
                                    folder.Path(), folder / "text.exe", std::string(100'000, 'x')})
    {
        EXPECT_THAT(Texts({Service::GetDataServiceVersion(path)}), ElementsAre(" 0.0.0")) << path.substr(0, 260);
    }
}

TEST(ServiceTest, AVersionIsAnAggregateInItsOrder)
{
    const VersionInfo version = {"name", 3, 2, 1};

    EXPECT_EQ(version.name, "name");
    EXPECT_EQ(version.major, 3);
    EXPECT_EQ(version.minor, 2);
    EXPECT_EQ(version.build, 1);
}

TEST(ServiceTest, WithoutDataServicesTheListIsEmpty)
{
    EXPECT_THAT(DataServices(), ElementsAre());
}

TEST_F(DataServicesTest, AreListedWithTheirVersionsTheNewestFirst)
{
    EXPECT_THAT(DataServices(), ElementsAre(kListed30, kListed27));

    // Also when they are installed, and so enumerated, the other way round.
    const InstalledService older("UtilsLibDataServiceA", ServiceCommandLine("", "child_data_service_30"),
                                 "Corvane Ledgrix Service v029");
    std::vector<std::string> majors;
    for (const std::string& text : DataServices())
    {
        majors.push_back(text.substr(text.rfind(' ')));
    }
    EXPECT_THAT(majors, ElementsAre(" 30.2.11", " 30.2.11", " 27.1.305"));
}

TEST_F(DataServicesTest, AreListedWhileTheyRun)
{
    ASSERT_TRUE(m_v27.Start());

    EXPECT_THAT(DataServices(), ElementsAre(kListed30, kListed27));
}

TEST_F(DataServicesTest, AreAppendedAndAllIsSorted)
{
    std::vector<VersionInfo> versions = {{"old", 1, 0, 0}, {"middle", 29, 9, 9}, {"new", 99, 0, 0}};

    EXPECT_TRUE(Service::GetDataServiceVersions(versions));

    EXPECT_THAT(Texts(versions), ElementsAre("new 99.0.0", kListed30, "middle 29.9.9", kListed27, "old 1.0.0"));
}

TEST(ServiceTest, ADataServiceIsFoundByItsWholeDisplayName)
{
    const std::string program = ServiceCommandLine("", "child_data_service_27");
    const InstalledService letterAlone("UtilsLibDataServiceA", program, "Corvane Ledgrix Service v");
    const InstalledService manyDigits("UtilsLibDataServiceB", program, "Corvane Ledgrix Service v00123456789");
    const InstalledService others[] = {
        InstalledService("UtilsLibDataServiceC", program, "Corvane Ledgrix Service v27 (beta)"),
        InstalledService("UtilsLibDataServiceD", program, "Corvane Ledgrix Service v27 "),
        InstalledService("UtilsLibDataServiceE", program, "The Corvane Ledgrix Service v27"),
        InstalledService("UtilsLibDataServiceF", program, "corvane ledgrix service v28"),
        InstalledService("UtilsLibDataServiceG", program, "Corvane Ledgrix Service V29"),
        InstalledService("UtilsLibDataServiceH", program, "Corvane Ledgrix Service 27"),
        InstalledService("UtilsLibDataServiceI", program, "Corvane Ledgrix Service v2.7"),
        InstalledService("Corvane Ledgrix Service v31", program, "Something else"),
    };

    EXPECT_THAT(DataServices(), testing::UnorderedElementsAre("Corvane Ledgrix Service v 27.1.305",
                                                              "Corvane Ledgrix Service v00123456789 27.1.305"));
}

TEST(ServiceTest, ADataServiceWhoseVersionCannotBeReadIsListedWithZeros)
{
    const InstalledService versionless("UtilsLibDataServiceA", ServiceCommandLine(""), "Corvane Ledgrix Service v1");
    const InstalledService missing("UtilsLibDataServiceB", "C:\\missing\\svc.exe", "Corvane Ledgrix Service v2");
    // Its arguments make the path one that names no file.
    const InstalledService withArguments("UtilsLibDataServiceC", ServiceCommandLine("run", "child_data_service_27"),
                                         "Corvane Ledgrix Service v3");

    EXPECT_THAT(DataServices(),
                testing::UnorderedElementsAre("Corvane Ledgrix Service v1 0.0.0", "Corvane Ledgrix Service v2 0.0.0",
                                              "Corvane Ledgrix Service v3 0.0.0"));
}

TEST_F(DataServicesTest, WithoutAPathAreLeftOut)
{
    const ImportPatch empty("ADVAPI32.dll", "QueryServiceConfigA", &GiveOneAnEmptyPath);
    g_unreadable = kDisplay30;

    EXPECT_THAT(DataServices(), ElementsAre(kListed27));
}

TEST_F(DataServicesTest, WithoutADisplayNameAreLeftOut)
{
    const ImportPatch nameless("ADVAPI32.dll", "EnumServicesStatusA", &EnumerateNameless);

    EXPECT_THAT(DataServices(), ElementsAre());
}

TEST_F(DataServicesTest, AreReadWithTheRightToEnumerateAndEveryHandleIsClosed)
{
    ServiceCalls calls;

    EXPECT_EQ(DataServices().size(), 2u);

    EXPECT_EQ(calls.calls.front(), "OpenSCManagerA here 4");
    EXPECT_EQ(calls.calls.back(), "CloseServiceHandle handle 0");
    EXPECT_THAT(calls.calls, testing::Contains("OpenServiceA UtilsLibDataService27 1"));
    EXPECT_EQ(calls.Count("OpenServiceA"), 2);
    EXPECT_EQ(calls.Open(), 0u);
}

TEST_F(DataServicesTest, AreSoughtAmongServicesOfAllTypesAndStatesInABufferOfOneEntryMore)
{
    const ImportPatch enumerate("ADVAPI32.dll", "EnumServicesStatusA", &Enumerate);

    EXPECT_EQ(DataServices().size(), 2u);

    ASSERT_EQ(g_enumerations.size(), 2u);
    for (const Enumeration& call : g_enumerations)
    {
        EXPECT_EQ(call.types, static_cast<DWORD>(SERVICE_WIN32 | SERVICE_DRIVER));
        EXPECT_EQ(call.states, static_cast<DWORD>(SERVICE_STATE_ALL));
        EXPECT_EQ(call.start, 0u);
    }
    EXPECT_EQ(g_enumerations[0].size, sizeof(ENUM_SERVICE_STATUSA));
    EXPECT_EQ(g_enumerations[1].size, g_enumerations[0].needed + 36);
}

TEST_F(DataServicesTest, WithoutAManagerTheListIsLeftAlone)
{
    ServiceCalls calls;
    calls.failing = "OpenSCManagerA";
    std::vector<VersionInfo> versions = {{"old", 1, 0, 0}, {"new", 99, 0, 0}};

    EXPECT_FALSE(Service::GetDataServiceVersions(versions));

    EXPECT_EQ(GetLastError(), ServiceCalls::kRefused);
    EXPECT_THAT(Texts(versions), ElementsAre("old 1.0.0", "new 99.0.0"));
    EXPECT_EQ(calls.calls.size(), 1u);
}

TEST_F(DataServicesTest, AFailedEnumerationAppendsNothingAndStillSorts)
{
    const ImportPatch enumerate("ADVAPI32.dll", "EnumServicesStatusA", &EnumerateBadly);
    ServiceCalls calls;
    struct Case
    {
        DWORD firstError;
        bool secondFails;
        std::size_t enumerations;
    };
    for (const Case& failure : {Case{ERROR_SUCCESS, false, 1}, Case{ERROR_ACCESS_DENIED, false, 1},
                                Case{ERROR_INSUFFICIENT_BUFFER, false, 1}, Case{ERROR_MORE_DATA, true, 2}})
    {
        g_enumerations.clear();
        g_firstError = failure.firstError;
        g_secondFails = failure.secondFails;
        std::vector<VersionInfo> versions = {{"old", 1, 0, 0}, {"new", 99, 0, 0}};

        EXPECT_TRUE(Service::GetDataServiceVersions(versions)) << failure.firstError;

        EXPECT_THAT(Texts(versions), ElementsAre("new 99.0.0", "old 1.0.0")) << failure.firstError;
        EXPECT_EQ(g_enumerations.size(), failure.enumerations);
        EXPECT_EQ(calls.Open(), 0u);
    }
}
