#include <UtilsLib/registry/LiveRegSettings.h>

#include <tests/registry/WatchedNames.h>
#include <tests/support/Gate.h>
#include <tests/support/ImportPatch.h>
#include <tests/support/OpenHandles.h>
#include <tests/support/ScopedMachineHive.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

using testing::ElementsAre;
using testing::IsEmpty;
using TestSupport::Gate;
using TestSupport::ImportPatch;
using TestSupport::ScopedMachineHive;
using UtilsLib::LiveRegSettings;
using UtilsLib::Thread;

// The settings live as long as the process: every test is a process of its own and starts with none.

namespace
{

constexpr unsigned long kUntouched = 0xAABBCCDD;
const char* const kFirst = "disable_udp"; // ascending
const char* const kSecond = "hx41svc_logging_grpc";
const char* const kThird = "stack_logging";

template <typename Settings>
constexpr bool CallsThreadProc = requires(Settings& settings)
{
    settings.ThreadProc();
};

static_assert(std::is_convertible_v<LiveRegSettings*, Thread*>);
static_assert(!std::is_default_constructible_v<LiveRegSettings>);
static_assert(!std::is_copy_constructible_v<LiveRegSettings>);
static_assert(!std::is_copy_assignable_v<LiveRegSettings>);
static_assert(!CallsThreadProc<LiveRegSettings>);

std::vector<std::string> g_queried;
unsigned long g_access = 0;

LSTATUS WINAPI RecordQuery(HKEY key, const char* name, DWORD* reserved, DWORD* type, BYTE* data, DWORD* size)
{
    g_queried.push_back(name);
    return RegQueryValueExA(key, name, reserved, type, data, size);
}

LSTATUS WINAPI RecordOpen(HKEY root, const char* path, DWORD options, REGSAM access, HKEY* key)
{
    g_access = access;
    return RegOpenKeyExA(root, path, options, access, key);
}

/// The cached number, `kUntouched` when not present.
unsigned long Cached(const std::string& name)
{
    unsigned long value = kUntouched;
    const bool present = LiveRegSettings::GetInstance().GetRegSetting(name, value);
    EXPECT_EQ(present, value != kUntouched) << name;
    return value;
}

class LiveRegSettingsTest : public testing::Test
{
protected:
    void Record(const std::string& name, const std::string& mark = "")
    {
        m_settings.RegisterRegSettingChanged(
            name, [this, mark](const std::string& changed) { m_fired.push_back(changed + mark); });
    }
    void SetAndRead(const std::string& name, unsigned long value)
    {
        m_machine.SetDword(name, value);
        m_settings.Read();
    }
    void DeleteAndRead(const std::string& name)
    {
        m_machine.Delete(name);
        m_settings.Read();
    }

    /// Whether another thread gets a setting now, within some seconds.
    static bool OthersCanRead()
    {
        const auto gate = std::make_shared<Gate>();
        std::thread([gate] {
            unsigned long value = 0;
            LiveRegSettings::GetInstance().GetRegSetting(kFirst, value);
            gate->Open();
        }).detach();
        return gate->Wait();
    }

    ScopedMachineHive m_machine;
    LiveRegSettings& m_settings = LiveRegSettings::GetInstance();
    std::vector<std::string> m_fired;
};

} // namespace

// --- The first call

TEST(LiveRegSettingsMakingTest, NothingIsPresentBeforeTheProductKeyExists)
{
    const ScopedMachineHive machine(/*withProductKey=*/false);

    for (const std::string& name : WatchedNames())
    {
        unsigned long value = kUntouched;
        EXPECT_FALSE(LiveRegSettings::GetInstance().GetRegSetting(name, value)) << name;
        EXPECT_EQ(value, kUntouched) << name;
    }
}

TEST(LiveRegSettingsMakingTest, TheFirstCallFillsTheCacheWithEveryWatchedValue)
{
    const ScopedMachineHive machine;
    unsigned long number = 100;
    for (const std::string& name : WatchedNames())
    {
        machine.SetDword(name, number++);
    }

    number = 100;
    for (const std::string& name : WatchedNames())
    {
        EXPECT_EQ(Cached(name), number++) << name;
    }
}

