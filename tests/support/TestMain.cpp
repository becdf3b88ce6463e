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
        std::thread([this] { Watch(); }).detach();
    }

private:
    void OnTestStart(const testing::TestInfo&) override
    {
        m_started = GetTickCount64();
    }
    void OnTestEnd(const testing::TestInfo&) override
    {
        m_started = 0;
    }

    void Watch()
    {
        for (;;)
        {
            Sleep(500);
            const unsigned long long started = m_started;
            if (started != 0 && GetTickCount64() > started + kLimit)
            {
                const testing::TestInfo* const test = testing::UnitTest::GetInstance()->current_test_info();
                std::printf("HUNG: %s.%s\n", test ? test->test_suite_name() : "?", test ? test->name() : "?");
                std::fflush(stdout);
                TerminateProcess(GetCurrentProcess(), kHung);
            }
        }
    }

    std::atomic<unsigned long long> m_started = 0;
};

/// GoogleTest's first trace and the run-time's first exception open handles that stay. Tests that count handles must not
/// see them appear.
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
