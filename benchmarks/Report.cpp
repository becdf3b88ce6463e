#include <benchmarks/Report.h>

#include <benchmarks/Job.h>

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace Bench
{
namespace
{

std::string Duration(double nanoseconds)
{
    char text[40];
    if (nanoseconds < 1e3)
    {
        std::snprintf(text, sizeof(text), "%.1f ns", nanoseconds);
    }
    else if (nanoseconds < 1e6)
    {
        std::snprintf(text, sizeof(text), "%.2f us", nanoseconds / 1e3);
    }
    else
    {
        std::snprintf(text, sizeof(text), "%.2f ms", nanoseconds / 1e6);
    }
    return text;
}

std::string Rate(double bytes, double nanoseconds)
{
    if (bytes == 0 || nanoseconds == 0)
    {
        return {};
    }
    char text[40];
    std::snprintf(text, sizeof(text), "%.0f MB/s", bytes / nanoseconds * 1e3);
    return text;
}

/// The registered id, without what the framework appends to it ("/real_time", "/threads:4").
std::string IdOf(const benchmark::BenchmarkReporter::Run& run)
{
    return run.run_name.function_name;
}

void PrintRatio(const char* what, double ratio, const char* comparison, double target, bool met)
{
    std::printf("  %-34s %10.2f", what, ratio);
    if (target > 0)
    {
        std::printf("   target: %s %.2f, %s", comparison, target, met ? "met" : "MISSED");
    }
    std::printf("\n");
}

} // namespace

bool Report::ReportContext(const Context&)
{
    std::printf("Measuring; repetitions are interleaved, so the table comes at the end, after some minutes.\n");
    std::fflush(stdout);
    return true;
}

void Report::ReportRuns(const std::vector<Run>& runs)
{
    for (const Run& run : runs)
    {
        if (run.error_occurred)
        {
            m_errors[IdOf(run)] = run.error_message;
        }
        else if (run.run_type == Run::RT_Iteration)
        {
            const double operations = static_cast<double>(run.iterations);
            m_samples[IdOf(run)].push_back({run.real_accumulated_time / operations * 1e9, operations});
        }
    }
}

void Report::Finalize()
{
    for (const Job& job : Job::All())
    {
        const auto measured = [this](const Variant& variant) {
            return m_samples.count(variant.id) + m_errors.count(variant.id) > 0;
        };
        if (std::any_of(job.Variants().begin(), job.Variants().end(), measured))
        {
            Print(job);
        }
    }
}

void Report::Print(const Job& job) const
{
    std::printf("\n%s\n  %-34s %10s %10s %12s %12s %8s\n", job.Name().c_str(), "", "median", "90 %", "rate",
                "operations", "to ours");
    const std::string oursId = job.Name() + " | ours";
    const double ours = Percentile(oursId, 0.5);
    for (const Variant& variant : job.Variants())
    {
        PrintLine(job, variant, ours);
    }
    if (ours > 0)
    {
        PrintVerdict(job, ours);
    }
    std::fflush(stdout);
}

void Report::PrintLine(const Job& job, const Variant& variant, double ours) const
{
    const std::string name = (variant.role == Role::Floor ? "floor: " : "") + variant.name;
    const auto error = m_errors.find(variant.id);
    if (error != m_errors.end())
    {
        std::printf("  %-34s FAILED: %s\n", name.c_str(), error->second.c_str());
        return;
    }
    const double median = Percentile(variant.id, 0.5);
    if (median == 0)
    {
        return;
    }
    double operations = 0;
    for (const Sample& sample : m_samples.at(variant.id))
    {
        operations += sample.operations;
    }
    std::printf("  %-34s %10s %10s %12s %12.0f %8.2f\n", name.c_str(), Duration(median).c_str(),
                Duration(Percentile(variant.id, 0.9)).c_str(), Rate(job.Bytes(), median).c_str(), operations,
                ours > 0 ? median / ours : 0.0);
}

void Report::PrintVerdict(const Job& job, double ours) const
{
    double floor = 0;
    double best = 0;
    for (const Variant& variant : job.Variants())
    {
        const double median = Percentile(variant.id, 0.5);
        double& least = variant.role == Role::Floor ? floor : best;
        if (variant.role != Role::Ours && median > 0 && (least == 0 || median < least))
        {
            least = median;
        }
    }
    const Target& target = job.Wanted();
    if (floor > 0)
    {
        PrintRatio("-> our time / floor", ours / floor, "at most", target.mostOfFloor,
                   ours / floor <= target.mostOfFloor);
    }
    if (best > 0)
    {
        PrintRatio("-> best alternative's time / ours", best / ours, "at least", target.leastOfBestOther,
                   best / ours >= target.leastOfBestOther);
    }
}

double Report::Percentile(const std::string& id, double part) const
{
    const auto found = m_samples.find(id);
    if (found == m_samples.end())
    {
        return 0;
    }
    std::vector<double> times;
    for (const Sample& sample : found->second)
    {
        times.push_back(sample.nanoseconds);
    }
    std::sort(times.begin(), times.end());
    const double position = part * static_cast<double>(times.size() - 1);
    const auto below = static_cast<std::size_t>(std::floor(position));
    const auto above = static_cast<std::size_t>(std::ceil(position));
    return times[below] + (times[above] - times[below]) * (position - std::floor(position));
}

} // namespace Bench
