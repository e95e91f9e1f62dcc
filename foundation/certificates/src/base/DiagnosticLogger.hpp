#pragma once

#include <foundation/log/basic_diagnostic_logger.hpp>

namespace foundation::certificates {

/// The library's one logger, "foundation::certificates". Every record is written through this.
log::basic_diagnostic_logger<char>& diagnosticLogger();

} // namespace foundation::certificates
