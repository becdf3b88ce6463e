#include <ProductSwitches.h>

#include <UtilsLib/registry/RegUtils.h>
#include <tests/support/ScopedMachineHive.h>

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

using TestSupport::ScopedMachineHive;
using UtilsLib::RegUtils;

namespace
{

constexpr char kName[] = "hx41svc_logging";

using Bytes = std::vector<unsigned char>;

/// Type and bytes; nothing when the value is not there.
std::optional<std::pair<DWORD, Bytes>> Stored()
{
    DWORD type = 0;
    DWORD size = 100;
    Bytes bytes(size);
    if (RegGetValueA(HKEY_LOCAL_MACHINE, "Software\\Corvane\\Halden", kName, RRF_RT_ANY | RRF_NOEXPAND, &type,
                     bytes.data(), &size) != ERROR_SUCCESS)
    {
        return std::nullopt;
    }
    bytes.resize(size);
    return std::pair(type, bytes);
}

} // namespace

TEST(ProductSwitchesTest, ValueIsTheNumberUntilTheEndAndThenWhatItWas)
{
    const ScopedMachineHive machine;
    const std::pair<unsigned long, Bytes> values[] = {
        {REG_DWORD, {7, 0, 0, 0}},           {REG_SZ, {'1', 0}}, {REG_EXPAND_SZ, {'%', 'T', 'E', 'M', 'P', '%', 0}},
        {REG_BINARY, {1, 0, 2, 0, 3, 0, 4}}, {REG_BINARY, {}},
    };
    for (const auto& [type, bytes] : values)
    {
        machine.SetBytes(kName, type, bytes);
        {
            ProductSwitches switches;
            EXPECT_TRUE(switches.Set(kName, 2));
            EXPECT_TRUE(switches.Set(kName, 3)); // the first one counts
            EXPECT_EQ(Stored(), std::pair(static_cast<DWORD>(REG_DWORD), Bytes({3, 0, 0, 0})));
        }
        EXPECT_EQ(Stored(), std::pair(static_cast<DWORD>(type), bytes));
    }
}

TEST(ProductSwitchesTest, ValueThatWasNotThereIsGoneAtTheEndAndTheKeyStays)
{
    const ScopedMachineHive machine(false);
    {
        ProductSwitches switches;
        EXPECT_TRUE(switches.Set(kName, 1));
        unsigned long value = 0;
        EXPECT_TRUE(RegUtils::ReadHaldenRegDword(kName, value));
        EXPECT_EQ(value, 1u);
    }
    EXPECT_EQ(Stored(), std::nullopt);
    EXPECT_TRUE(RegUtils::WriteHaldenRegDword(kName, 1)); // which never makes the key
}
