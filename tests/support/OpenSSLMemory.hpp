#pragma once

#include <functional>
#include <set>
#include <string>

namespace foundation::test {

/// Runs the operation again and again, and has OpenSSL fail to get memory at the first of its allocations,
/// then at the second, and so on, until the operation makes no more. Gives the texts of all exceptions that
/// came out; an operation may also succeed although something in it had failed. With a step, only every
/// step-th allocation is tried.
///
/// A test program that names this gives OpenSSL memory functions of its own, before OpenSSL allocates
/// anything.
std::set<std::string> failuresWithoutMemory(std::function<void()> const& operation, long step = 1);

} // namespace foundation::test
