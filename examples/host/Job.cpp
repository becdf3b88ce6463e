#include <Job.h>

#include <UtilsLib/progress/ScopedProgressObserver.h>
#include <UtilsLib/progress/ScopedProgressState.h>
#include <UtilsLib/threading/LambdaThreadPoolTask.h>

#include <chrono>
#include <future>
#include <iterator>
#include <memory>

using UtilsLib::LambdaThreadPoolTask;
using UtilsLib::ProgressHandler;
using UtilsLib::ProgressHandlerContainer;
using UtilsLib::ScopedProgressObserver;
using UtilsLib::ScopedProgressState;

namespace
{

constexpr unsigned int kWorkers = 2; // a stage, and the piece that it hands on
constexpr auto kInterval = std::chrono::milliseconds(50);

const ProgressHandlerContainer::ProgressHandlerData kStages[] = {
    {WaitingForSettings, {"settings", WaitingForSettings, "waits until a change in the registry is in effect"}},
    {TakingSnapshot, {"snapshot", TakingSnapshot, "copies the company and undoes the copy"}},
    {Compressing, {"compression", Compressing, "compresses the company's largest file"}},
};

} // namespace

Job::Job(Console& console) : m_progress(kStages, std::size(kStages)), m_bars(console), m_pool(kWorkers, "host")
{
}

void Job::RunStage(Stage stage, const std::function<void(ProgressHandler&)>& work)
{
    const ScopedProgressState active(m_progress, stage);
    ScopedProgressObserver bar(m_bars, stage, m_progress);
    RunMeanwhile([this, &work] { work(m_progress.GetActiveProgressHandler()); }, [&bar] { bar.ForceUpdate(); });
}

void Job::RunMeanwhile(const std::function<void()>& work, const std::function<void()>& meanwhile)
{
    // The future brings an exception of the work back here: on the pool's thread it would end the process.
    const auto guarded = std::make_shared<std::packaged_task<void()>>(work);
    std::future<void> done = guarded->get_future();
    auto task = std::make_unique<LambdaThreadPoolTask>([guarded] { (*guarded)(); });
    m_pool.Submit(task.get());
    static_cast<void>(task.release()); // the pool's from here on
    try
    {
        while (done.wait_for(kInterval) == std::future_status::timeout)
        {
            meanwhile();
        }
    }
    catch (...)
    {
        done.wait(); // the work refers to what the caller is about to leave
        throw;
    }
    done.get();
}
