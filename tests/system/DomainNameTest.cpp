#include <UtilsLib/system/HelperUtils.h>

#include <UtilsLib/text/StringUtils.h>

#include <tests/support/ImportPatch.h>
#include <tests/support/OpenHandles.h>
#include <tests/system/standins/Workstation.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

using testing::ElementsAre;
using TestSupport::ImportPatch;
using UtilsLib::HelperUtils;
using UtilsLib::StringUtils;

namespace
{

/// A record with its text behind it, as the workstation service returns it.
struct Answer
{
    WKSTA_INFO_102 information;
    wchar_t group[2000];
};

Answer g_answer; // as it is handed out; nonsense once it is freed
std::wstring g_group;
bool g_hasGroup = true;
bool g_hasBuffer = true;
NET_API_STATUS g_status = NERR_Success;
std::vector<std::wstring> g_machines;
std::vector<DWORD> g_levels;
std::vector<void*> g_freed;

NET_API_STATUS WINAPI GiveAnswer(wchar_t* machine, DWORD level, BYTE** buffer)
{
    g_machines.push_back(machine);
    g_levels.push_back(level);
    g_answer = {};
    std::copy_n(g_group.c_str(), g_group.size() + 1, g_answer.group);
    g_answer.information.wki102_langroup = g_hasGroup ? g_answer.group : nullptr;
    *buffer = g_hasBuffer ? reinterpret_cast<BYTE*>(&g_answer) : nullptr;
    return g_status;
}

NET_API_STATUS WINAPI SpoilFreed(void* buffer)
{
    g_freed.push_back(buffer);
    std::memset(&g_answer, 'x', sizeof(g_answer));
    return NERR_Success;
}

/// What the service says from now on.
void SetAnswer(NET_API_STATUS status, const std::wstring& group)
{
    g_status = status;
    g_group = group;
    g_hasGroup = true;
    g_hasBuffer = true;
}

BOOL WINAPI NoComputerName(char*, DWORD*)
{
    return FALSE;
}

BOOL WINAPI ComputerNameWithAnUmlaut(char* buffer, DWORD* size)
{
    std::strcpy(buffer, "M\xDCLLER");
    *size = 6;
    return TRUE;
}

class DomainNameTest : public testing::Test
{
protected:
    void SetUp() override
    {
        const HMODULE standIn = GetModuleHandleA("netapi32.dll");
        auto* const set = reinterpret_cast<SetWorkstationFunction*>(
            reinterpret_cast<void*>(GetProcAddress(standIn, "SetWorkstation")));
        ASSERT_NE(set, nullptr) << "run with WINEDLLOVERRIDES=netapi32=n,b";
        static const Workstation workstation = {&GiveAnswer, &SpoilFreed};
        set(&workstation);
        SetAnswer(NERR_Success, L"FIRM");
        g_machines.clear();
        g_levels.clear();
        g_freed.clear();
    }
};

} // namespace

TEST_F(DomainNameTest, TheDomainIsTheLanGroupOfTheWorkstation)
{
    EXPECT_EQ(HelperUtils::GetDomainName(), "FIRM");
    EXPECT_THAT(g_levels, ElementsAre(102u));
}

TEST_F(DomainNameTest, TheWorkstationIsAskedByTheNameOfThisMachine)
{
    HelperUtils::GetDomainName();
    ASSERT_EQ(g_machines.size(), 1u);
    EXPECT_NE(g_machines[0], L"");
    EXPECT_EQ(g_machines[0], StringUtils::ToUnicode(HelperUtils::GetLocalMachineName()));

    const ImportPatch name("KERNEL32.dll", "GetComputerNameA", &ComputerNameWithAnUmlaut);
    HelperUtils::GetDomainName();
    ASSERT_EQ(g_machines.size(), 2u);
    EXPECT_EQ(g_machines[1], L"M\u00DCLLER");
}

TEST_F(DomainNameTest, AMachineWithoutANameIsAskedForByTheEmptyName)
{
    const ImportPatch none("KERNEL32.dll", "GetComputerNameA", &NoComputerName);

    EXPECT_EQ(HelperUtils::GetDomainName(), "FIRM");
    EXPECT_THAT(g_machines, ElementsAre(L""));
}

TEST_F(DomainNameTest, TheNameIsConvertedFromUtf16)
{
    SetAnswer(NERR_Success, L"B\u00DCRO \u20AC");
    EXPECT_EQ(HelperUtils::GetDomainName(), "B\xDCRO \x80");

    SetAnswer(NERR_Success, L"\u65E5\u672C");
    EXPECT_EQ(HelperUtils::GetDomainName(), "??");
}

TEST_F(DomainNameTest, TheNameEndsAtItsFirstZero)
{
    SetAnswer(NERR_Success, std::wstring(L"FIRM\0JUNK", 9));

    EXPECT_EQ(HelperUtils::GetDomainName(), "FIRM");
}

TEST_F(DomainNameTest, AnEmptyOrLongNameIsGivenAsItIs)
{
    SetAnswer(NERR_Success, L"");
    EXPECT_EQ(HelperUtils::GetDomainName(), "");

    SetAnswer(NERR_Success, std::wstring(1999, L'd'));
    EXPECT_EQ(HelperUtils::GetDomainName(), std::string(1999, 'd'));
}

TEST_F(DomainNameTest, TheDomainIsUnknownWhileTheServiceIsStopped)
{
    SetAnswer(NERR_WkstaNotStarted, L"");
    g_hasBuffer = false;

    EXPECT_EQ(HelperUtils::GetDomainName(), "unknown");
}

TEST_F(DomainNameTest, TheDomainIsUnknownAfterAnyFailure)
{
    for (const NET_API_STATUS status :
         {NET_API_STATUS(ERROR_ACCESS_DENIED), NET_API_STATUS(ERROR_BAD_NETPATH), NET_API_STATUS(ERROR_MORE_DATA),
          NET_API_STATUS(ERROR_INVALID_LEVEL), NET_API_STATUS(NERR_WkstaNotStarted)})
    {
        SetAnswer(status, L"FIRM");
        EXPECT_EQ(HelperUtils::GetDomainName(), "unknown") << status;
    }
}

TEST_F(DomainNameTest, TheDomainIsUnknownWhenASuccessCarriesNone)
{
    g_hasBuffer = false;
    EXPECT_EQ(HelperUtils::GetDomainName(), "unknown");

    g_hasBuffer = true;
    g_hasGroup = false;
    EXPECT_EQ(HelperUtils::GetDomainName(), "unknown");
}

TEST_F(DomainNameTest, TheBufferIsFreedOnceInEveryCase)
{
    HelperUtils::GetDomainName();
    EXPECT_THAT(g_freed, ElementsAre(&g_answer));

    g_freed.clear();
    SetAnswer(ERROR_MORE_DATA, L"FIRM");
    HelperUtils::GetDomainName();
    EXPECT_THAT(g_freed, ElementsAre(&g_answer));

    g_freed.clear();
    g_hasBuffer = true;
    g_hasGroup = false;
    HelperUtils::GetDomainName();
    EXPECT_THAT(g_freed, ElementsAre(&g_answer));
}
