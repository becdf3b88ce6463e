#include <UtilsLib/registry/LiveRegSettings.h>

#include <UtilsLib/platform/UniqueHandle.h>
#include <UtilsLib/threading/ThreadMonitor.h>

#include <tests/support/ExpectExit.h>
#include <tests/support/Gate.h>
#include <tests/support/ImportPatch.h>
#include <tests/support/OpenHandles.h>
#include <tests/support/ScopedMachineHive.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <stdexcept>
#include <string>

using TestSupport::Eventually;
using TestSupport::ImportPatch;
using TestSupport::ScopedMachineHive;
using UtilsLib::LiveRegSettings;
using UtilsLib::ThreadMonitor;
using UtilsLib::ThreadState;
using UtilsLib::Platform::UniqueHandle;

// The settings live as long as the process: every test is a process of its own and starts with none.

namespace
{

constexpr unsigned long long kStart = 1'000'000; // ms, of the made-up clock
constexpr unsigned long long kPeriod = 20'000;   // ms
constexpr DWORD kLimit = 5000;                   // ms
const char* const kName = "disable_udp";

struct Creation
{
    int calls = 0;
    void* security = nullptr;
    long initial = -1;
    long maximum = -1;
    std::string name;
    HANDLE handle = nullptr;
};
Creation g_creation;

HANDLE WINAPI RecordCreation(SECURITY_ATTRIBUTES* security, LONG initial, LONG maximum, const char* name)
{
    const HANDLE handle = CreateSemaphoreA(security, initial, maximum, name);
    g_creation = {g_creation.calls + 1, security, initial, maximum, name, handle};
    return handle;
}

HANDLE WINAPI FailCreation(SECURITY_ATTRIBUTES*, LONG, LONG, const char*)
{
    ++g_creation.calls;
    SetLastError(ERROR_INVALID_HANDLE);
    return nullptr;
}

std::atomic<int> g_reads = 0;

LSTATUS WINAPI CountReads(HKEY key, const char* name, DWORD* reserved, DWORD* type, BYTE* data, DWORD* size)
{
    g_reads += std::strcmp(name, kName) == 0 ? 1 : 0;
    return RegQueryValueExA(key, name, reserved, type, data, size);
}

/// Lets the settings' thread run cycle by cycle: it stops at its wait until the test lets it go, and the library's
/// clock shows what the test says.
class Cycles
{
public:
    ~Cycles()
    {
        LiveRegSettings::GetInstance().Shutdown(); // a thread that is still in a wait is let go by it
    }

    /// Starts the thread; it then stands at its first wait.
    [[nodiscard]] bool Start(unsigned long long tick = kStart)
    {
        ms_tick = tick;
        LiveRegSettings::GetInstance().Start();
        return HasArrived();
    }
    /// The wait ends with `outcome` at the time `tick`; the thread then stands at its next wait.
    [[nodiscard]] bool Next(unsigned long long tick, DWORD outcome = WAIT_TIMEOUT)
    {
        LetGo(tick, outcome);
        return HasArrived();
    }
    /// The wait ends, and nobody looks where the thread goes.
    void LetGo(unsigned long long tick, DWORD outcome = WAIT_TIMEOUT)
    {
        ms_outcome = outcome;
        ms_tick = tick;
        Post(ms_go.Get());
    }
    DWORD Interval() const
    {
        return ms_interval;
    }

private:
    static void Post(HANDLE semaphore)
    {
        ReleaseSemaphore(semaphore, 1, nullptr);
    }
    static bool HasArrived()
    {
        return WaitForSingleObject(ms_arrived.Get(), kLimit) == WAIT_OBJECT_0;
    }
    static DWORD WINAPI Wait(HANDLE handle, DWORD milliseconds)
    {
        if (handle != g_creation.handle)
        {
            return WaitForSingleObject(handle, milliseconds);
        }
        ms_interval = milliseconds;
        Post(ms_arrived.Get());
        WaitForSingleObject(ms_go.Get(), INFINITE);
        return ms_outcome;
    }
    static ULONGLONG WINAPI Tick()
    {
        return ms_tick;
    }
    static DWORD WINAPI ShutdownWait(DWORD count, const HANDLE* handles, BOOL all, DWORD milliseconds)
    {
        Post(ms_go.Get()); // by now the stop is requested
        return WaitForMultipleObjects(count, handles, all, milliseconds);
    }

