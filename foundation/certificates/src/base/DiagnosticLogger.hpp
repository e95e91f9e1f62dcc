#pragma once

#include <foundation/log/basic_diagnostic_logger.hpp>

namespace foundation::certificates {

/// Returns the library's only logger, "foundation::certificates".
log::basic_diagnostic_logger<char>& diagnosticLogger();

} // namespace foundation::certificates
