#pragma once

#include <functional>

namespace foundation::test {

/// Runs the work in the given number of threads, which start at the same time. Passes each its number, from
/// 0. Aborts the process after five minutes, because a deadlock would never end.
void inParallel(int numThreads, std::function<void(int number)> const& work);

} // namespace foundation::test