    static std::atomic<unsigned long long> ms_tick;
    static std::atomic<DWORD> ms_outcome;
    static std::atomic<DWORD> ms_interval;
    // The system's own: the standard library's can sleep through a release here when two are in use.
    static const UniqueHandle ms_arrived;
    static const UniqueHandle ms_go;

    const ImportPatch m_creation{"KERNEL32.dll", "CreateSemaphoreA", &RecordCreation};
    const ImportPatch m_wait{"KERNEL32.dll", "WaitForSingleObject", &Wait};
    const ImportPatch m_tick{"KERNEL32.dll", "GetTickCount64", &Tick};
    const ImportPatch m_shutdown{"KERNEL32.dll", "WaitForMultipleObjects", &ShutdownWait};
};

std::atomic<unsigned long long> Cycles::ms_tick = 0;
std::atomic<DWORD> Cycles::ms_outcome = WAIT_TIMEOUT;
std::atomic<DWORD> Cycles::ms_interval = 0;
const UniqueHandle Cycles::ms_arrived(CreateSemaphoreA(nullptr, 0, 1000, nullptr));
const UniqueHandle Cycles::ms_go(CreateSemaphoreA(nullptr, 0, 1000, nullptr));

class LiveRegSettingsCycleTest : public testing::Test
{
protected:
    LiveRegSettingsCycleTest()
    {
        LiveRegSettings::GetInstance();
        g_reads = 0; // not the one of the making
    }

    static ThreadState Monitored()
    {
        const auto threads = ThreadMonitor::GetInstance().GetThreadStatus();
        const auto found = threads.find(LiveRegSettings::GetInstance().GetThreadId());
        return found == threads.end() ? ThreadState{"not there", false, -1} : found->second;
    }

    ScopedMachineHive m_machine;
    Cycles m_cycles;
    const ImportPatch m_query{"ADVAPI32.dll", "RegQueryValueExA", &CountReads};
};

bool ReadsAs(unsigned long expected)
{
    unsigned long value = 0;
    return LiveRegSettings::GetInstance().GetRegSetting(kName, value) && value == expected;
}

void ExpectExit(const std::string& way, unsigned long code)
{
    TestSupport::ExpectExit("child_live_settings_exit", way, code);
}

} // namespace

// --- The semaphore

TEST_F(LiveRegSettingsCycleTest, TheSemaphoreIsMadeOnceWithItsName)
{
    LiveRegSettings::GetInstance();

    EXPECT_EQ(g_creation.calls, 1);
    EXPECT_EQ(g_creation.security, nullptr);
    EXPECT_EQ(g_creation.initial, 0);
    EXPECT_EQ(g_creation.maximum, 1);
    EXPECT_EQ(g_creation.name, "hxds_drivetest_sm");
    EXPECT_NE(g_creation.handle, nullptr);
}

TEST(LiveRegSettingsThreadTest, WithoutTheSemaphoreTheThreadReadsAndStopsAllTheSame)
{
    const ScopedMachineHive machine;
    const ImportPatch creation("KERNEL32.dll", "CreateSemaphoreA", &FailCreation);
    LiveRegSettings& settings = LiveRegSettings::GetInstance();
    EXPECT_EQ(g_creation.calls, 1);
    machine.SetDword(kName, 5);

    settings.Start();

    EXPECT_TRUE(Eventually([] { return ReadsAs(5); }));
    settings.Shutdown();
    EXPECT_TRUE(ReadsAs(5));
}

// --- The cycle

TEST_F(LiveRegSettingsCycleTest, TheThreadWaitsHalfASecondACycle)
{
    ASSERT_TRUE(m_cycles.Start());
    EXPECT_EQ(m_cycles.Interval(), 500u);

    ASSERT_TRUE(m_cycles.Next(kStart));
    EXPECT_EQ(m_cycles.Interval(), 500u);
}

TEST_F(LiveRegSettingsCycleTest, TheFirstCycleReadsAfterItsWait)
{
    ASSERT_TRUE(m_cycles.Start());
    EXPECT_EQ(g_reads, 0);

    ASSERT_TRUE(m_cycles.Next(kStart));

    EXPECT_EQ(g_reads, 1);
}

