#pragma once

#include "Peers.hpp"

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

namespace foundation::benchmarks {

/// Stores the time of each repetition in its comparison.
class Collector : public benchmark::BenchmarkReporter
{
public:
    bool ReportContext(Context const& context) override;
    void ReportRuns(std::vector<Run> const& runs) override;
};

/// Writes all results as a Markdown page. The page shows the image if its name is not empty.
std::string reportAsMarkdown(std::vector<Peer> const& peers, std::string const& image);

} // namespace foundation::benchmarks
