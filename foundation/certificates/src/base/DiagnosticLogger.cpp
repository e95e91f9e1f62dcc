#include "base/DiagnosticLogger.hpp"

namespace foundation::certificates {

log::basic_diagnostic_logger<char>& diagnosticLogger()
{
    // A local, so that it is there for whoever calls the library out of a static initializer.
    static log::basic_diagnostic_logger<char> logger("foundation::certificates");
    return logger;
}

namespace {

/// The logger is made when the library is loaded, not by the first record.
// NOLINTNEXTLINE(cert-err58-cpp): a process without memory for it does not get to its main
[[maybe_unused]] auto const& loggerFromTheStart = diagnosticLogger();

} // namespace

} // namespace foundation::certificates
