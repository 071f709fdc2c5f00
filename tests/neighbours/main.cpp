// Into the world of the neighbours first, so that no test can forget it.
#include <gtest/gtest.h>

#include "world.h"

int main(int argc, char **argv) {
    testing::InitGoogleTest(&argc, argv);
    if (GTEST_FLAG_GET(list_tests))
        return RUN_ALL_TESTS();
    return neighbours::in_private_world([] { return RUN_ALL_TESTS(); });
}
