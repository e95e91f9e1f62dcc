#pragma once

#include <benchmark/benchmark.h>

#include <string>

namespace foundation::benchmarks {

/// Puts the time of each repetition where the comparisons keep it.
class Collector : public benchmark::BenchmarkReporter
{
public:
    bool ReportContext(Context const& context) override;
    void ReportRuns(std::vector<Run> const& runs) override;
};

/// All results as a page in Markdown.
std::string reportAsMarkdown();

} // namespace foundation::benchmarks
