#include <UtilsLib/progress/ScopedProgressState.h>

#include <tests/support/FieldsOf.h>
#include <tests/support/LockRecorder.h>

#include <gtest/gtest.h>

#include <optional>
#include <stdexcept>
#include <string>
#include <type_traits>

using TestSupport::FieldsOf;
using TestSupport::LockRecorder;
using UtilsLib::ProgressHandlerContainer;
using UtilsLib::ScopedProgressState;

static_assert(!std::is_copy_constructible_v<ScopedProgressState> && !std::is_copy_assignable_v<ScopedProgressState>);

namespace
{

constexpr unsigned int kNone = 0xFFFFFFFF;

struct StateFields
{
    unsigned int previousId;
    unsigned int id;
    const ProgressHandlerContainer* container;
};
static_assert(sizeof(StateFields) == sizeof(ScopedProgressState));

class ScopedProgressStateTest : public testing::Test
{
protected:
    unsigned int ActiveId() const
    {
        return m_container.GetActiveProgressHandlerId();
    }

    const ProgressHandlerContainer::ProgressHandlerData m_stages[2] = {{1, {"first", 0, ""}}, {2, {"second", 0, ""}}};
    ProgressHandlerContainer m_container{m_stages, 2};
};

} // namespace

TEST_F(ScopedProgressStateTest, FieldsAreInTheirOrder)
{
    m_container.SetActiveProgressHandler(1);
    const ScopedProgressState state(m_container, 2);

    EXPECT_EQ(FieldsOf<StateFields>(state).previousId, 1u);
    EXPECT_EQ(FieldsOf<StateFields>(state).id, 2u);
    EXPECT_EQ(FieldsOf<StateFields>(state).container, &m_container);
}

TEST_F(ScopedProgressStateTest, NestedScopesBringBackTheStagesBeforeThem)
{
    {
        const ScopedProgressState first(m_container, 1);
        EXPECT_EQ(ActiveId(), 1u);
        {
            const ScopedProgressState second(m_container, 2);
            EXPECT_EQ(ActiveId(), 2u);
        }
        EXPECT_EQ(ActiveId(), 1u);
    }
    EXPECT_EQ(ActiveId(), kNone);
}

TEST_F(ScopedProgressStateTest, AStageThatSomebodyMadeActiveInBetweenStays)
{
    {
        const ScopedProgressState first(m_container, 1);
        {
            const ScopedProgressState second(m_container, 2);
            m_container.SetActiveProgressHandler(7);
        }
        EXPECT_EQ(ActiveId(), 7u);
    }
    EXPECT_EQ(ActiveId(), 7u);
}

TEST_F(ScopedProgressStateTest, AResetInBetweenStays)
{
    m_container.SetActiveProgressHandler(1);
    {
        const ScopedProgressState second(m_container, 2);
        m_container.ResetActiveProgressHandler();
    }
    EXPECT_EQ(ActiveId(), kNone);
}

TEST_F(ScopedProgressStateTest, AScopeWhoseStageIsActiveAgainAtItsEndBringsBackTheOneBefore)
{
    m_container.SetActiveProgressHandler(1);
    {
        const ScopedProgressState second(m_container, 2);
        m_container.SetActiveProgressHandler(7);
        m_container.SetActiveProgressHandler(2);
    }
    EXPECT_EQ(ActiveId(), 1u);
}

TEST_F(ScopedProgressStateTest, TheSameOrAnUnknownStageIsAsGoodAsAnyOther)
{
    {
        const ScopedProgressState outer(m_container, 1);
        {
            const ScopedProgressState same(m_container, 1);
        }
        EXPECT_EQ(ActiveId(), 1u);
        {
            const ScopedProgressState unknown(m_container, 7);
            EXPECT_EQ(ActiveId(), 7u);
        }
        EXPECT_EQ(ActiveId(), 1u);
        {
            const ScopedProgressState none(m_container, kNone);
            EXPECT_EQ(ActiveId(), kNone);
        }
        EXPECT_EQ(ActiveId(), 1u);
    }
    EXPECT_EQ(ActiveId(), kNone);
}

TEST_F(ScopedProgressStateTest, AnOuterScopeThatEndsFirstLeavesTheInnerOnesStage)
{
    std::optional<ScopedProgressState> outer(std::in_place, m_container, 1);
    std::optional<ScopedProgressState> inner(std::in_place, m_container, 2);

    outer.reset();
    EXPECT_EQ(ActiveId(), 2u);
    inner.reset();
    EXPECT_EQ(ActiveId(), 1u);
}

TEST_F(ScopedProgressStateTest, AScopeLeftByAnExceptionBringsBackTheStageBefore)
{
    try
    {
        const ScopedProgressState state(m_container, 1);
        throw std::runtime_error("the stage failed");
    }
    catch (const std::runtime_error&)
    {
        EXPECT_EQ(ActiveId(), kNone);
    }
}

TEST_F(ScopedProgressStateTest, BeginningAndEndEachLookAndChangeUnderOneHoldAndHoldNothingBetween)
{
    LockRecorder locks;
    locks.Name(reinterpret_cast<const char*>(&m_container) + sizeof(void*), 'c');
    std::string atBeginning;
    {
        const ScopedProgressState state(m_container, 1);
        atBeginning = locks.Steps();
    }

    EXPECT_EQ(atBeginning, "+c-c");
    EXPECT_EQ(locks.Steps(), "+c-c+c-c");
}
