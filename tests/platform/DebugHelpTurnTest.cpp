#include <UtilsLib/platform/DebugHelpTurn.h>

#include <tests/support/Gate.h>

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

using TestSupport::Gate;
using UtilsLib::Platform::DebugHelpTurn;

namespace
{

constexpr unsigned long kLong = 20'000;

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
        const DebugHelpTurn turn;
        m_taken.Open();
        EXPECT_TRUE(m_release.Wait(std::chrono::seconds(20)));
    }};
};

} // namespace

TEST(DebugHelpTurnTest, FreeTurnIsTakenAtOnceAndByItsThreadAgain)
{
    const DebugHelpTurn first(0);
    const DebugHelpTurn second(0);
    const DebugHelpTurn third;

    EXPECT_TRUE(first.Taken());
    EXPECT_FALSE(first.Waited());
    EXPECT_TRUE(second.Taken());
    EXPECT_TRUE(third.Taken());
}

TEST(DebugHelpTurnTest, WaitEndsAtItsLimitWithoutTheTurn)
{
    const Holder holder;
    const unsigned long long start = GetTickCount64();
    {
        const DebugHelpTurn turn(200);
        EXPECT_FALSE(turn.Taken());
        EXPECT_TRUE(turn.Waited());
        EXPECT_GE(GetTickCount64() - start, 190u);
    }
    EXPECT_FALSE(DebugHelpTurn(0).Taken()); // the one that was not taken gave nothing back
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

    EXPECT_TRUE(turn.Taken());
    EXPECT_TRUE(turn.Waited());
}

TEST(DebugHelpTurnTest, WaitWithoutLimitLastsUntilTheTurnIsFree)
{
    std::atomic<bool> released = false;
    Holder holder;
    std::thread releaser([&] {
        Sleep(100);
        released = true;
        holder.Release();
    });
    {
        const DebugHelpTurn turn;
        EXPECT_TRUE(released);
        EXPECT_TRUE(turn.Taken());
    }
    releaser.join();
}
