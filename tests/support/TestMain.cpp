#include <UtilsLib/WindowsTypes.h>
#include <UtilsLib/platform/UniqueHandle.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace
{

constexpr UINT kHung = 99;

/// How long one test may take, in ms: a minute, or what the environment says in seconds.
unsigned long long Limit()
{
    const char* const seconds = std::getenv("UTILSLIB_TEST_LIMIT");
    return (seconds != nullptr ? std::strtoul(seconds, nullptr, 10) : 60UL) * 1000ULL;
}

std::atomic<unsigned long long> g_started = 0; // when the running test began, in ms; 0 between tests

class NoteStarts : public testing::EmptyTestEventListener
{
    void OnTestStart(const testing::TestInfo&) override
    {
        g_started = GetTickCount64();
    }
    void OnTestEnd(const testing::TestInfo&) override
    {
        g_started = 0;
    }
};

/// Ends the run when one test takes longer than the limit: a hang must name its test. Its thread ends before main
/// does, because a process that ends under a sleeping thread crashes now and then.
class Watchdog
{
public:
    Watchdog()
        : m_over(CreateEventA(nullptr, TRUE, FALSE, nullptr)),
          m_thread(CreateThread(nullptr, 0, &Watchdog::Run, this, 0, nullptr))
    {
        // A thread that is starting opens handles: tests that count them must not see it.
        while (!m_watching)
        {
            Sleep(1);
        }
    }
    ~Watchdog()
    {
        SetEvent(m_over.Get());
        WaitForSingleObject(m_thread.Get(), INFINITE);
    }
    Watchdog(const Watchdog&) = delete;
    Watchdog& operator=(const Watchdog&) = delete;

private:
    // A thread of the system's: joining one of the run-time library's fails now and then at the end of a process ("No
    // such process").
    static DWORD WINAPI Run(void* watchdog)
    {
        static_cast<Watchdog*>(watchdog)->Watch();
        return 0;
    }

    void Watch()
    {
        const unsigned long long limit = Limit();
        m_watching = true;
        while (WaitForSingleObject(m_over.Get(), 500) == WAIT_TIMEOUT)
        {
            const unsigned long long started = g_started;
            if (started != 0 && GetTickCount64() > started + limit)
            {
                const testing::TestInfo* const test = testing::UnitTest::GetInstance()->current_test_info();
                std::printf("HUNG: %s.%s\n", test ? test->test_suite_name() : "?", test ? test->name() : "?");
                std::fflush(stdout);
                TerminateProcess(GetCurrentProcess(), kHung);
            }
        }
    }

    UtilsLib::Platform::UniqueHandle m_over;
    std::atomic<bool> m_watching = false; // before the thread, which writes it
    UtilsLib::Platform::UniqueHandle m_thread;
};

/// GoogleTest's first trace and the run-time's first exception open handles that stay. Tests that count handles must
/// not see them appear.
void OpenLazyHandles()
{
    SCOPED_TRACE("main");
    try
    {
        throw 0;
    }
    catch (int)
    {
    }
}

} // namespace

int main(int argc, char** argv)
{
    // The C run-time would read a TZ of the build machine by rules of its own; without it, it asks the system.
    _putenv("TZ=");
    _tzset();
    testing::InitGoogleMock(&argc, argv);
    OpenLazyHandles();
    testing::UnitTest::GetInstance()->listeners().Append(new NoteStarts); // owned by GoogleTest
    const Watchdog watchdog;
    return RUN_ALL_TESTS();
}
