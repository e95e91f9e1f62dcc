// The main of test programs that serve on fixed ports, so that such programs can run at the same time.

#include "support/system/NetworkNamespace.hpp"

#include <gtest/gtest.h>

int main(int argc, char** argv)
{
    testing::InitGoogleTest(&argc, argv);
    foundation::test::isolateNetwork(); // before any test starts a thread
    return RUN_ALL_TESTS();
}
