#include <UtilsLib/registry/LiveRegSettings.h>

#include <UtilsLib/platform/UniqueHandle.h>

#include <tests/support/Gate.h>
#include <tests/support/ImportPatch.h>
#include <tests/support/ScopedMachineHive.h>
#include <tests/support/TempFolder.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <string>

using TestSupport::Eventually;
using TestSupport::ImportPatch;
using TestSupport::LastErrorText;
using TestSupport::ScopedMachineHive;
using UtilsLib::LiveRegSettings;
using UtilsLib::Platform::UniqueHandle;

// The semaphore is the machine's: these tests have a machine of their own and run one at a time.

namespace
{

const char* const kSemaphore = "hxds_drivetest_sm";
const char* const kName = "disable_udp";

std::atomic<int> g_opened = 0;

LSTATUS WINAPI CountOpenings(HKEY root, const char* path, DWORD options, REGSAM access, HKEY* key)
{
    ++g_opened;
    return RegOpenKeyExA(root, path, options, access, key);
}

UniqueHandle OpenTheSemaphore()
{
    return UniqueHandle(OpenSemaphoreA(SYNCHRONIZE | SEMAPHORE_MODIFY_STATE, FALSE, kSemaphore));
}

bool ReadsAs(unsigned long expected)
{
    unsigned long value = 0;
    return LiveRegSettings::GetInstance().GetRegSetting(kName, value) && value == expected;
}

} // namespace

TEST(LiveRegSettingsSemaphoreTest, ExistsFromTheFirstCallOnWithCountZeroAndMaximumOne)
{
    const ScopedMachineHive machine;
    EXPECT_FALSE(OpenTheSemaphore());

    LiveRegSettings::GetInstance();

    const UniqueHandle semaphore = OpenTheSemaphore();
    ASSERT_TRUE(semaphore) << LastErrorText("OpenSemaphoreA");
    EXPECT_EQ(WaitForSingleObject(semaphore.Get(), 0), static_cast<DWORD>(WAIT_TIMEOUT));
    LONG previous = -1;
    EXPECT_TRUE(ReleaseSemaphore(semaphore.Get(), 1, &previous));
    EXPECT_EQ(previous, 0);
    EXPECT_FALSE(ReleaseSemaphore(semaphore.Get(), 1, nullptr));
}

TEST(LiveRegSettingsSemaphoreTest, ReleasingItEndsTheWaitEarlyAndForcesNoRead)
{
    const ScopedMachineHive machine;
    LiveRegSettings& settings = LiveRegSettings::GetInstance();
    const UniqueHandle semaphore = OpenTheSemaphore();
    ASSERT_TRUE(semaphore) << LastErrorText("OpenSemaphoreA");
    machine.SetDword(kName, 1);
    settings.Start();
    ASSERT_TRUE(Eventually([] { return ReadsAs(1); })); // the read of the first cycle
    machine.SetDword(kName, 2);
    const ImportPatch open("ADVAPI32.dll", "RegOpenKeyExA", &CountOpenings);
    const auto start = std::chrono::steady_clock::now();

    constexpr int releases = 30; // waits to their ends would take 15 s
    for (int i = 0; i < releases; ++i)
    {
        // Fails while the count is one: until the thread has taken the last.
        ASSERT_TRUE(Eventually([&semaphore] { return ReleaseSemaphore(semaphore.Get(), 1, nullptr) != FALSE; }));
    }

    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(8));
    EXPECT_TRUE(ReadsAs(1));
    EXPECT_EQ(g_opened, 0);
    settings.Shutdown();
}

TEST(LiveRegSettingsSemaphoreTest, OneThatExistsAlreadyIsShared)
{
    const ScopedMachineHive machine;
    const UniqueHandle first(CreateSemaphoreA(nullptr, 1, 1, kSemaphore));
    ASSERT_TRUE(first) << LastErrorText("CreateSemaphoreA");
    LiveRegSettings& settings = LiveRegSettings::GetInstance();

    settings.Start();

    EXPECT_TRUE(Eventually([&first] { return ReleaseSemaphore(first.Get(), 1, nullptr) != FALSE; }));
    settings.Shutdown();
}

TEST(LiveRegSettingsSemaphoreTest, AnotherObjectOfItsNameLeavesTheSettingsWorking)
{
    const ScopedMachineHive machine;
    const UniqueHandle event(CreateEventA(nullptr, TRUE, FALSE, kSemaphore));
    ASSERT_TRUE(event) << LastErrorText("CreateEventA");
    LiveRegSettings& settings = LiveRegSettings::GetInstance();
    machine.SetDword(kName, 3);

    settings.Start();

    EXPECT_TRUE(Eventually([] { return ReadsAs(3); }));
    settings.Shutdown();
}
