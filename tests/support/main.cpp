// The main function of every test program: into the sandbox first, so that no test can forget it.
#include <gtest/gtest.h>
#include <sys/syscall.h>

#include <cerrno>

#include "faults.h"
#include "refused_call.h"
#include "sandbox.h"

// Asked for by the sanitizers, where they are linked in: a size that no machine has is refused, as without them.
extern "C" {
const char *__asan_default_options();   // NOLINT(bugprone-reserved-identifier)
const char *__asan_default_options() {  // NOLINT(bugprone-reserved-identifier)
    return "allocator_may_return_null=1";
}
const char *__tsan_default_options();   // NOLINT(bugprone-reserved-identifier)
const char *__tsan_default_options() {  // NOLINT(bugprone-reserved-identifier)
    return "allocator_may_return_null=1";
}
}

int main(int argc, char **argv) {
    testing::InitGoogleTest(&argc, argv);
    if (!GTEST_FLAG_GET(list_tests))
        support::enter_sandbox();
    if (support::openat2_is_refused() && !support::refuse_system_call(SYS_openat2, ENOSYS))
        return support::kSkipStatus;
    return RUN_ALL_TESTS();
}
