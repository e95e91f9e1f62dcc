#include "support/assertions/ExactThrow.hpp"

#include <foundation/toolkit/Certificate.hpp>

#include <gtest/gtest.h>

using namespace foundation::certificates;
using namespace foundation::test;
using namespace foundation::toolkit;

TEST(ToolkitCertificate, RefusesTextWithoutCertificate)
{
    EXPECT_THROWS_EXACTLY(
        InvalidArgument, "The text contains no certificate in PEM encoding.", Certificate::fromPEM("text"));
}
