#include <UtilsLib/text/Guid.h>

#include <tests/support/ImportPatch.h>

#include <gtest/gtest.h>

#include <rpc.h>

#include <regex>
#include <set>

using TestSupport::ImportPatch;
using UtilsLib::Guid;

namespace
{

constexpr char kRpc[] = "RPCRT4.dll";
constexpr char kBase[] = "01234567-89ab-cdef-fedc-ba9876543210";

RPC_STATUS g_created = RPC_S_OK;
int g_conversions = 0;
unsigned char* g_converted = nullptr;
std::vector<unsigned char*> g_freed;

RPC_STATUS WINAPI CreateWithStatus(UUID* guid)
{
    *guid = UUID{1, 2, 3, {4}};
    return g_created;
}

RPC_STATUS WINAPI CreateWithLeadingZeros(UUID* guid)
{
    *guid = UUID{0xAB, 0xC, 0xD, {0, 1, 2, 3, 4, 5, 6, 0xEF}};
    return RPC_S_OK;
}

RPC_STATUS WINAPI WatchConversion(UUID* guid, unsigned char** text)
{
    ++g_conversions;
    const RPC_STATUS status = UuidToStringA(guid, text);
    g_converted = *text;
    return status;
}

RPC_STATUS WINAPI FailToConvert(UUID*, unsigned char** text)
{
    ++g_conversions;
    *text = nullptr;
    return RPC_S_OUT_OF_MEMORY;
}

RPC_STATUS WINAPI WatchFree(unsigned char** text)
{
    g_freed.push_back(*text);
    return RpcStringFreeA(text);
}

std::string g_value;
std::string g_format;

std::string RecordFormat(const std::string& value, const std::string& format)
{
    g_value = value;
    g_format = format;
    return "whatever\nit says";
}

class GuidFaultTest : public testing::Test
{
protected:
    void SetUp() override
    {
        g_conversions = 0;
        g_converted = nullptr;
        g_freed.clear();
    }

    const ImportPatch m_free{kRpc, "RpcStringFreeA", &WatchFree};
};

} // namespace

TEST(GuidTest, ANewGuidHasTheTextFormInLowerCase)
{
    const std::regex form("[0-9a-f]{8}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{12}");
    for (int i = 0; i < 200; ++i)
    {
        const std::string guid = Guid::CreateGuid();
        EXPECT_TRUE(std::regex_match(guid, form)) << guid;
    }
}

TEST(GuidTest, NewGuidsDiffer)
{
    std::set<std::string> guids;
    for (int i = 0; i < 1000; ++i)
    {
        guids.insert(Guid::CreateGuid());
    }
    EXPECT_EQ(guids.size(), 1000u);
}

TEST(GuidTest, ANewGuidIsTheSystems)
{
    const ImportPatch known(kRpc, "UuidCreate", &CreateWithLeadingZeros);

    EXPECT_EQ(Guid::CreateGuid(), "000000ab-000c-000d-0001-0203040506ef");
}

TEST_F(GuidFaultTest, AGuidThatTheSystemDoesNotVouchForIsEmpty)
{
    const ImportPatch create(kRpc, "UuidCreate", &CreateWithStatus);
    const ImportPatch conversion(kRpc, "UuidToStringA", &WatchConversion);
    for (const RPC_STATUS status : {RPC_S_UUID_LOCAL_ONLY, RPC_S_UUID_NO_ADDRESS, -1l})
    {
        g_created = status;
        EXPECT_EQ(Guid::CreateGuid(), "");
    }
    EXPECT_EQ(g_conversions, 0);
    EXPECT_TRUE(g_freed.empty());
}

TEST_F(GuidFaultTest, AFailedConversionIsEmptyAndFreesNothing)
{
    const ImportPatch fails(kRpc, "UuidToStringA", &FailToConvert);

    EXPECT_EQ(Guid::CreateGuid(), "");
    EXPECT_EQ(Guid::AdjustGuid(kBase, 1), "");
    EXPECT_EQ(g_conversions, 2);
    EXPECT_TRUE(g_freed.empty());
}

