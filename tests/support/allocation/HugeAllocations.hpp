#pragma once

#include <cstddef>

namespace foundation::test {

/// Returns how many huge blocks were allocated. A test that relies on them checks this first.
///
/// A test program that links this replaces operator new. Blocks of a gibibyte and more then use almost no
/// memory: only the first and the last piece of a block are ordinary memory. All pieces between them share
/// one piece of memory, so what is written to one of them shows in all.
std::size_t numHugeAllocations();

} // namespace foundation::test