TEST(LiveRegSettingsMakingTest, TheFirstCallReadsEachWatchedNameOnceAscendingAndNoOther)
{
    const ScopedMachineHive machine;
    const ImportPatch query("ADVAPI32.dll", "RegQueryValueExA", &RecordQuery);
    const ImportPatch open("ADVAPI32.dll", "RegOpenKeyExA", &RecordOpen);

    LiveRegSettings& first = LiveRegSettings::GetInstance();
    LiveRegSettings& second = LiveRegSettings::GetInstance();

    EXPECT_EQ(&first, &second);
    EXPECT_EQ(g_queried, WatchedNames());
    EXPECT_EQ(g_access, 0x20019u); // no view flags
}

TEST(LiveRegSettingsMakingTest, TheFirstCallMayComeFromSeveralThreadsAtOnce)
{
    const ScopedMachineHive machine;
    machine.SetDword(kFirst, 3);
    std::atomic<int> right = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
    {
        threads.emplace_back([&right] { right += Cached(kFirst) == 3 ? 1 : 0; });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }

    EXPECT_EQ(right, 4);
}

// --- The cache

TEST_F(LiveRegSettingsTest, AChangeIsSeenAfterTheNextReadAndNotBefore)
{
    m_machine.SetDword(kFirst, 5);
    EXPECT_EQ(Cached(kFirst), kUntouched);
    m_settings.Read();
    EXPECT_EQ(Cached(kFirst), 5u);

    m_machine.SetDword(kFirst, 6);
    EXPECT_EQ(Cached(kFirst), 5u);
    m_settings.Read();
    EXPECT_EQ(Cached(kFirst), 6u);

    m_machine.Delete(kFirst);
    EXPECT_EQ(Cached(kFirst), 6u);
    m_settings.Read();
    EXPECT_EQ(Cached(kFirst), kUntouched);
}

TEST_F(LiveRegSettingsTest, TheNumberZeroIsPresent)
{
    SetAndRead(kFirst, 0);
    EXPECT_EQ(Cached(kFirst), 0u);
}

TEST_F(LiveRegSettingsTest, OtherNamesAreNeverPresentThoughTheRegistryHoldsThem)
{
    for (const char* const name : {"hx41svc_logging_grpc_trace", "hx41svc_retainss", "HX41SVC_LOGGING", "", "zzz"})
    {
        SetAndRead(name, 5);
        EXPECT_EQ(Cached(name), kUntouched) << name;
    }
}

TEST_F(LiveRegSettingsTest, AValueLongerThanFourBytesIsNotPresent)
{
    SetAndRead(kFirst, 5);
    m_machine.SetText(kFirst, "12345");
    m_settings.Read();
    EXPECT_EQ(Cached(kFirst), kUntouched);
}

TEST_F(LiveRegSettingsTest, AShortTextCountsAsItsBytes)
{
    m_machine.SetText(kFirst, "1");
    m_settings.Read();
    EXPECT_EQ(Cached(kFirst), 49u);
}

TEST_F(LiveRegSettingsTest, AnEmptyValueIsThePresetZeroWhateverWasCached)
{
    SetAndRead(kFirst, 5);
    m_machine.SetBytes(kFirst, REG_BINARY, {});
    m_settings.Read();
    EXPECT_EQ(Cached(kFirst), 0u);
}

TEST_F(LiveRegSettingsTest, AProductKeyThatDisappearsTakesAllAndComesBackWithWhatItThenHolds)
{
    m_machine.SetDword(kSecond, 2);
    SetAndRead(kFirst, 1);

    m_machine.DeleteProductKey();
    m_settings.Read();
    EXPECT_EQ(Cached(kFirst), kUntouched);
    EXPECT_EQ(Cached(kSecond), kUntouched);

    m_machine.MakeProductKey();
    SetAndRead(kFirst, 1);
    EXPECT_EQ(Cached(kFirst), 1u);
    EXPECT_EQ(Cached(kSecond), kUntouched);
}

TEST_F(LiveRegSettingsTest, GetNeverAsksTheRegistry)
{
    SetAndRead(kFirst, 5);
    const ImportPatch open("ADVAPI32.dll", "RegOpenKeyExA", &RecordOpen);

    EXPECT_EQ(Cached(kFirst), 5u);
    EXPECT_EQ(Cached(kSecond), kUntouched);

    EXPECT_EQ(g_access, 0u);
}

