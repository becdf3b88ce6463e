#include <UtilsLib/WindowsTypes.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <thread>

namespace
{

constexpr unsigned long long kLimit = 60'000; // ms for one test
constexpr UINT kHung = 99;

/// Ends the run when one test takes longer than the limit: a hang must name its test.
class Watchdog : public testing::EmptyTestEventListener
{
public:
    Watchdog()
    {
        std::thread(&Watch).detach();
        // A thread that is starting opens handles: tests that count them must not see it.
        while (!ms_watching)
        {
            Sleep(1);
        }
    }

private:
    void OnTestStart(const testing::TestInfo&) override
    {
        ms_started = GetTickCount64();
    }
    void OnTestEnd(const testing::TestInfo&) override
    {
        ms_started = 0;
    }

    static void Watch()
    {
        ms_watching = true;
        for (;;)
        {
            Sleep(500);
            const unsigned long long started = ms_started;
            if (started != 0 && GetTickCount64() > started + kLimit)
            {
                const testing::TestInfo* const test = testing::UnitTest::GetInstance()->current_test_info();
                std::printf("HUNG: %s.%s\n", test ? test->test_suite_name() : "?", test ? test->name() : "?");
                std::fflush(stdout);
                TerminateProcess(GetCurrentProcess(), kHung);
            }
        }
    }

    // Static, because the thread outlives this object at the end of the process.
    static inline std::atomic<bool> ms_watching = false;
    static inline std::atomic<unsigned long long> ms_started = 0; // when the running test began; 0 between tests
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
    testing::UnitTest::GetInstance()->listeners().Append(new Watchdog); // owned by GoogleTest
    return RUN_ALL_TESTS();
}
