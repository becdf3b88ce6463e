#include <UtilsLib/progress/ScopedSubProgress.h>

#include <tests/support/AllocationFault.h>
#include <tests/support/FieldsOf.h>
#include <tests/support/LockRecorder.h>

#include <gtest/gtest.h>

#include <limits>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

using TestSupport::AllocationFault;
using TestSupport::FieldsOf;
using TestSupport::LockRecorder;
using UtilsLib::ProgressHandler;
using UtilsLib::ScopedSubProgress;

static_assert(!std::is_copy_constructible_v<ScopedSubProgress> && !std::is_copy_assignable_v<ScopedSubProgress>);

namespace
{

constexpr auto kAbsolute = ProgressHandler::Absolute;
constexpr auto kRelative = ProgressHandler::Relative;
constexpr unsigned long long kMost = std::numeric_limits<unsigned long long>::max();

struct SubProgressFields
{
    const ProgressHandler* handler;
    unsigned long long end;
    unsigned long long current;
    std::string subMessage;
};
static_assert(sizeof(SubProgressFields) == sizeof(ScopedSubProgress));

class ScopedSubProgressTest : public testing::Test
{
protected:
    ScopedSubProgressTest()
    {
        m_handler.Begin(100, 40);
        m_handler.UpdateSubMessage("outer");
    }

    /// "40 of 100 outer".
    std::string State()
    {
        return std::to_string(m_handler.GetProgressCurrent()) + " of " + std::to_string(m_handler.GetProgressEnd()) +
               " " + m_handler.GetSubMessage();
    }

    /// The handler's lock stands behind its description.
    const void* LockOfHandler() const
    {
        return &m_handler.GetData() + 1;
    }

    ProgressHandler m_handler{{"title", 7, "text"}};
};

} // namespace

TEST_F(ScopedSubProgressTest, FieldsAreInTheirOrder)
{
    const ScopedSubProgress part(m_handler, "part");

    EXPECT_EQ(FieldsOf<SubProgressFields>(part).handler, &m_handler);
    EXPECT_EQ(FieldsOf<SubProgressFields>(part).end, 100u);
    EXPECT_EQ(FieldsOf<SubProgressFields>(part).current, 40u);
    EXPECT_EQ(FieldsOf<SubProgressFields>(part).subMessage, "outer");
}

TEST_F(ScopedSubProgressTest, ItsBeginningChangesTheSubMessageAndNoCount)
{
    const ScopedSubProgress part(m_handler, "part");

    EXPECT_EQ(State(), "40 of 100 part");
}

TEST_F(ScopedSubProgressTest, CountsInARangeOfItsOwnAndBringsTheOuterStateBack)
{
    {
        ScopedSubProgress part(m_handler, "part");
        part.Begin(10);
        EXPECT_EQ(State(), "0 of 10 part");
        part.UpdateProgressCurrent(4, kRelative);
        part.UpdateProgressCurrent(4, kRelative);
        EXPECT_EQ(State(), "8 of 10 part");
        part.UpdateProgressCurrent(4, kRelative);
        EXPECT_EQ(State(), "10 of 10 part");
    }
    EXPECT_EQ(State(), "40 of 100 outer");
}

TEST_F(ScopedSubProgressTest, UpdatesAreTheHandlersOwn)
{
    ScopedSubProgress part(m_handler, "part");
    part.Begin(10);

    part.UpdateProgressCurrent(3, kAbsolute);
    EXPECT_EQ(State(), "3 of 10 part");
    part.UpdateProgressCurrent(7, static_cast<ProgressHandler::UpdateType>(2));
    EXPECT_EQ(State(), "3 of 10 part");
    part.UpdateProgressCurrent(kMost, kRelative);
    EXPECT_EQ(State(), "10 of 10 part");
    m_handler.UpdateProgressEnd(5, kAbsolute);
    part.UpdateProgressCurrent(0, static_cast<ProgressHandler::UpdateType>(-1));
    EXPECT_EQ(State(), "5 of 5 part");
}

TEST_F(ScopedSubProgressTest, WithoutABeginOnlyTheSubMessageIsLent)
{
    {
        ScopedSubProgress part(m_handler, "part");
        part.UpdateProgressCurrent(20, kRelative);
        EXPECT_EQ(State(), "60 of 100 part");
    }
    EXPECT_EQ(State(), "40 of 100 outer");
}

