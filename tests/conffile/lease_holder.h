// Another process's lease on a file, as a file server takes it for its clients: whoever opens the file has to wait until
// the holder, who is told so, gives the lease back.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <csignal>
#include <string>

#include "sandbox.h"

class LeaseHolder {
  public:
    explicit LeaseHolder(const std::string &path) {
        int ready[2];
        EXPECT_EQ(pipe2(ready, O_CLOEXEC), 0);
        holder_ = support::start_child([&] { return hold(path, ready[1]); });
        close(ready[1]);
        char byte = 0;
        EXPECT_EQ(read(ready[0], &byte, 1), 1) << "no lease was given";
        close(ready[0]);
    }
    LeaseHolder(const LeaseHolder &) = delete;
    LeaseHolder &operator=(const LeaseHolder &) = delete;

    // Waits for the end of a holder who was asked to give the lease back.
    void expect_asked() { EXPECT_EQ(support::wait_for(holder_), 0); }

  private:
    static int hold(const std::string &path, int ready) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        sigset_t asked;
        sigemptyset(&asked);
        sigaddset(&asked, SIGIO);
        sigprocmask(SIG_BLOCK, &asked, nullptr);

        const int file = open(path.c_str(), O_RDWR | O_CLOEXEC);
        if (fcntl(file, F_SETLEASE, F_WRLCK) != 0 || write(ready, "", 1) != 1)
            return 1;

        int signal = 0;
        sigwait(&asked, &signal);
        return fcntl(file, F_SETLEASE, F_UNLCK) == 0 ? 0 : 2;
    }

    pid_t holder_ = 0;
};
