// A library with a static Thread that is destroyed when the library is unloaded or the process ends.
#include <UtilsLib/threading/Thread.h>

#include <tests/child/StaticThread.h>

#include <climits>
#include <stdexcept>

namespace
{

class Worker : public UtilsLib::Thread
{
public:
    Worker() : Thread("static")
    {
    }
    ~Worker()
    {
        Shutdown();
    }

    void Start(int work)
    {
        m_work = work;
        Thread::Start();
    }
    bool Runs() const
    {
        return m_runs;
    }

private:
    void ThreadProc() override
    {
        m_runs = true;
        switch (m_work)
        {
        case SleepUntilStopped:
            return ControlledSleep(UINT_MAX);
        case SpinUntilStopped:
            return Spin();
        case Throw:
            throw std::runtime_error("lost");
        case EndProcess:
            ExitProcess(10);
        default:
            return;
        }
    }
    void Spin() const
    {
        while (!StopRequested())
        {
            SwitchToThread();
        }
    }

    int m_work = EndAtOnce;
    std::atomic<bool> m_runs = false;
};

Worker ms_worker;

} // namespace

extern "C" __declspec(dllexport) void StartStatic(int work)
{
    ms_worker.Start(work);
}

extern "C" __declspec(dllexport) bool StaticRuns()
{
    return ms_worker.Runs();
}
