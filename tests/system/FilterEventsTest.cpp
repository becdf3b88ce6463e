#include <UtilsLib/system/HelperUtils.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>

using testing::ElementsAre;
using testing::IsEmpty;
using UtilsLib::Event;
using UtilsLib::EventDontShow;
using UtilsLib::HelperUtils;

namespace
{

const Event kFirst{1, 8, 2, 1, "first", "one"};
const Event kSecond{1, 8, 14, 2, "second", "two"};
const Event kThird{1, 5, 10, 1, "third", "three"};

std::vector<std::string> Shown(const std::vector<EventDontShow>& hidden)
{
    std::vector<std::string> titles;
    for (const Event& event : HelperUtils::FilterEvents({kFirst, kSecond, kThird, kFirst}, hidden))
    {
        titles.push_back(event.title);
    }
    return titles;
}

} // namespace

TEST(FilterEventsTest, WithoutHiddenKindsAllEventsAreKeptInOrder)
{
    EXPECT_THAT(Shown({}), ElementsAre("first", "second", "third", "first"));
}

TEST(FilterEventsTest, WithoutEventsNothingIsKept)
{
    EXPECT_THAT(HelperUtils::FilterEvents({}, {}), IsEmpty());
    EXPECT_THAT(HelperUtils::FilterEvents({}, {{1, 8, 2}}), IsEmpty());
}

TEST(FilterEventsTest, EveryEventOfAHiddenKindIsDropped)
{
    EXPECT_THAT(Shown({{1, 8, 2}}), ElementsAre("second", "third"));
}

TEST(FilterEventsTest, EveryEntryCountsWhereverItStands)
{
    EXPECT_THAT(Shown({{1, 8, 14}, {9, 9, 9}, {1, 5, 10}}), ElementsAre("first", "first"));
    EXPECT_THAT(Shown({{9, 9, 9}, {8, 8, 8}, {1, 8, 2}}), ElementsAre("second", "third"));
    EXPECT_THAT(Shown({{1, 8, 2}, {9, 9, 9}}), ElementsAre("second", "third"));
    EXPECT_THAT(Shown({{1, 8, 2}, {1, 8, 2}, {1, 8, 14}, {1, 5, 10}}), IsEmpty());
}

TEST(FilterEventsTest, TwoOfThreeCodesDoNotHide)
{
    EXPECT_THAT(Shown({{1, 8, 3}, {1, 9, 2}, {2, 8, 2}}), ElementsAre("first", "second", "third", "first"));
}

TEST(FilterEventsTest, CodesOfSeveralEntriesDoNotAddUp)
{
    EXPECT_THAT(Shown({{1, 8, 10}, {1, 5, 2}}), ElementsAre("first", "second", "third", "first"));
}

TEST(FilterEventsTest, TheStateDoesNotCount)
{
    Event reset = kFirst;
    reset.state = 2;

    EXPECT_THAT(HelperUtils::FilterEvents({reset}, {{1, 8, 2}}), IsEmpty());
}

TEST(FilterEventsTest, CodesAreOnlyNumbers)
{
    const std::vector<Event> events = {{0, 0, 0, 0, "none", ""}, {INT_MIN, -1, INT_MAX, 7, "odd", ""}};

    EXPECT_EQ(HelperUtils::FilterEvents(events, {{0, 0, 0}}).size(), 1u);
    EXPECT_EQ(HelperUtils::FilterEvents(events, {{INT_MIN, -1, INT_MAX}}).size(), 1u);
}

TEST(FilterEventsTest, KeptEventsAreWholeCopies)
{
    const std::vector<Event> events = {kSecond};

    const std::vector<Event> shown = HelperUtils::FilterEvents(events, {{1, 8, 2}});

    ASSERT_EQ(shown.size(), 1u);
    EXPECT_EQ(shown[0].scope, 1);
    EXPECT_EQ(shown[0].zone, 8);
    EXPECT_EQ(shown[0].type, 14);
    EXPECT_EQ(shown[0].state, 2);
    EXPECT_EQ(shown[0].title, "second");
    EXPECT_EQ(shown[0].message, "two");
    EXPECT_EQ(events[0].message, "two");
}