TEST_F(LiveRegSettingsTest, SetWritesTheRegistryAndLeavesTheCacheUntilTheNextRead)
{
    SetAndRead(kFirst, 5);

    EXPECT_TRUE(m_settings.SetRegSetting(kFirst, 6));

    EXPECT_EQ(Cached(kFirst), 5u);
    DWORD stored = 0;
    DWORD size = sizeof(stored);
    EXPECT_EQ(RegGetValueA(HKEY_LOCAL_MACHINE, "Software\\Corvane\\Halden", kFirst, RRF_RT_REG_DWORD, nullptr, &stored,
                           &size),
              ERROR_SUCCESS);
    EXPECT_EQ(stored, 6u);
    m_settings.Read();
    EXPECT_EQ(Cached(kFirst), 6u);
}

TEST_F(LiveRegSettingsTest, SetWritesNamesThatAreNotWatched)
{
    EXPECT_TRUE(m_settings.SetRegSetting("not watched", 6));

    DWORD stored = 0;
    DWORD size = sizeof(stored);
    EXPECT_EQ(RegGetValueA(HKEY_LOCAL_MACHINE, "Software\\Corvane\\Halden", "not watched", RRF_RT_REG_DWORD, nullptr,
                           &stored, &size),
              ERROR_SUCCESS);
    EXPECT_EQ(stored, 6u);
}

TEST_F(LiveRegSettingsTest, SetOpensTheKeyForWritingOnlyAndFailsWithoutIt)
{
    const ImportPatch open("ADVAPI32.dll", "RegOpenKeyExA", &RecordOpen);
    EXPECT_TRUE(m_settings.SetRegSetting(kFirst, 6));
    EXPECT_EQ(g_access, 0x20006u);

    m_machine.DeleteProductKey();

    EXPECT_FALSE(m_settings.SetRegSetting(kFirst, 7));
}

TEST_F(LiveRegSettingsTest, ReadLeaksNoHandle)
{
    m_machine.SetText(kThird, "too long");
    SetAndRead(kFirst, 5);
    const unsigned long before = TestSupport::OpenHandles();

    for (int i = 0; i < 3; ++i)
    {
        m_settings.Read();
    }

    EXPECT_EQ(TestSupport::OpenHandles(), before);
}

// --- Callbacks

TEST_F(LiveRegSettingsTest, ACallbackFiresOnceForAChangeWithTheNameOfTheValue)
{
    SetAndRead(kSecond, 0);
    Record(kSecond);

    SetAndRead(kSecond, 1);
    EXPECT_THAT(m_fired, ElementsAre(kSecond));

    m_settings.Read();
    SetAndRead(kSecond, 1);
    EXPECT_THAT(m_fired, ElementsAre(kSecond));

    SetAndRead(kSecond, 0);
    EXPECT_THAT(m_fired, ElementsAre(kSecond, kSecond));
}

TEST_F(LiveRegSettingsTest, ANumberThatFirstAppearsFiresUnlessItIsZero)
{
    Record(kFirst);
    Record(kSecond);

    m_machine.SetDword(kFirst, 0);
    SetAndRead(kSecond, 1);

    EXPECT_THAT(m_fired, ElementsAre(kSecond));
}

TEST_F(LiveRegSettingsTest, AValueThatDisappearsAndComesBackWithTheSameNumberFiresNothing)
{
    SetAndRead(kFirst, 5);
    Record(kFirst);

    DeleteAndRead(kFirst);
    SetAndRead(kFirst, 5);
    EXPECT_THAT(m_fired, IsEmpty());

    DeleteAndRead(kFirst);
    SetAndRead(kFirst, 0);
    EXPECT_THAT(m_fired, ElementsAre(kFirst));
}

TEST_F(LiveRegSettingsTest, AProductKeyThatDisappearsAndComesBackFiresOnlyForOtherNumbers)
{
    m_machine.SetDword(kSecond, 2);
    SetAndRead(kFirst, 1);
    Record(kFirst);
    Record(kSecond);

    m_machine.DeleteProductKey();
    m_settings.Read();
    m_machine.MakeProductKey();
    m_machine.SetDword(kSecond, 3);
    SetAndRead(kFirst, 1);

    EXPECT_THAT(m_fired, ElementsAre(kSecond));
}

TEST_F(LiveRegSettingsTest, CallbacksRunByAscendingNameAndInTheOrderOfRegistration)
{
    Record(kThird, " a");
    Record(kFirst, " a");
    Record(kSecond, " a");
    Record(kFirst, " b");
    Record(kThird, " b");
    Record(kFirst, " c");
    m_machine.SetDword(kThird, 1);
    m_machine.SetDword(kSecond, 1);

    SetAndRead(kFirst, 1);

    EXPECT_THAT(m_fired, ElementsAre("disable_udp a", "disable_udp b", "disable_udp c", "hx41svc_logging_grpc a",
                                     "stack_logging a", "stack_logging b"));
}

