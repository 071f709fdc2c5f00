// Does a process exist?
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>

#include "faults.h"
#include "log_capture.h"
#include "miscfunc.h"
#include "sandbox.h"

using support::Call;
using support::CountCalls;
using support::FailCall;
using support::LogCapture;

TEST(ProcessExists, no_id_of_one_process_is_asked_for) {
    for (const int32_t pid : {0, -1, -5, -getpid(), INT_MIN}) {
        SCOPED_TRACE(pid);
        const CountCalls kills(Call::kill);
        EXPECT_EQ(Is_Process_Existed(pid), 0);
        EXPECT_EQ(kills.count(), 0);
    }
}

TEST(ProcessExists, live_processes_do) {
    EXPECT_EQ(Is_Process_Existed(getpid()), 1);
    EXPECT_EQ(Is_Process_Existed(getppid()), 1);
}

TEST(ProcessExists, a_process_that_nobody_has_waited_for_does) {
    const pid_t child = support::start_child([] { return 0; });
    siginfo_t ended{};
    ASSERT_EQ(waitid(P_PID, static_cast<id_t>(child), &ended, WEXITED | WNOWAIT), 0);

    EXPECT_EQ(Is_Process_Existed(child), 1);

    support::wait_for(child);
    EXPECT_EQ(Is_Process_Existed(child), 0);
}

TEST(ProcessExists, ended_and_impossible_processes_do_not) {
    EXPECT_EQ(Is_Process_Existed(support::dead_process()), 0);
    EXPECT_EQ(Is_Process_Existed(INT_MAX), 0);
}

TEST(ProcessExists, a_process_that_may_not_be_signalled_gives_the_error) {
    if (!support::can_be_nobody())
        GTEST_SKIP() << "only a privileged program can become another user";

    EXPECT_EQ(support::in_child_as_nobody([] {
                  EXPECT_EQ(Is_Process_Existed(getppid()), -EPERM);
                  EXPECT_EQ(Is_Process_Existed(1), -EPERM);
                  EXPECT_EQ(Is_Process_Existed(getpid()), 1);
                  return testing::Test::HasFailure() ? 1 : 0;
              }),
              0);
}

TEST(ProcessExists, any_failure_but_no_such_process_is_handed_on) {
    const struct {
        int error;
        int32_t expected;
    } table[] = {{ESRCH, 0}, {EPERM, -EPERM}, {EINVAL, -EINVAL}, {ENOSYS, -ENOSYS}};
    LogCapture log;

    for (const auto &row : table) {
        SCOPED_TRACE(row.error);
        const FailCall fault(Call::kill, row.error);
        EXPECT_EQ(Is_Process_Existed(getpid()), row.expected);
        EXPECT_EQ(fault.failed(), 1);
    }
    EXPECT_THAT(log.messages(), testing::IsEmpty());
}