TEST_F(GuidFaultTest, EveryConvertedTextIsFreedOnce)
{
    const ImportPatch conversion(kRpc, "UuidToStringA", &WatchConversion);

    EXPECT_EQ(Guid::CreateGuid().size(), 36u);
    ASSERT_NE(g_converted, nullptr);
    EXPECT_EQ(g_freed, std::vector{g_converted});

    g_freed.clear();
    EXPECT_EQ(Guid::AdjustGuid(kBase, 0), kBase);
    EXPECT_EQ(g_freed, std::vector{g_converted});
    EXPECT_EQ(g_conversions, 2);
}

TEST(GuidTest, AdjustingAddsToTheSecondGroupOnly)
{
    EXPECT_EQ(Guid::AdjustGuid(kBase, 0), kBase);
    EXPECT_EQ(Guid::AdjustGuid(kBase, 1), "01234567-89ac-cdef-fedc-ba9876543210");
    EXPECT_EQ(Guid::AdjustGuid(kBase, -1), "01234567-89aa-cdef-fedc-ba9876543210");
    EXPECT_EQ(Guid::AdjustGuid(kBase, 0x100), "01234567-8aab-cdef-fedc-ba9876543210");
    EXPECT_EQ(Guid::AdjustGuid(kBase, 32767), "01234567-09aa-cdef-fedc-ba9876543210");
    EXPECT_EQ(Guid::AdjustGuid(kBase, -32768), "01234567-09ab-cdef-fedc-ba9876543210");
}

TEST(GuidTest, TheSecondGroupWrapsInBothDirections)
{
    const std::string highest = "ffffffff-ffff-ffff-ffff-ffffffffffff";
    const std::string lowest = "00000000-0000-0000-0000-000000000000";

    EXPECT_EQ(Guid::AdjustGuid(highest, 1), "ffffffff-0000-ffff-ffff-ffffffffffff");
    EXPECT_EQ(Guid::AdjustGuid(highest, 32767), "ffffffff-7ffe-ffff-ffff-ffffffffffff");
    EXPECT_EQ(Guid::AdjustGuid(lowest, -1), "00000000-ffff-0000-0000-000000000000");
    EXPECT_EQ(Guid::AdjustGuid(lowest, -32768), "00000000-8000-0000-0000-000000000000");
}

TEST(GuidTest, AdjustingReadsCapitalsAndWritesSmallLetters)
{
    EXPECT_EQ(Guid::AdjustGuid("ABCDEF01-FFFF-ABCD-ABCD-ABCDEFABCDEF", 1), "abcdef01-0000-abcd-abcd-abcdefabcdef");
}

TEST(GuidTest, WhatIsNoGuidIsAdjustedToNothing)
{
    for (const char* text :
         {"{01234567-89ab-cdef-fedc-ba9876543210}", "0123456789abcdeffedcba9876543210",
          "01234567-89ab-cdef-fedc-ba9876543210 ", " 01234567-89ab-cdef-fedc-ba9876543210",
          "01234567-89ab-cdef-fedc-ba987654321", "01234567-89ab-cdef-fedc-ba98765432100",
          "01234567-89ag-cdef-fedc-ba9876543210", "01234567_89ab_cdef_fedc_ba9876543210", "-", "x", ""})
    {
        EXPECT_EQ(Guid::AdjustGuid(text, 1), "") << text;
    }
    EXPECT_EQ(Guid::AdjustGuid(std::string(1'000'000, '0'), 1), "");
}

TEST(GuidTest, AdjustingLeavesTheCallersTextAlone)
{
    const std::string text = "ABCDEF01-FFFF-ABCD-ABCD-ABCDEFABCDEF";
    Guid::AdjustGuid(text, 1);
    EXPECT_EQ(text, "ABCDEF01-FFFF-ABCD-ABCD-ABCDEFABCDEF");
}

TEST(GuidTest, DigitsGetTheirHyphens)
{
    EXPECT_EQ(Guid::FormatGuidFromAlphaNumericOnly("0123456789abcdeffedcba9876543210"), kBase);
}

TEST(GuidTest, TheFormatterIsAskedForHyphensAndItsAnswerHandedOn)
{
    const ImportPatch formatter(
        "Corvane.CLR.UtilsV32.dll",
        "_ZN7Corvane10ManagedCpp5Utils9GuidUtils6FormatERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEESA_",
        &RecordFormat);

    EXPECT_EQ(Guid::FormatGuidFromAlphaNumericOnly("any text"), "whatever\nit says");
    EXPECT_EQ(g_value, "any text");
    EXPECT_EQ(g_format, "D");
}