TEST_F(ScopedSubProgressTest, NestedPartsEachBringBackTheirOuterState)
{
    {
        ScopedSubProgress outer(m_handler, "part");
        outer.Begin(10);
        outer.UpdateProgressCurrent(6, kAbsolute);
        {
            ScopedSubProgress inner(m_handler, "part of the part");
            inner.Begin(kMost);
            inner.UpdateProgressCurrent(kMost, kAbsolute);
        }
        EXPECT_EQ(State(), "6 of 10 part");
    }
    EXPECT_EQ(State(), "40 of 100 outer");
}

TEST_F(ScopedSubProgressTest, WhatOthersDoToTheHandlerMeanwhileIsUndone)
{
    {
        const ScopedSubProgress part(m_handler, "part");
        m_handler.Reset();
        m_handler.UpdateProgressEnd(3, kRelative);
        m_handler.UpdateSubMessage("of somebody else");
    }
    EXPECT_EQ(State(), "40 of 100 outer");
}

TEST_F(ScopedSubProgressTest, ACurrentCountPastTheEndComesBackAsTheEnd)
{
    m_handler.Begin(100, 140);
    {
        const ScopedSubProgress part(m_handler, "part");
        EXPECT_EQ(State(), "140 of 100 part");
    }
    EXPECT_EQ(State(), "100 of 100 outer");

    m_handler.Begin(0, 5);
    {
        ScopedSubProgress part(m_handler, "part");
        part.Begin(10);
    }
    EXPECT_EQ(State(), "0 of 0 outer");
}

TEST_F(ScopedSubProgressTest, AScopeLeftByAnExceptionBringsTheOuterStateBack)
{
    try
    {
        ScopedSubProgress part(m_handler, "part");
        part.Begin(10);
        throw std::runtime_error("the part failed");
    }
    catch (const std::runtime_error&)
    {
        EXPECT_EQ(State(), "40 of 100 outer");
    }
}

TEST_F(ScopedSubProgressTest, TakesTheHandlersLockOnceAStep)
{
    LockRecorder locks;
    locks.Name(LockOfHandler(), 'h');
    {
        ScopedSubProgress part(m_handler, "part");
        EXPECT_EQ(locks.Steps(), "+h-h+h-h+h-h+h-h"); // three looks and the new sub-message
        part.Begin(10);
        EXPECT_EQ(locks.Steps(), "+h-h+h-h+h-h+h-h+h-h");
    }
    EXPECT_EQ(locks.Steps(), "+h-h+h-h+h-h+h-h+h-h+h-h+h-h+h-h");
}

TEST_F(ScopedSubProgressTest, BringsBackTheEndThenTheCurrentCountThenTheSubMessage)
{
    std::optional<ScopedSubProgress> part(std::in_place, m_handler, "part");
    part->Begin(10);
    part->UpdateProgressCurrent(6, kAbsolute);
    std::vector<std::string> states;
    {
        LockRecorder locks;
        bool looking = false;
        locks.OnLeaving([&] {
            if (!looking)
            {
                looking = true; // looking takes the lock, too
                states.push_back(State());
                looking = false;
            }
        });
        part.reset();
    }

    EXPECT_EQ(states, (std::vector<std::string>{"6 of 100 part", "40 of 100 part", "40 of 100 outer"}));
}

TEST_F(ScopedSubProgressTest, BringsBackTheCurrentCountOfBeforeWhenSomebodyRaisesTheEndBetweenTheSteps)
{
    m_handler.Begin(100, 140);
    std::optional<ScopedSubProgress> part(std::in_place, m_handler, "part");
    {
        LockRecorder locks;
        bool raised = false;
        locks.OnLeaving([&] {
            if (!raised)
            {
                raised = true;
                m_handler.UpdateProgressEnd(500, kAbsolute);
            }
        });
        part.reset();
    }

    EXPECT_EQ(State(), "100 of 500 outer");
}

TEST_F(ScopedSubProgressTest, ItsEndNeedsNoMemory)
{
    const std::string outer(1000, 'o');
    m_handler.UpdateSubMessage(outer);
    std::optional<ScopedSubProgress> part(std::in_place, m_handler, "part");
    {
        const ScopedSubProgress inner(m_handler, "part of the part");
        m_handler.UpdateSubMessage("");
    }
    {
        const AllocationFault fault(1);
        part.reset();
        EXPECT_EQ(fault.Count(), 0);
    }

    EXPECT_EQ(State(), "40 of 100 " + outer);
}

TEST_F(ScopedSubProgressTest, ABeginningThatRunsOutOfMemoryLeavesTheHandlerAsItWas)
{
    const std::string text(1000, 'p');
    {
        const AllocationFault fault(1);
        EXPECT_THROW(ScopedSubProgress(m_handler, text), std::bad_alloc);
    }

    EXPECT_EQ(State(), "40 of 100 outer");
}
