#pragma once

namespace foundation::test {

/// Gives the process its own loopback addresses, so that port 80 is free and permitted. Reports on standard
/// error if the system does not allow it. Call it before any thread starts: the system refuses it afterwards.
void isolateNetwork();

} // namespace foundation::test