TEST_F(LiveRegSettingsCycleTest, TheNextReadComesTwentySecondsAfterTheLast)
{
    ASSERT_TRUE(m_cycles.Start());
    ASSERT_TRUE(m_cycles.Next(kStart));

    ASSERT_TRUE(m_cycles.Next(kStart + kPeriod - 1));
    EXPECT_EQ(g_reads, 1);
    ASSERT_TRUE(m_cycles.Next(kStart + kPeriod + 7));
    EXPECT_EQ(g_reads, 2);
    ASSERT_TRUE(m_cycles.Next(kStart + 2 * kPeriod + 6));
    EXPECT_EQ(g_reads, 2);
    ASSERT_TRUE(m_cycles.Next(kStart + 2 * kPeriod + 7));
    EXPECT_EQ(g_reads, 3);
}

TEST_F(LiveRegSettingsCycleTest, InTheFirstTwentySecondsOfTheMachineNothingIsRead)
{
    ASSERT_TRUE(m_cycles.Start(100));

    ASSERT_TRUE(m_cycles.Next(kPeriod - 1));
    EXPECT_EQ(g_reads, 0);
    ASSERT_TRUE(m_cycles.Next(kPeriod));
    EXPECT_EQ(g_reads, 1);
}

TEST_F(LiveRegSettingsCycleTest, TheClockIsReadInSixtyFourBits)
{
    constexpr unsigned long long beyond = 0x1'0000'0005; // more than 49.7 days
    ASSERT_TRUE(m_cycles.Start(beyond));
    ASSERT_TRUE(m_cycles.Next(beyond));

    ASSERT_TRUE(m_cycles.Next(beyond + kPeriod - 1));
    EXPECT_EQ(g_reads, 1);
    ASSERT_TRUE(m_cycles.Next(beyond + kPeriod));
    EXPECT_EQ(g_reads, 2);
    EXPECT_EQ(Monitored().lastShutdownCheck, static_cast<long long>(beyond + kPeriod));
}

TEST_F(LiveRegSettingsCycleTest, NoOutcomeOfTheWaitForcesARead)
{
    ASSERT_TRUE(m_cycles.Start());
    ASSERT_TRUE(m_cycles.Next(kStart));

    for (const DWORD outcome : {WAIT_OBJECT_0, static_cast<DWORD>(WAIT_ABANDONED), WAIT_FAILED})
    {
        ASSERT_TRUE(m_cycles.Next(kStart + 1, outcome)) << outcome;
    }

    EXPECT_EQ(g_reads, 1);
}

TEST_F(LiveRegSettingsCycleTest, NoOutcomeOfTheWaitPreventsARead)
{
    ASSERT_TRUE(m_cycles.Start());
    int cycle = 0;
    for (const DWORD outcome : {WAIT_OBJECT_0, static_cast<DWORD>(WAIT_ABANDONED), WAIT_FAILED})
    {
        ASSERT_TRUE(m_cycles.Next(kStart + cycle * kPeriod, outcome)) << outcome;
        EXPECT_EQ(g_reads, ++cycle) << outcome;
    }
}

TEST_F(LiveRegSettingsCycleTest, EveryCycleReportsLifeToTheMonitorBeforeItsWait)
{
    ASSERT_TRUE(m_cycles.Start(kStart));
    EXPECT_EQ(Monitored().description, "LiveRegSettings");
    EXPECT_TRUE(Monitored().started);
    EXPECT_EQ(Monitored().lastShutdownCheck, static_cast<long long>(kStart));

    ASSERT_TRUE(m_cycles.Next(kStart + 500));
    EXPECT_EQ(Monitored().lastShutdownCheck, static_cast<long long>(kStart + 500));

    LiveRegSettings::GetInstance().Shutdown();
    EXPECT_EQ(Monitored().description, "not there");
}

TEST_F(LiveRegSettingsCycleTest, AStopDuringTheWaitStillReadsWhatIsDueAndThenEnds)
{
    ASSERT_TRUE(m_cycles.Start());
    m_machine.SetDword(kName, 5);

    LiveRegSettings::GetInstance().Shutdown(); // ends the wait after requesting the stop

    EXPECT_EQ(g_reads, 1);
    EXPECT_TRUE(ReadsAs(5));
}

