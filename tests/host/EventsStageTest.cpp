#include <EventsStage.h>

#include <tests/host/Printed.h>
#include <tests/support/TempFolder.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

namespace
{

class EventsStageTest : public testing::Test
{
protected:
    /// What the stage prints.
    std::string Run()
    {
        return Printed([&](Console& console) { ShowEvents(console, m_folder.Path()); });
    }

    TestSupport::TempFolder m_folder;
};

} // namespace

TEST_F(EventsStageTest, WithoutAFileTheSampleIsMadeAndShownWithoutItsHiddenEvents)
{
    EXPECT_THAT(Run(), AllOf(HasSubstr("3 of 4 events"), HasSubstr("The drive cannot be reached.\n"),
                             HasSubstr("EventZone_BankCloud, EventType_BankCloudTokenError, EventState_Set\n"),
                             Not(HasSubstr("The drive was not used for 30 days."))));
    EXPECT_TRUE(m_folder.Exists("events.json"));
}

TEST_F(EventsStageTest, FileThatIsThereIsShownAndKept)
{
    const std::string text = R"({"events": [{"title": "Bank", "message": "Hello"}, 5, null], "hidden": 7})";
    m_folder.Write("events.json", text);

    EXPECT_THAT(Run(), AllOf(HasSubstr("3 of 3 events"), HasSubstr("Bank                   Hello\n")));
    EXPECT_EQ(m_folder.Read("events.json"), text);
}

TEST_F(EventsStageTest, FileThatIsWrongIsSaid)
{
    const std::string deep = "{\"events\": " + std::string(2000, '[') + std::string(2000, ']') + "}";
    for (const std::string& text : {std::string(), std::string("{"), std::string("[1]"), std::string("5"), deep})
    {
        m_folder.Write("events.json", text);

        EXPECT_THAT(Run(), AllOf(HasSubstr("It cannot be read: "), Not(HasSubstr("of ")))) << text;
    }
}
