#include "base/DiagnosticLogger.hpp"

#include <memory>

namespace foundation::certificates {

log::basic_diagnostic_logger<char>& diagnosticLogger()
{
    // A local, because the library may be used in static initializers. Never destroyed, because it may also
    // be used while the process ends, in the destructor of a global object or in a thread.
    // NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables): all records go through it
    static auto* const logger =
        std::make_unique<log::basic_diagnostic_logger<char>>("foundation::certificates").release();
    return *logger;
}

namespace {

/// Creates the logger when the library is loaded, not with the first record.
// NOLINTNEXTLINE(cert-err58-cpp): a process without memory for it does not reach its main
[[maybe_unused]] auto const& loggerFromTheStart = diagnosticLogger();

} // namespace

} // namespace foundation::certificates
