#pragma once

#include <Console.h>
#include <ProgressBars.h>

#include <UtilsLib/progress/ProgressHandlerContainer.h>
#include <UtilsLib/threading/ThreadPool.h>

#include <functional>

/// The host's stages that show a bar; what the bar calls them stands in the source.
enum Stage : unsigned int
{
    WaitingForSettings = 1,
    TakingSnapshot,
    Compressing,
};

/// The host's work: a pool that does it, and its progress by stage, shown on the console. Belongs to the console's
/// thread, which only draws while the pool works.
class Job
{
public:
    explicit Job(Console& console);

    /// Runs `work` on the pool as the active stage, and shows its bar until it is done. `work` reports to the handler
    /// that it is given. What it throws is thrown here.
    void RunStage(Stage stage, const std::function<void(UtilsLib::ProgressHandler&)>& work);

    /// Runs `work` on the pool and calls `meanwhile` every 50 ms on the calling thread until it is done: the console's,
    /// or that of a stage, which may hand on one piece of its work at a time. What either throws is thrown here.
    void RunMeanwhile(const std::function<void()>& work, const std::function<void()>& meanwhile);

private:
    UtilsLib::ProgressHandlerContainer m_progress;
    ProgressBars m_bars;
    UtilsLib::ThreadPool m_pool; // the first to end
};
