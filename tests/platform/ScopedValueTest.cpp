#include <UtilsLib/platform/ScopedValue.h>

#include <gtest/gtest.h>

using UtilsLib::Platform::ScopedValue;

TEST(ScopedValueTest, EachScopeEndBringsBackWhatWasThereBefore)
{
    int variable = 1;
    {
        const ScopedValue<int> outer(variable, 2);
        {
            const ScopedValue<int> inner(variable, 3);
            EXPECT_EQ(variable, 3);
        }
        EXPECT_EQ(variable, 2);
        variable = 4;
    }
    EXPECT_EQ(variable, 1);
}
