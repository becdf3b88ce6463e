#include <Job.h>

#include <tests/support/Gate.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

using TestSupport::Gate;
using UtilsLib::ProgressHandler;

namespace
{

class JobTest : public testing::Test
{
protected:
    JobTest()
    {
        testing::internal::CaptureStdout(); // before the console looks whether it is a terminal
        m_job.emplace(m_console.emplace());
    }

    std::optional<Console> m_console;
    std::optional<Job> m_job;
};

} // namespace

TEST_F(JobTest, AStageWorksOnAnotherThreadAndItsBarStaysAtItsEnd)
{
    std::thread::id worker;
    m_job->RunStage(TakingSnapshot, [&worker](ProgressHandler& progress) {
        worker = std::this_thread::get_id();
        EXPECT_EQ(progress.GetData().title, "snapshot");
        progress.Begin(3, 0);
        progress.UpdateProgressCurrent(3, ProgressHandler::Absolute);
    });

    EXPECT_NE(worker, std::thread::id());
    EXPECT_NE(worker, std::this_thread::get_id());
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "   snapshot     [########################] 3 of 3\n");
}

TEST_F(JobTest, EveryStageHasAHandlerOfItsOwn)
{
    for (const auto& [stage, title] : {std::pair(WaitingForSettings, "settings"), std::pair(TakingSnapshot, "snapshot"),
                                       std::pair(Compressing, "compression")})
    {
        m_job->RunStage(stage, [&title](ProgressHandler& progress) {
            EXPECT_EQ(progress.GetData().title, title);
            EXPECT_FALSE(progress.IsValid());
            progress.Begin(1, 1);
        });
    }
    testing::internal::GetCapturedStdout();
}

TEST_F(JobTest, WhatAStageThrowsArrivesAfterItsBarHasEnded)
{
    EXPECT_THROW(m_job->RunStage(Compressing,
                                 [](ProgressHandler& progress) {
                                     progress.Begin(2, 1);
                                     throw std::runtime_error("the disk is full");
                                 }),
                 std::runtime_error);

    EXPECT_EQ(testing::internal::GetCapturedStdout(), "   compression  [############............] 1 of 2\n");
}

TEST_F(JobTest, AStageMayHandOnAPieceOfItsWorkAndMeasureItMeanwhile)
{
    bool measuredInTime = false;
    m_job->RunStage(TakingSnapshot, [&](ProgressHandler&) {
        Gate measured;
        m_job->RunMeanwhile([&] { measuredInTime = measured.Wait(); }, [&] { measured.Open(); });
    });

    EXPECT_TRUE(measuredInTime);
    testing::internal::GetCapturedStdout();
}

TEST_F(JobTest, WorkIsOverWhenWhatIsDoneMeanwhileThrows)
{
    Gate thrown;
    std::atomic<bool> over = false;
    EXPECT_THROW(m_job->RunMeanwhile(
                     [&] {
                         EXPECT_TRUE(thrown.Wait());
                         std::this_thread::sleep_for(std::chrono::milliseconds(100));
                         over = true;
                     },
                     [&] {
                         thrown.Open();
                         throw std::runtime_error("cannot measure");
                     }),
                 std::runtime_error);

    EXPECT_TRUE(over);
    testing::internal::GetCapturedStdout();
}
