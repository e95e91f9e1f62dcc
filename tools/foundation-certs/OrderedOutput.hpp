#pragma once

#include "ExitStatus.hpp"

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <exception>
#include <mutex>
#include <string>

namespace foundation::tools {

/// What one input contributes to the output.
struct Report
{
    std::string output; ///< for standard output
    std::string errors; ///< for standard error: see errorLine
    ExitStatus status = ExitStatus::Good;
};

/// Writes the reports of many threads in the order of their inputs, in bounded memory. The inputs have the
/// numbers 0, 1, 2 and so on. The first one that is not finished is the current input: its reports are
/// written at once. Reports of later inputs are kept until their turn.
class OrderedOutput
{
public:
    OrderedOutput();

    /// Waits while too much is kept. Call it before taking an input. Returns false if the output was stopped.
    bool waitForSpace();
    /// Writes or keeps the report, and empties it. A large report of a later input waits for its turn. Drops
    /// the report if the output was stopped.
    void add(std::size_t input, Report& report);
    /// Adds the last report of the input.
    void finish(std::size_t input, Report& report);
    /// Counts one result for the progress line.
    void countResult();
    /// Stops the output because of an exception that ends more than one input. No thread waits any longer.
    void stop(std::exception_ptr exception);
    bool isStopped();
    /// Removes the progress line and flushes standard output. Returns the worst status. Rethrows the first
    /// exception that stopped the output.
    /// @throws std::system_error if standard output could not be written
    ExitStatus end();

private:
    struct Kept
    {
        Report report;
        bool isFinished = false;
    };

    Kept& keptFor(std::size_t input);
    void keep(Kept& slot, Report& report);
    void write(Report& report);
    void showProgress();
    void hideProgress();

    std::mutex mutex;
    std::condition_variable changed;
    std::deque<Kept> kept; ///< from the current input on
    std::size_t current = 0;
    std::size_t keptBytes = 0;
    std::exception_ptr failure;
    ExitStatus status = ExitStatus::Good;

    bool const hasProgress;
    bool progressIsShown = false;
    std::size_t numResults = 0;
    std::chrono::steady_clock::time_point nextProgress;
};

} // namespace foundation::tools
