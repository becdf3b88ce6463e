#pragma once

#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <vector>

namespace Bench
{

class Job;
struct Variant;

/// Collects all repetitions and, at the end, prints a block for every job: medians, 90th percentiles, the ratios to the
/// floor and to the best alternative, and whether the targets are met.
class Report : public benchmark::BenchmarkReporter
{
public:
    bool ReportContext(const Context& context) override;
    void ReportRuns(const std::vector<Run>& runs) override;
    void Finalize() override;

private:
    struct Sample
    {
        double nanoseconds; // an operation
        double operations;
    };

    void Print(const Job& job) const;
    void PrintLine(const Job& job, const Variant& variant, double ours) const;
    void PrintVerdict(const Job& job, double ours) const;
    /// 0 without a sample; `part` 0.5 is the median.
    double Percentile(const std::string& id, double part) const;

    std::map<std::string, std::vector<Sample>> m_samples; // by the variant's id
    std::map<std::string, std::string> m_errors;
};

} // namespace Bench