TEST_F(LiveRegSettingsTest, CallbacksRunAfterAllValuesWereRead)
{
    unsigned long seen = 0;
    m_settings.RegisterRegSettingChanged(kFirst, [&seen](const std::string&) { seen = Cached(kThird); });
    m_machine.SetDword(kThird, 7);

    SetAndRead(kFirst, 1);

    EXPECT_EQ(seen, 7u);
}

TEST_F(LiveRegSettingsTest, CallbacksOfNamesThatAreNotWatchedAreAcceptedAndNeverCalled)
{
    Record("not watched");
    Record("STACK_LOGGING");
    Record("");
    m_settings.RegisterRegSettingChanged("not watched", nullptr);

    m_machine.SetDword("not watched", 1);
    m_machine.SetDword("", 1);
    SetAndRead("stack_logging", 1);

    EXPECT_THAT(m_fired, IsEmpty());
}

TEST_F(LiveRegSettingsTest, ACallbackKeepsItsStateFromCallToCall)
{
    m_settings.RegisterRegSettingChanged(
        kFirst, [this, calls = 0](const std::string&) mutable { m_fired.push_back(std::to_string(++calls)); });

    SetAndRead(kFirst, 1);
    SetAndRead(kFirst, 2);
    SetAndRead(kFirst, 3);

    EXPECT_THAT(m_fired, ElementsAre("1", "2", "3"));
}

TEST_F(LiveRegSettingsTest, ACallbackMayCallEveryFunction)
{
    SetAndRead(kSecond, 2);
    unsigned long seen = 0;
    bool set = false;
    m_settings.RegisterRegSettingChanged(kFirst, [&](const std::string&) {
        seen = Cached(kSecond);
        set = m_settings.SetRegSetting(kSecond, 3);
        m_settings.Read();
        Record(kThird);
    });

    SetAndRead(kFirst, 1);

    EXPECT_EQ(seen, 2u);
    EXPECT_TRUE(set);
    EXPECT_EQ(Cached(kSecond), 3u);
    SetAndRead(kThird, 1);
    EXPECT_THAT(m_fired, ElementsAre(kThird));
}

TEST_F(LiveRegSettingsTest, CallbacksAddedWhileThoseOfTheirNameRunHaveTheirFirstTurnAtTheNextChange)
{
    // Enough of them that what holds the callbacks has to grow while one of them runs.
    const std::string captured(100, 'x');
    bool intact = true;
    bool added = false;
    m_settings.RegisterRegSettingChanged(kFirst, [&, captured](const std::string&) {
        for (int i = 0; i < 100 && !added; ++i)
        {
            Record(kFirst, " late");
        }
        added = true;
        intact = intact && captured == std::string(100, 'x');
    });
    Record(kFirst);

    SetAndRead(kFirst, 1);
    EXPECT_THAT(m_fired, ElementsAre(kFirst));

    m_fired.clear();
    SetAndRead(kFirst, 2);
    EXPECT_EQ(m_fired.size(), 101u);
    EXPECT_EQ(m_fired.front(), kFirst);
    EXPECT_EQ(m_fired.back(), "disable_udp late");
    EXPECT_TRUE(intact);
}

TEST_F(LiveRegSettingsTest, AReadInsideACallbackFiresForWhatChangedSince)
{
    m_settings.RegisterRegSettingChanged(kFirst, [this](const std::string&) {
        m_fired.push_back("before");
        SetAndRead(kSecond, 9);
        m_fired.push_back("after");
    });
    Record(kSecond);

    SetAndRead(kFirst, 1);

    EXPECT_THAT(m_fired, ElementsAre("before", kSecond, "after"));
}

TEST_F(LiveRegSettingsTest, TheLockIsHeldWhileACallbackRunsAndFreeAfterwards)
{
    const std::function<void()> calls[] = {
        [this] {
            unsigned long value = 0;
            m_settings.GetRegSetting(kFirst, value);
        },
        [this] { m_settings.Read(); },
        [this] { m_settings.RegisterRegSettingChanged(kSecond, [](const std::string&) {}); },
    };
    Gate over[std::size(calls)];
    std::vector<std::thread> others;
    m_settings.RegisterRegSettingChanged(kFirst, [&](const std::string&) {
        for (std::size_t i = 0; i < std::size(calls); ++i)
        {
            Gate begun;
            others.emplace_back([&, i] {
                begun.Open();
                calls[i]();
                over[i].Open();
            });
            EXPECT_TRUE(begun.Wait());
            EXPECT_FALSE(over[i].Wait(std::chrono::milliseconds(50))) << i;
        }
    });

    SetAndRead(kFirst, 1);

    for (std::size_t i = 0; i < std::size(calls); ++i)
    {
        EXPECT_TRUE(over[i].Wait()) << i;
        others[i].join();
    }
}

