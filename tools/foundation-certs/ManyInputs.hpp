#pragma once

#include "ExitStatus.hpp"
#include "OrderedOutput.hpp"

#include <foundation/toolkit/CertificateReader.hpp>

#include <CLI/CLI.hpp>

#include <functional>
#include <string>
#include <vector>

namespace foundation::tools {

/// The inputs of a subcommand that reads any number of certificates.
struct InputOptions
{
    std::vector<std::string> paths; ///< files and folders; "-" is standard input
    std::string list;               ///< a file with one path on each line; "-" is standard input
    unsigned jobs = 0;              ///< how many threads; 0 means one for each processor
};

/// Adds PATH..., --from and --jobs to the parser.
void addInputOptions(CLI::App& command, InputOptions& options);

/// Adds to the report what there is to say about one certificate. Several threads call it at once.
using Visitor = std::function<void(toolkit::ReadCertificate const&, Report&)>;

/// Calls the visitor for each result of the inputs, also for failures, and writes the reports in the order of
/// the inputs. The work is divided by paths: one thread reads a file or folder from start to end. Memory is
/// bounded: a thread that is far ahead of the output waits. Shows the number of results on standard error if
/// that is a terminal and standard output is not. An exception of the visitor ends the input that it was
/// called for with an error line and BadInput. Another exception ends all inputs, and is thrown again after
/// all threads have ended. Returns the worst status.
ExitStatus visitCertificates(InputOptions const& options, Visitor const& visit);

/// Adds the failure of a result without a certificate: a line for standard error and BadInput.
void reportFailure(toolkit::ReadCertificate const& found, Report& report);

/// Returns "FILE #2", the name of a result for people; without the number for a whole source. Not escaped.
std::string nameOf(toolkit::ReadCertificate const& found);

} // namespace foundation::tools
