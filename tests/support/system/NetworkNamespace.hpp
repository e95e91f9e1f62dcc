#pragma once

namespace foundation::test {

/// Gives the process loopback addresses of its own, where the system allows, so that port 80 is free and
/// permitted; says so on standard error where it does not. To be called before any thread is started, which
/// would forbid it.
void isolateNetwork();

} // namespace foundation::test
