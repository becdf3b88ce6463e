#pragma once

#include <benchmark/benchmark.h>

#include <functional>
#include <string>
#include <vector>

namespace Bench
{

/// What a job is asked for; 0: nothing.
struct Target
{
    double mostOfFloor = 0;      // our time as a multiple of the floor's
    double leastOfBestOther = 0; // the best alternative's time as a multiple of ours
};

enum class Role
{
    Ours,
    Alternative,
    Floor // the least that any implementation has to do
};

struct Variant
{
    Role role;
    std::string name;
    std::string id; // the name under which it is registered
};

/// One task, done by the library, by alternatives and by the least possible code. All jobs are kept for the report.
class Job
{
public:
    using Body = std::function<void(benchmark::State&)>;

    /// Adds a job; the result is valid until the next one is added. `name` may be selected by --benchmark_filter.
    static Job& Add(const std::string& name, Target target);
    static const std::vector<Job>& All();

    Job& Ours(Body body);
    Job& Alternative(const std::string& name, Body body);
    Job& Floor(const std::string& name, Body body);

    // Settings of the variants that are added after them.

    Job& Threads(int count);
    /// A fixed number of operations for one measurement, instead of as many as fill the minimum time.
    Job& Operations(int count);
    /// The body measures by itself and says so by `SetIterationTime`.
    Job& OwnClock();
    /// Shows a rate beside the time.
    Job& BytesAnOperation(double bytes);

    const std::string& Name() const;
    const Target& Wanted() const;
    const std::vector<Variant>& Variants() const;
    double Bytes() const;

private:
    Job(const std::string& name, Target target);
    Job& Register(Role role, const std::string& name, Body body);

    std::string m_name;
    Target m_target;
    std::vector<Variant> m_variants;
    int m_threads = 1;
    int m_operations = 0;
    bool m_ownClock = false;
    double m_bytes = 0;
};

/// Keeps the compiler from doing a constant's work once for the whole loop.
template <typename Value>
Value& Opaque(Value& value)
{
    benchmark::DoNotOptimize(&value);
    benchmark::ClobberMemory();
    return value;
}

/// A body that calls `function` and uses what it returns.
template <typename Function>
Job::Body Calling(Function function)
{
    return [function](benchmark::State& state) {
        for (auto _ : state)
        {
            auto result = function();
            benchmark::DoNotOptimize(result);
        }
    };
}

// The subjects; each adds its jobs.

void AddCompressionJobs();
void AddDirectoryJobs();
void AddFileOperationsJobs();
void AddLoggerJobs();
void AddProgressJobs();
void AddSettingsJobs();
void AddStringsJobs();
void AddTextChecksJobs();
void AddThreadPoolJobs();

} // namespace Bench
