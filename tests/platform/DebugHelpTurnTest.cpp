#include <UtilsLib/platform/DebugHelpTurn.h>

#include <UtilsLib/WindowsTypes.h>

#include <tests/support/Gate.h>

#include <gtest/gtest.h>

#include <new>
#include <thread>

using TestSupport::Gate;
using UtilsLib::Platform::DebugHelpTurn;

namespace
{

constexpr unsigned long kLong = 20'000;

/// Whether a thread of its own gets the turn at once.
bool IsFree()
{
    bool free = false;
    std::thread([&free] { free = !DebugHelpTurn(0).TimedOut(); }).join();
    return free;
}

/// A thread that has the turn until it is told to give it back.
class Holder
{
public:
    Holder()
    {
        EXPECT_TRUE(m_taken.Wait());
    }
    ~Holder()
    {
        Release();
        m_thread.join();
    }
    void Release()
    {
        m_release.Open();
    }

private:
    Gate m_taken;
    Gate m_release;
    std::thread m_thread{[this] {
        const DebugHelpTurn turn(0);
        m_taken.Open();
        EXPECT_TRUE(m_release.Wait(std::chrono::seconds(20)));
    }};
};

} // namespace

TEST(DebugHelpTurnTest, FreeTurnIsTakenAtOnceAndByItsThreadAgain)
{
    const DebugHelpTurn first(0);
    const DebugHelpTurn second(0);

    for (const DebugHelpTurn* const turn : {&first, &second})
    {
        EXPECT_FALSE(turn->Waited());
        EXPECT_FALSE(turn->TimedOut());
    }
    EXPECT_FALSE(IsFree());
}

TEST(DebugHelpTurnTest, WaitEndsAtItsLimitWithoutTheTurn)
{
    const Holder holder;
    const unsigned long long start = GetTickCount64();
    {
        const DebugHelpTurn turn(200);
        EXPECT_TRUE(turn.TimedOut());
        EXPECT_TRUE(turn.Waited());
        EXPECT_GE(GetTickCount64() - start, 190u);
    }
    EXPECT_TRUE(DebugHelpTurn(0).TimedOut()); // the one that was not taken gave nothing back
}

TEST(DebugHelpTurnTest, TurnComesWhenTheOtherThreadGivesItBack)
{
    Holder holder;
    std::thread releaser([&holder] {
        Sleep(100);
        holder.Release();
    });
    const DebugHelpTurn turn(kLong);
    releaser.join();

    EXPECT_FALSE(turn.TimedOut());
    EXPECT_TRUE(turn.Waited());
    EXPECT_FALSE(IsFree());
}

TEST(DebugHelpTurnTest, TurnIsGivenBackAtScopeEndOrBefore)
{
    {
        const DebugHelpTurn outer(0);
        {
            DebugHelpTurn inner(0);
            inner.GiveBack();
            inner.GiveBack(); // not the outer one
        }
        EXPECT_FALSE(IsFree());
    }
    EXPECT_TRUE(IsFree());
}

TEST(DebugHelpTurnTest, TurnOfAThreadThatEndedWithoutGivingItBackIsFree)
{
    alignas(DebugHelpTurn) static char abandoned[sizeof(DebugHelpTurn)];
    std::thread([] { new (abandoned) DebugHelpTurn(0); }).join();

    {
        const DebugHelpTurn turn(kLong);
        EXPECT_FALSE(turn.Waited());
        EXPECT_FALSE(IsFree());
    }
    EXPECT_TRUE(IsFree());
}
