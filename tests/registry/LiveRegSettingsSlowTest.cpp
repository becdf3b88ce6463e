#include <UtilsLib/registry/LiveRegSettings.h>

#include <tests/support/Gate.h>
#include <tests/support/ScopedMachineHive.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <string>

using TestSupport::Eventually;
using TestSupport::ScopedMachineHive;
using UtilsLib::LiveRegSettings;

TEST(LiveRegSettingsSlowTest, AChangeIsSeenAtTheReadTwentySecondsAfterTheLast)
{
    const ScopedMachineHive machine;
    machine.SetDword("disable_udp", 1);
    LiveRegSettings& settings = LiveRegSettings::GetInstance();
    std::atomic<int> fired = 0;
    settings.RegisterRegSettingChanged("hx41svc_logging_grpc", [&fired](const std::string&) { ++fired; });
    machine.SetDword("hx41svc_logging_grpc", 5);
    settings.Start();
    unsigned long value = 0;
    ASSERT_TRUE(Eventually([&] { return settings.GetRegSetting("hx41svc_logging_grpc", value); }));
    const auto start = std::chrono::steady_clock::now();
    machine.SetDword("hx41svc_logging_grpc", 6);
    machine.SetDword("stack_logging", 7);
    machine.Delete("disable_udp");

    EXPECT_TRUE(Eventually([&] { return settings.GetRegSetting("stack_logging", value); }, std::chrono::seconds(35)));

    const auto passed = std::chrono::steady_clock::now() - start;
    // 20 to 20.5 s, and what a busy machine takes to see the first read or the second.
    EXPECT_GT(passed, std::chrono::seconds(15));
    EXPECT_LT(passed, std::chrono::seconds(30));
    EXPECT_EQ(value, 7u);
    EXPECT_FALSE(settings.GetRegSetting("disable_udp", value));
    settings.Shutdown();
    EXPECT_EQ(fired, 2); // 0 to 5, 5 to 6
}
