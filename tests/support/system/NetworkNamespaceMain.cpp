// The main of test programs with servers on fixed ports. It lets several of them run at the same time.

#include "support/system/NetworkNamespace.hpp"

#include <gtest/gtest.h>

int main(int argc, char** argv)
{
    testing::InitGoogleTest(&argc, argv);
    foundation::test::isolateNetwork();
    return RUN_ALL_TESTS();
}