TEST_F(LiveRegSettingsCycleTest, AThreadThatWasShutDownDoesNotReadWhenStartedAgain)
{
    ASSERT_TRUE(m_cycles.Start());
    LiveRegSettings::GetInstance().Shutdown();
    g_reads = 0;

    LiveRegSettings::GetInstance().Start();
    EXPECT_TRUE(Eventually([] { return Monitored().description == "not there"; }));
    LiveRegSettings::GetInstance().Shutdown();

    EXPECT_EQ(g_reads, 0);
}

TEST_F(LiveRegSettingsCycleTest, AThrowingCallbackEndsTheThreadQuietlyAndReadStillWorks)
{
    LiveRegSettings& settings = LiveRegSettings::GetInstance();
    settings.RegisterRegSettingChanged(kName, [](const std::string&) {
        unsigned long value = 0;
        LiveRegSettings::GetInstance().GetRegSetting(kName, value);
        if (value == 5)
        {
            throw std::runtime_error("callback");
        }
    });
    m_machine.SetDword(kName, 5);
    ASSERT_TRUE(m_cycles.Start());

    m_cycles.LetGo(kStart);

    EXPECT_TRUE(Eventually([] { return Monitored().description == "not there"; }));
    EXPECT_TRUE(ReadsAs(5)); // and the lock is free
    m_machine.SetDword(kName, 6);
    settings.Read();
    EXPECT_TRUE(ReadsAs(6));
}

TEST_F(LiveRegSettingsCycleTest, CallbacksRunOnTheThreadThatReads)
{
    std::atomic<unsigned long> id = 0;
    LiveRegSettings& settings = LiveRegSettings::GetInstance();
    settings.RegisterRegSettingChanged(kName, [&id](const std::string&) { id = GetCurrentThreadId(); });
    ASSERT_TRUE(m_cycles.Start());

    m_machine.SetDword(kName, 5);
    ASSERT_TRUE(m_cycles.Next(kStart));
    EXPECT_EQ(id, settings.GetThreadId());

    m_machine.SetDword(kName, 6);
    settings.Read();
    EXPECT_EQ(id, GetCurrentThreadId());
}

// --- The whole life, by the system's own clock

TEST(LiveRegSettingsThreadTest, TheCacheIsFreshSoonAfterTheStartAndTheThreadStopsLongBeforeItsNextRead)
{
    const ScopedMachineHive machine;
    LiveRegSettings& settings = LiveRegSettings::GetInstance();
    settings.Read(); // what the system opens once
    const unsigned long handles = TestSupport::OpenHandles();
    machine.SetDword(kName, 5);

    settings.Start();

    EXPECT_TRUE(Eventually([] { return ReadsAs(5); }));
    const auto asked = std::chrono::steady_clock::now();
    settings.Shutdown();
    EXPECT_LT(std::chrono::steady_clock::now() - asked, std::chrono::seconds(10));
    EXPECT_TRUE(Eventually([handles] { return TestSupport::OpenHandles() <= handles; }));
}

TEST(LiveRegSettingsExitTest, HostThatReturnsFromMainWithTheThreadRunningKeepsItsExitCode)
{
    ExpectExit("return", 7);
}

TEST(LiveRegSettingsExitTest, HostThatNeverStartedTheThreadKeepsItsExitCode)
{
    ExpectExit("not-started", 7);
}

TEST(LiveRegSettingsExitTest, HostThatReturnsFromMainWhileACallbackHangsKeepsItsExitCode)
{
    ExpectExit("callback-hangs", 7);
}

TEST(LiveRegSettingsExitTest, ACallbackMayEndTheProcess)
{
    ExpectExit("callback-exits", 9);
}

TEST(LiveRegSettingsExitTest, HostWithoutTheSemaphoreKeepsItsExitCode)
{
    ExpectExit("no-semaphore", 7);
}

TEST(LiveRegSettingsExitTest, LibraryIsUnloadedWithTheThreadRunningAndKeepsNothing)
{
    TestSupport::ExpectExit("child_live_settings_unload", "5", 0);
}
