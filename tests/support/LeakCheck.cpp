// Looks for leaks at the end of the tests instead of at the end of the process. By then OpenSSL has taken
// down its own process-wide state, and what it keeps to the end on purpose, such as the provider "legacy"
// that each load of a PKCS#12 container asks for and none gives back, would pass for a leak.
#include <gtest/gtest.h>

#include <sanitizer/lsan_interface.h>

namespace {

struct LeakCheck : testing::Environment
{
    void TearDown() override { __lsan_do_leak_check(); }
};

[[maybe_unused]] testing::Environment const* const leakCheck =
    testing::AddGlobalTestEnvironment(new LeakCheck);

} // namespace
