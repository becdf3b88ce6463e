#include <benchmarks/Job.h>

#include <UtilsLib/WindowsTypes.h>
#include <UtilsLib/progress/ProgressHandler.h>

#include <algorithm>
#include <atomic>
#include <limits>
#include <memory>
#include <mutex>
#include <string>

using UtilsLib::ProgressHandler;

namespace Bench
{
namespace
{

using Count = unsigned long long;

constexpr Count kEnd = std::numeric_limits<Count>::max() / 2; // never reached

class Handler
{
public:
    Handler()
    {
        m_handler.Begin(kEnd, 0);
    }
    void Add(Count value)
    {
        m_handler.UpdateProgressCurrent(value, ProgressHandler::Relative);
    }

private:
    ProgressHandler m_handler{{"", 0, ""}};
};

// The stand-ins are called as the library is: out of line.

/// Whole counts without a lock; end and current are not of one moment.
class AtomicPair
{
public:
    __attribute__((noinline)) void Add(Count value)
    {
        const Count end = m_end.load();
        Count before = m_current.load();
        while (!m_current.compare_exchange_weak(before, std::min(before + value, end)))
        {
        }
    }

private:
    std::atomic<Count> m_end = kEnd;
    std::atomic<Count> m_current = 0;
};

class MutexPair
{
public:
    __attribute__((noinline)) void Add(Count value)
    {
        const std::lock_guard hold(m_lock);
        m_current = std::min(m_current + value, m_end);
    }

private:
    std::mutex m_lock;
    Count m_end = kEnd;
    Count m_current = 0;
};

class SectionPair
{
public:
    SectionPair()
    {
        InitializeCriticalSection(&m_lock);
    }
    ~SectionPair()
    {
        DeleteCriticalSection(&m_lock);
    }
    SectionPair(const SectionPair&) = delete;
    SectionPair& operator=(const SectionPair&) = delete;

    __attribute__((noinline)) void Add(Count value)
    {
        EnterCriticalSection(&m_lock);
        m_current = std::min(m_current + value, m_end);
        LeaveCriticalSection(&m_lock);
    }

private:
    CRITICAL_SECTION m_lock;
    Count m_end = kEnd;
    Count m_current = 0;
};

/// All threads of a measurement update the same counts.
template <typename Counts>
Job::Body Updates()
{
    return [counts = std::make_shared<Counts>()](benchmark::State& state) {
        for (auto _ : state)
        {
            counts->Add(1);
        }
    };
}

} // namespace

void AddProgressJobs()
{
    for (const int threads : {1, 4})
    {
        Job::Add("progress update, " + std::to_string(threads) + (threads == 1 ? " thread" : " threads"),
                 {.mostOfFloor = 1.1})
            .Threads(threads)
            .Ours(Updates<Handler>())
            .Alternative("std::atomic pair", Updates<AtomicPair>())
            .Alternative("std::mutex pair", Updates<MutexPair>())
            .Floor("pair under a critical section", Updates<SectionPair>());
    }
}

} // namespace Bench
