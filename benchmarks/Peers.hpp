#pragma once

/// @file
/// The results of the programs that measure other libraries (benchmarks/peers), and the data of the plot.

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace foundation::benchmarks {

/// One other library.
struct Peer
{
    std::string name;
    /// Seconds per validation by the number of roots. Empty if the library is not installed.
    std::map<std::size_t, double> seconds;

    std::optional<double> secondsFor(std::size_t roots) const;
};

/// Reads the files of the folder whose names end with ".txt", in the order of their names. The first line is
/// the library's name and version. Each further line is a number of roots and the seconds per validation.
std::vector<Peer> readPeers(std::string const& folder);

/// Returns the plotted rows of this run and the peers as a table for gnuplot: one line for each number of
/// roots, columns with quoted headings, and "?" where a value is missing.
std::string plotData(std::vector<Peer> const& peers);

} // namespace foundation::benchmarks