TEST_F(LiveRegSettingsTest, SetNeedsNoLock)
{
    bool set = false;
    m_settings.RegisterRegSettingChanged(kFirst, [&](const std::string&) {
        Gate gate;
        std::thread other([&] {
            set = m_settings.SetRegSetting(kThird, 4);
            gate.Open();
        });
        EXPECT_TRUE(gate.Wait());
        other.join();
    });

    SetAndRead(kFirst, 1);

    EXPECT_TRUE(set);
}

TEST_F(LiveRegSettingsTest, AnExceptionOfACallbackLeavesReadWithTheLockFreeAndTheOtherCallbacksUncalled)
{
    Record(kFirst, " a");
    m_settings.RegisterRegSettingChanged(kFirst, [](const std::string&) { throw std::runtime_error("callback"); });
    Record(kFirst, " b");
    Record(kSecond);
    m_machine.SetDword(kFirst, 1);
    m_machine.SetDword(kSecond, 2);

    EXPECT_THROW(m_settings.Read(), std::runtime_error);

    EXPECT_TRUE(OthersCanRead());
    EXPECT_EQ(Cached(kFirst), 1u);
    EXPECT_EQ(Cached(kSecond), 2u);
    EXPECT_THAT(m_fired, ElementsAre("disable_udp a"));

    m_settings.Read(); // nothing is reported again
    EXPECT_THAT(m_fired, ElementsAre("disable_udp a"));
    SetAndRead(kSecond, 3);
    EXPECT_THAT(m_fired, ElementsAre("disable_udp a", kSecond));
}

TEST_F(LiveRegSettingsTest, AnExceptionOfAnyTypeLeavesRead)
{
    m_settings.RegisterRegSettingChanged(kFirst, [](const std::string&) { throw 1; });
    m_machine.SetDword(kFirst, 1);

    EXPECT_THROW(m_settings.Read(), int);

    EXPECT_TRUE(OthersCanRead());
}

TEST_F(LiveRegSettingsTest, AnEmptyCallbackRaisesBadFunctionCallOutOfReadAtAChange)
{
    EXPECT_NO_THROW(m_settings.RegisterRegSettingChanged(kFirst, nullptr));
    EXPECT_NO_THROW(m_settings.Read());
    m_machine.SetDword(kFirst, 1);

    EXPECT_THROW(m_settings.Read(), std::bad_function_call);

    EXPECT_TRUE(OthersCanRead());
    EXPECT_EQ(Cached(kFirst), 1u);
}

// --- Several threads

TEST_F(LiveRegSettingsTest, AnyThreadMayGetReadAndRegisterAtTheSameTime)
{
    m_machine.SetDword(kFirst, 1);
    m_machine.SetDword(kSecond, 1);
    m_settings.Read();
    std::atomic<bool> stop = false;
    std::atomic<int> wrong = 0;
    std::atomic<int> fired = 0;
    const auto count = [&fired](const std::string&) { ++fired; };
    m_settings.RegisterRegSettingChanged(kFirst, count);
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i)
    {
        threads.emplace_back([&] {
            while (!stop)
            {
                const unsigned long value = Cached(kFirst);
                wrong += value >= 1 && value <= 40 && Cached(kSecond) == 1 ? 0 : 1;
            }
        });
    }
    threads.emplace_back([&] {
        while (!stop)
        {
            m_settings.Read();
        }
    });
    threads.emplace_back([&] {
        for (int i = 0; i < 200; ++i)
        {
            m_settings.RegisterRegSettingChanged(kThird, count);
            m_settings.RegisterRegSettingChanged(kFirst, [](const std::string&) {});
            SwitchToThread();
        }
    });

    for (unsigned long value = 2; value <= 40; ++value)
    {
        SetAndRead(kFirst, value);
    }
    stop = true;
    for (std::thread& thread : threads)
    {
        thread.join();
    }

    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(fired, 39); // each change once, whoever read it
    EXPECT_EQ(Cached(kFirst), 40u);
}
