#include <UtilsLib/system/WMIComponent.h>

#include <gtest/gtest.h>

using UtilsLib::WMIComponent;

TEST(WMIComponentStubTest, NothingConnectsAndEveryTextIsEmpty)
{
    WMIComponent component;

    EXPECT_FALSE(component.InitializeWMI(L"root\\cimv2"));
    const CComBSTR name = component.QueryStringPropertyFromWMIClass(L"Name", L"Win32_Processor");

    EXPECT_NE(name.m_str, nullptr);
    EXPECT_EQ(name.Length(), 0u);
}

TEST(WMIComponentStubTest, ItIsCopied)
{
    const WMIComponent component;
    WMIComponent copy = component;
    copy = component;

    EXPECT_FALSE(copy.InitializeWMI(L"root\\cimv2"));
    EXPECT_EQ(copy.QueryStringPropertyFromWMIClass(L"Name", L"Win32_Processor").Length(), 0u);
}
