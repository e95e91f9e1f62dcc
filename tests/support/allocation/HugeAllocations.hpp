#pragma once

#include <cstddef>

namespace foundation::test {

/// A test program that links this gets an operator new of its own, which takes next to no memory for blocks
/// of a gibibyte and more: the first and the last piece of such a block are memory as any other, and all
/// pieces between are one and the same piece of memory. What is written to one of those shows in all of them.
///
/// The number of such blocks that were handed out: a test that counts on them looks at it first.
std::size_t numHugeAllocations();

} // namespace foundation::test
