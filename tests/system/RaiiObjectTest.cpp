#include <UtilsLib/system/RaiiObject.h>

#include <tests/support/FieldsOf.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

using testing::ElementsAre;
using testing::IsEmpty;
using UtilsLib::RaiiObject;

namespace
{

class RaiiObjectTest : public testing::Test
{
protected:
    std::function<void()> Note(const std::string& name)
    {
        return [this, name] { m_calls.push_back(name); };
    }
    std::function<void()> Throw(const std::string& name)
    {
        return [this, name] {
            m_calls.push_back(name);
            throw std::runtime_error(name);
        };
    }

    std::vector<std::string> m_calls;
};

} // namespace

TEST_F(RaiiObjectTest, TheFirstActionRunsAtOnceAndTheSecondAtScopeEnd)
{
    {
        const RaiiObject object(Note("enter"), Note("exit"));
        EXPECT_THAT(m_calls, ElementsAre("enter"));
    }
    EXPECT_THAT(m_calls, ElementsAre("enter", "exit"));
}

TEST_F(RaiiObjectTest, ItKeepsCopiesOfBoth)
{
    std::function<void()> enter = Note("enter");
    std::function<void()> exit = Note("exit");
    {
        const RaiiObject object(enter, exit);
        exit = Note("other");
        enter = nullptr;
    }
    EXPECT_THAT(m_calls, ElementsAre("enter", "exit"));
}

TEST_F(RaiiObjectTest, AnEmptyFirstActionThrowsFromTheConstructor)
{
    EXPECT_THROW(RaiiObject({}, Note("exit")), std::bad_function_call);
    EXPECT_THAT(m_calls, IsEmpty());
}

TEST_F(RaiiObjectTest, AnEmptySecondActionThrowsFromTheDestructor)
{
    const auto live = [this] { const RaiiObject object(Note("enter"), {}); };

    EXPECT_THROW(live(), std::bad_function_call);
    EXPECT_THAT(m_calls, ElementsAre("enter"));
    static_assert(!std::is_nothrow_destructible_v<RaiiObject>);
}

TEST_F(RaiiObjectTest, WhatTheFirstActionThrowsComesOutAndTheSecondDoesNotRun)
{
    EXPECT_THROW(RaiiObject(Throw("enter"), Note("exit")), std::runtime_error);
    EXPECT_THAT(m_calls, ElementsAre("enter"));
}

TEST_F(RaiiObjectTest, WhatTheSecondActionThrowsComesOut)
{
    const auto live = [this] { const RaiiObject object(Note("enter"), Throw("exit")); };

    EXPECT_THROW(live(), std::runtime_error);
    EXPECT_THAT(m_calls, ElementsAre("enter", "exit"));
}

TEST_F(RaiiObjectTest, TheSecondActionRunsAlsoWhenAnExceptionLeavesTheScope)
{
    const auto live = [this] {
        const RaiiObject object(Note("enter"), Note("exit"));
        throw std::runtime_error("out");
    };

    EXPECT_THROW(live(), std::runtime_error);
    EXPECT_THAT(m_calls, ElementsAre("enter", "exit"));
}

TEST_F(RaiiObjectTest, AnAssignmentCopiesBothActionsAndCallsNone)
{
    {
        const RaiiObject source(Note("enter 1"), Note("exit 1"));
        RaiiObject target(Note("enter 2"), Note("exit 2"));
        target = source;
        EXPECT_THAT(m_calls, ElementsAre("enter 1", "enter 2"));
    }
    EXPECT_THAT(m_calls, ElementsAre("enter 1", "enter 2", "exit 1", "exit 1"));
}

TEST_F(RaiiObjectTest, ACopyRunsTheSecondActionOnceMore)
{
    {
        const RaiiObject object(Note("enter"), Note("exit"));
        const RaiiObject copy = object;
        EXPECT_THAT(m_calls, ElementsAre("enter"));
    }
    EXPECT_THAT(m_calls, ElementsAre("enter", "exit", "exit"));
}

TEST_F(RaiiObjectTest, ItIsItsTwoActionsTheFirstBeforeTheSecond)
{
    struct Fields
    {
        std::function<void()> onEnter;
        std::function<void()> onExit;
    };
    static_assert(sizeof(RaiiObject) == sizeof(Fields));
    const RaiiObject object(Note("enter"), Note("exit"));

    TestSupport::FieldsOf<Fields>(object).onExit();
    TestSupport::FieldsOf<Fields>(object).onEnter();

    EXPECT_THAT(m_calls, ElementsAre("enter", "exit", "enter"));
}
