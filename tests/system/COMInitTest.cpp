#include <UtilsLib/system/COMInit.h>

#include <UtilsLib/WindowsTypes.h>

#include <tests/support/ImportPatch.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <objbase.h>

#include <string>
#include <type_traits>
#include <vector>

using testing::ElementsAre;
using UtilsLib::COMInit;

namespace
{

std::vector<std::string> g_calls;
HRESULT g_result = S_OK;

HRESULT WINAPI NoteInitialize(void* reserved, DWORD kind)
{
    g_calls.push_back((reserved == nullptr ? "initialize " : "reserved ") + std::to_string(kind));
    return g_result;
}

void WINAPI NoteUninitialize()
{
    g_calls.emplace_back("uninitialize");
}

/// COM is not touched, only what is asked of it noted.
class COMInitCallsTest : public testing::Test
{
protected:
    COMInitCallsTest()
    {
        g_calls.clear();
        g_result = S_OK;
    }

    const TestSupport::ImportPatch m_initialize{"ole32.dll", "CoInitializeEx", &NoteInitialize};
    const TestSupport::ImportPatch m_uninitialize{"ole32.dll", "CoUninitialize", &NoteUninitialize};
};

HRESULT ApartmentOf(APTTYPE& type)
{
    APTTYPEQUALIFIER qualifier{};
    return CoGetApartmentType(&type, &qualifier);
}

} // namespace

TEST(COMInitTest, TheThreadIsInTheMultithreadedApartmentForTheObjectsLife)
{
    APTTYPE type{};
    ASSERT_EQ(ApartmentOf(type), CO_E_NOTINITIALIZED);
    {
        const COMInit com;
        EXPECT_EQ(ApartmentOf(type), S_OK);
        EXPECT_EQ(type, APTTYPE_MTA);
    }
    EXPECT_EQ(ApartmentOf(type), CO_E_NOTINITIALIZED);
}

TEST(COMInitTest, ObjectsMayBeNested)
{
    APTTYPE type{};
    const COMInit outer;
    {
        const COMInit inner;
    }
    EXPECT_EQ(ApartmentOf(type), S_OK);
}

TEST(COMInitTest, InAnotherApartmentItTakesAnInitialisationAway)
{
    ASSERT_EQ(CoInitialize(nullptr), S_OK);
    {
        const COMInit com;
    }
    APTTYPE type{};
    EXPECT_EQ(ApartmentOf(type), CO_E_NOTINITIALIZED);
}

TEST_F(COMInitCallsTest, COMIsUndoneOnceWhateverTheInitialisationAnswered)
{
    for (const HRESULT result : {S_OK, S_FALSE, RPC_E_CHANGED_MODE, E_OUTOFMEMORY})
    {
        g_result = result;
        g_calls.clear();
        {
            const COMInit com;
            EXPECT_THAT(g_calls, ElementsAre("initialize 0"));
        }
        EXPECT_THAT(g_calls, ElementsAre("initialize 0", "uninitialize"));
    }
}

TEST_F(COMInitCallsTest, ACopyInitialisesForItselfAndAnAssignmentDoesNothing)
{
    {
        const COMInit com;
        COMInit copy = com;
        EXPECT_THAT(g_calls, ElementsAre("initialize 0", "initialize 0"));
        copy = com;
        EXPECT_EQ(g_calls.size(), 2u);
    }
    EXPECT_THAT(g_calls, ElementsAre("initialize 0", "initialize 0", "uninitialize", "uninitialize"));
    static_assert(std::is_trivially_copy_assignable_v<COMInit> && std::is_empty_v<COMInit>);
}
