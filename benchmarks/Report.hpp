#pragma once

#include <benchmark/benchmark.h>

#include <string>

namespace foundation::benchmarks {

/// Stores the time of each repetition in its comparison.
class Collector : public benchmark::BenchmarkReporter
{
public:
    bool ReportContext(Context const& context) override;
    void ReportRuns(std::vector<Run> const& runs) override;
};

/// Writes all results as a Markdown page.
std::string reportAsMarkdown();

} // namespace foundation::benchmarks
