// korvex lock: whatever signal comes at whatever moment, no lock is left behind.
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>

#include "run_korvex.h"

namespace {

using support::exists;
using support::read_file;
using support::write_file;

const std::string kLock = "/var/lock/_f.lck";

class LockSignals : public KorvexTest {
  protected:
    LockSignals() { mkfifo(folder.path("ready").c_str(), 0600); }

    // A script that says that it runs, then does the rest.
    Words ready_then(const std::string &rest) const { return {"lock", "f", "--", "sh", "-c", "echo > ready; " + rest}; }
    void wait_until_ready() const { read_file(folder.path("ready")); }
};

// The tool waits for a lock with the ending signals blocked.
void wait_until_signals_are_blocked(pid_t pid) {
    const uint64_t interrupt = uint64_t{1} << (SIGINT - 1);
    uint64_t blocked = 0;
    while ((blocked & interrupt) == 0) {
        const std::string status = read_file("/proc/" + std::to_string(pid) + "/status");
        blocked = std::stoull(status.substr(status.find("SigBlk:") + 7), nullptr, 16);
        usleep(1000);
    }
}

TEST_F(LockSignals, an_ending_signal_ends_the_command_and_releases_the_lock) {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
        SCOPED_TRACE(signal);
        KorvexProcess process(ready_then("exec sleep 1000"), folder.path());
        wait_until_ready();
        EXPECT_EQ(support::parse_lock(read_file(kLock)).holder, process.pid());
        process.send(signal);
        EXPECT_EQ(process.wait(), Outcome(128 + signal));
        EXPECT_FALSE(exists(kLock));
    }
}

TEST_F(LockSignals, the_lock_stays_until_a_command_that_handles_the_signal_has_ended) {
    const std::string script =
        "trap 'test -e " + kLock + " && exit 5' TERM; echo > ready; while :; do sleep 0.01; done";
    KorvexProcess process({"lock", "f", "--", "sh", "-c", script}, folder.path());
    wait_until_ready();
    process.send(SIGTERM);
    EXPECT_EQ(process.wait(), Outcome(5));
    EXPECT_FALSE(exists(kLock));
}

TEST_F(LockSignals, a_signal_ends_the_wait_and_leaves_the_holder_its_lock) {
    const std::string content = lock_of(getpid());
    write_file(kLock, content);
    for (const int signal : {SIGINT, SIGTERM}) {
        KorvexProcess process({"lock", "f", "--wait", "-1", "--", "true"}, folder.path());
        wait_until_signals_are_blocked(process.pid());
        process.send(signal);
        EXPECT_EQ(process.wait(), Outcome(128 + signal));
        EXPECT_EQ(read_file(kLock), content);
    }
}

TEST_F(LockSignals, the_wait_ends_when_the_lock_is_released) {
    write_file(kLock, lock_of(getpid()));
    KorvexProcess process({"lock", "f", "--wait", "-1", "--", "echo", "ran"}, folder.path());
    wait_until_signals_are_blocked(process.pid());
    unlink(kLock.c_str());
    EXPECT_EQ(process.wait(), Outcome(0, "ran\n"));
}

TEST_F(LockSignals, a_signal_that_was_ignored_at_the_start_stays_ignored) {
    const support::TempFolder &where = folder;
    const int exit_status = support::in_child([&] {
        std::signal(SIGHUP, SIG_IGN);
        KorvexProcess process(ready_then("grep SigIgn /proc/self/status > ignored; read line < go; exit 4"),
                              where.path());
        wait_until_ready();
        process.send(SIGHUP);
        write_file(where.path("go"), "\n");
        return process.wait().exit_status;
    });
    EXPECT_EQ(exit_status, 4);
    const std::string ignored = read_file(folder.path("ignored"));
    EXPECT_EQ(std::stoull(ignored.substr(7), nullptr, 16) & 1U, 1U) << ignored;
}

TEST_F(LockSignals, a_command_whose_end_the_starter_ignores_is_still_waited_for) {
    const int exit_status = support::in_child([&] {
        struct sigaction action {};
        action.sa_handler = SIG_IGN;
        sigaction(SIGCHLD, &action, nullptr);
        execl(KORVEX_PROGRAM, "korvex", "lock", "f", "--", "sh", "-c", "exit 6", nullptr);
        return 99;
    });
    EXPECT_EQ(exit_status, 6);
}

TEST_F(LockSignals, a_signal_at_any_moment_leaves_no_lock) {
    const int signals[] = {SIGINT, SIGTERM};
    for (int turn = 0; turn < 100; ++turn) {
        KorvexProcess process({"lock", "f", "--", "true"}, folder.path());
        usleep(static_cast<useconds_t>(turn * 50));  // some moment of its life, each turn a later one
        process.send(signals[turn % 2]);
        process.wait();
        ASSERT_FALSE(exists(kLock)) << turn;
    }
}

}  // namespace
