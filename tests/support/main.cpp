// The main function of every test program: into the sandbox first, so that no test can forget it.
#include <gtest/gtest.h>

#include "sandbox.h"

int main(int argc, char **argv) {
    testing::InitGoogleTest(&argc, argv);
    if (!GTEST_FLAG_GET(list_tests))
        support::enter_sandbox();
    return RUN_ALL_TESTS();
}
