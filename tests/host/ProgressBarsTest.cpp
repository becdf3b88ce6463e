#include <ProgressBars.h>

#include <UtilsLib/progress/ProgressHandler.h>
#include <UtilsLib/progress/ScopedProgressObserver.h>

#include <gtest/gtest.h>

#include <limits>
#include <string>

using UtilsLib::ProgressHandler;
using UtilsLib::ScopedProgressObserver;

namespace
{

class ProgressBarsTest : public testing::Test
{
protected:
    ProgressHandler m_handler{{"snapshot", 0, ""}};
};

} // namespace

TEST_F(ProgressBarsTest, ABarShowsStageCurrentEndAndSubMessage)
{
    m_handler.UpdateSubMessage("copying");
    const struct
    {
        unsigned long long end;
        unsigned long long current;
        std::string text;
    } cases[] = {
        {0, 0, "snapshot copying"},
        {2400, 0, "snapshot     [........................] 0 of 2,400 copying"},
        {2400, 1200, "snapshot     [############............] 1,200 of 2,400 copying"},
        {2400, 2399, "snapshot     [#######################.] 2,399 of 2,400 copying"},
        {1234567, 1234567, "snapshot     [########################] 1,234,567 of 1,234,567 copying"},
        {5, 7, "snapshot     [########################] 7 of 5 copying"},
        {std::numeric_limits<unsigned long long>::max(), 1,
         "snapshot     [........................] 1 of 18,446,744,073,709,551,615 copying"},
    };
    for (const auto& [end, current, text] : cases)
    {
        m_handler.Begin(end, current);
        EXPECT_EQ(BarText(m_handler), text);
    }

    m_handler.Begin(10, 10);
    m_handler.UpdateSubMessage("");
    EXPECT_EQ(BarText(m_handler), "snapshot     [########################] 10 of 10");
}

TEST_F(ProgressBarsTest, WithoutATerminalOnlyTheLastStateOfAnObserverIsWritten)
{
    testing::internal::CaptureStdout();
    {
        Console console;
        ProgressBars bars(console);
        ScopedProgressObserver observer(bars, 1, m_handler);
        m_handler.Begin(10, 5);
        observer.ForceUpdate();
        m_handler.Begin(10, 10);
    }

    EXPECT_EQ(testing::internal::GetCapturedStdout(), "   snapshot     [########################] 10 of 10\n");
}
