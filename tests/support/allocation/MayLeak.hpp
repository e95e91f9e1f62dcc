#pragma once

#if defined(__has_feature)
#define FOUNDATION_TEST_HAS_FEATURE(name) __has_feature(name)
#else
#define FOUNDATION_TEST_HAS_FEATURE(name) 0
#endif
#if defined(__SANITIZE_ADDRESS__) || FOUNDATION_TEST_HAS_FEATURE(address_sanitizer)
#include <sanitizer/lsan_interface.h>
#define FOUNDATION_TEST_HAS_LEAK_SANITIZER 1
#endif

namespace foundation::test {

/// LeakSanitizer ignores what is allocated in the scope of such an object.
#ifdef FOUNDATION_TEST_HAS_LEAK_SANITIZER
using MayLeak = __lsan::ScopedDisabler;
#else
struct MayLeak
{
    MayLeak() {}
};
#endif

} // namespace foundation::test
