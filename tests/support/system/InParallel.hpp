#pragma once

#include <functional>

namespace foundation::test {

/// Runs the work in that many threads, which all begin at the same time; each is told its number. Ends the
/// process if they have not returned after five minutes: threads that wait for each other never do.
void inParallel(int numThreads, std::function<void(int number)> const& work);

} // namespace foundation::test
