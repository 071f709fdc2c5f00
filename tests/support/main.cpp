// The main function of every test program: into the sandbox first, so that no test can forget it.
#include <gtest/gtest.h>
#include <sys/syscall.h>

#include <cerrno>

#include "faults.h"
#include "refused_call.h"
#include "sandbox.h"

int main(int argc, char **argv) {
    testing::InitGoogleTest(&argc, argv);
    if (!GTEST_FLAG_GET(list_tests))
        support::enter_sandbox();
    if (support::openat2_is_refused() && !support::refuse_system_call(SYS_openat2, ENOSYS))
        return support::kSkipStatus;
    return RUN_ALL_TESTS();
}
